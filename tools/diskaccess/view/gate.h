#ifndef DISKACCESS_VIEW_GATE_H
#define DISKACCESS_VIEW_GATE_H

#include <optional>
#include <string>

namespace diskaccess::view {

/// What the head of a request says about who asks.
struct Caller {
    std::optional<std::string> host;          ///< the header Host
    std::optional<std::string> authorization; ///< the header Authorization
    std::optional<std::string> fetchSite;     ///< the header Sec-Fetch-Site, which browsers send
};

/// Whether a request is answered; else the HTTP status that refuses it.
enum class Admission : unsigned {
    Granted = 200,
    NoToken = 401,   ///< the token is missing or wrong
    OtherSite = 403, ///< a page of another site asks
    OtherHost = 421, ///< the name that was asked for is not this machine's: a foreign name that leads here
};

/// Decides who may ask the server. Only the local user knows the token, which the program prints.
class Gate {
public:
    explicit Gate(std::string token) : m_token(std::move(token)) {}

    /// The page's own files, which hold nothing of the disk.
    Admission ForPage(const Caller& caller) const;
    /// What the disk is asked.
    Admission ForApi(const Caller& caller) const;

private:
    bool HasToken(const Caller& caller) const;

    std::string m_token;
};

/// A token of 128 random bits, as 32 hexadecimal digits.
/// @throws Failure when the system has no random numbers
std::string MakeToken();

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_GATE_H
