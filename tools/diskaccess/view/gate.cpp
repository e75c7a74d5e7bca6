#include "view/gate.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <array>
#include <cstddef>

#include "cli/failure.h"

namespace diskaccess::view {

namespace {

/// The name of a Host header, without its port. Any port will do, so that a forwarded one works.
std::string NameOf(const std::string& host) {
    const size_t colon = host.rfind(':');
    const bool hasPort =
        colon != std::string::npos && host.find_first_not_of("0123456789", colon + 1) == std::string::npos;
    return hasPort ? host.substr(0, colon) : host;
}

bool IsThisMachine(const Caller& caller) {
    const std::string name = NameOf(caller.host.value_or(""));
    return name == "127.0.0.1" || name == "localhost" || name == "[::1]";
}

/// Takes the same time wherever two texts of one length differ, so that a token cannot be guessed digit by digit.
bool SameSecret(const std::string& given, const std::string& secret) {
    if (given.size() != secret.size()) {
        return false;
    }
    unsigned difference = 0;
    for (size_t i = 0; i < secret.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i]) ^
                      static_cast<unsigned>(static_cast<unsigned char>(secret[i]));
    }
    return difference == 0;
}

} // namespace

Admission Gate::ForPage(const Caller& caller) const {
    return IsThisMachine(caller) ? Admission::Granted : Admission::OtherHost;
}

Admission Gate::ForApi(const Caller& caller) const {
    if (!IsThisMachine(caller)) {
        return Admission::OtherHost;
    }
    if (caller.fetchSite && *caller.fetchSite != "same-origin") {
        return Admission::OtherSite;
    }
    return HasToken(caller) ? Admission::Granted : Admission::NoToken;
}

bool Gate::HasToken(const Caller& caller) const {
    return SameSecret(caller.authorization.value_or(""), "Bearer " + m_token);
}

std::string MakeToken() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Failure("the system gives no random numbers: the viewer cannot keep others out");
    }
    std::string token;
    for (const unsigned char byte : bytes) {
        token += fmt::format("{:02x}", byte);
    }
    return token;
}

} // namespace diskaccess::view
