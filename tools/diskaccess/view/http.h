#ifndef DISKACCESS_VIEW_HTTP_H
#define DISKACCESS_VIEW_HTTP_H

/// @file http.h
/// A web server on this machine alone.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "view/gate.h"

struct MHD_Daemon;

namespace diskaccess::view {

/// What a client asks.
struct Request {
    std::string method; ///< "GET"
    std::string path;   ///< "/api/info", decoded
    std::map<std::string, std::string> query;
    std::string body; ///< at most kMostBody bytes
    Caller caller;
};

/// The most bytes of a request's body.
constexpr size_t kMostBody = 4096;

/// A long answer, made piece by piece while the client takes it.
class Stream {
public:
    virtual ~Stream() = default;
    /// @return the next piece; empty at the end
    virtual std::string Next() = 0;
};

struct Response {
    unsigned status = 200;
    std::string type = "application/json";
    std::string body;
    std::unique_ptr<Stream> stream; ///< if there is one, instead of the body
};

/// Ends a request with an error: the status, and a line that says what is wrong.
class HttpError : public std::runtime_error {
public:
    HttpError(unsigned status, const std::string& line) : std::runtime_error(line), m_status(status) {}
    unsigned Status() const { return m_status; }

private:
    unsigned m_status;
};

/// What one client may take of the server.
struct HttpLimits {
    unsigned silenceSeconds = 30; ///< a connection on which nothing moves for longer is ended
};

/// Answers requests on 127.0.0.1, each connection in a thread of its own. The number of connections, the memory of each
/// and the time that one may be silent are bounded.
class HttpServer {
public:
    using Handler = std::function<Response(const Request&)>;

    /// @param port 0: any free one
    /// @param handler called on several threads at once. HttpError becomes the status that it has, other exceptions 500
    /// @throws Failure when the port cannot be had
    HttpServer(uint16_t port, Handler handler, HttpLimits limits = HttpLimits());
    /// Ends all connections.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    uint16_t Port() const;
    /// Calls the handler; exceptions become responses.
    Response Answer(const Request& request) const;

private:
    Handler m_handler;
    MHD_Daemon* m_daemon;
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_HTTP_H
