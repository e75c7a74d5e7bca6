#include "view/http.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "cli/failure.h"

namespace diskaccess::view {

namespace {

constexpr unsigned kMostConnections = 32;
constexpr size_t kMemoryOfConnection = size_t{32} << 10;
constexpr size_t kPiece = size_t{64} << 10;

/// Everything that keeps a page from reaching out, and others from reaching in.
constexpr const char* kGuards[][2] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' blob: "
     "data:; "
     "media-src blob:; worker-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
     "require-trusted-types-for 'script'; trusted-types worker"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
};

/// A request while its parts come in.
struct Incoming {
    std::string body;
    bool tooLong = false;
};

/// What is left of a piece of a stream that the client has not taken yet.
struct Outgoing {
    std::unique_ptr<Stream> stream;
    std::string piece;
    size_t taken = 0;
};

MHD_Result TakeArgument(void* query, MHD_ValueKind /*kind*/, const char* key, const char* value) {
    (*static_cast<std::map<std::string, std::string>*>(query))[key] = value == nullptr ? "" : value;
    return MHD_YES;
}

std::optional<std::string> HeaderOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

Request RequestOf(MHD_Connection* connection, const char* path, const char* method, std::string body) {
    Request request;
    request.method = method;
    request.path = path;
    request.body = std::move(body);
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, TakeArgument, &request.query);
    request.caller.host = HeaderOf(connection, MHD_HTTP_HEADER_HOST);
    request.caller.authorization = HeaderOf(connection, MHD_HTTP_HEADER_AUTHORIZATION);
    request.caller.fetchSite = HeaderOf(connection, "Sec-Fetch-Site");
    return request;
}

ssize_t ReadStream(void* context, uint64_t /*position*/, char* buffer, size_t size) {
    auto& out = *static_cast<Outgoing*>(context);
    try {
        if (out.taken == out.piece.size()) {
            out.piece = out.stream->Next();
            out.taken = 0;
        }
    } catch (const std::exception&) {
        return MHD_CONTENT_READER_END_WITH_ERROR; // the client misses the last record, and knows that it was cut off
    }
    if (out.piece.empty()) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    const size_t count = out.piece.copy(buffer, size, out.taken);
    out.taken += count;
    return static_cast<ssize_t>(count);
}

void EndStream(void* context) {
    delete static_cast<Outgoing*>(context);
}

MHD_Response* BodyOf(Response& response) {
    if (response.stream) {
        auto out = std::make_unique<Outgoing>();
        out->stream = std::move(response.stream);
        return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kPiece, ReadStream, out.release(),
                                                 EndStream);
    }
    return MHD_create_response_from_buffer(response.body.size(), response.body.data(), MHD_RESPMEM_MUST_COPY);
}

MHD_Result Send(MHD_Connection* connection, Response response) {
    MHD_Response* const message = BodyOf(response);
    if (message == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(message, MHD_HTTP_HEADER_CONTENT_TYPE, response.type.c_str());
    for (const auto& [name, value] : kGuards) {
        MHD_add_response_header(message, name, value);
    }
    const MHD_Result queued = MHD_queue_response(connection, response.status, message);
    MHD_destroy_response(message);
    return queued;
}

void TakeBody(Incoming& incoming, const char* data, size_t size) {
    incoming.tooLong = incoming.tooLong || incoming.body.size() + size > kMostBody;
    if (!incoming.tooLong) {
        incoming.body.append(data, size);
    }
}

/// Called by the server when the head of a request has come, for each part of its body, and at its end.
MHD_Result TakeRequest(void* server, MHD_Connection* connection, const char* path, const char* method,
                       const char* /*version*/, const char* data, size_t* size, void** state) {
    if (*state == nullptr) {
        *state = new Incoming;
        return MHD_YES;
    }
    auto& incoming = *static_cast<Incoming*>(*state);
    if (*size != 0) {
        TakeBody(incoming, data, *size);
        *size = 0;
        return MHD_YES;
    }
    if (incoming.tooLong) {
        Response refusal;
        refusal.status = MHD_HTTP_CONTENT_TOO_LARGE;
        return Send(connection, std::move(refusal));
    }
    return Send(connection, static_cast<const HttpServer*>(server)->Answer(
                                RequestOf(connection, path, method, std::move(incoming.body))));
}

void ForgetRequest(void* /*server*/, MHD_Connection* /*connection*/, void** state,
                   MHD_RequestTerminationCode /*why*/) {
    delete static_cast<Incoming*>(*state);
    *state = nullptr;
}

Response Refusal(unsigned status, const std::string& line) {
    Response response;
    response.status = status;
    response.body =
        nlohmann::json{{"error", line}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return response;
}

} // namespace

HttpServer::HttpServer(uint16_t port, Handler handler, HttpLimits limits) : m_handler(std::move(handler)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_daemon = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL, port, nullptr,
        nullptr, TakeRequest, this, MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&address),
        MHD_OPTION_CONNECTION_LIMIT, kMostConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
        kMemoryOfConnection, MHD_OPTION_CONNECTION_TIMEOUT, limits.silenceSeconds,
        MHD_OPTION_NOTIFY_COMPLETED, ForgetRequest, nullptr, MHD_OPTION_END);
    if (m_daemon == nullptr) {
        throw Failure(
            fmt::format("port {} of this machine cannot be had; give another --port, or none", port));
    }
}

HttpServer::~HttpServer() {
    MHD_stop_daemon(m_daemon);
}

uint16_t HttpServer::Port() const {
    return MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

Response HttpServer::Answer(const Request& request) const {
    try {
        return m_handler(request);
    } catch (const HttpError& error) {
        return Refusal(error.Status(), error.what());
    } catch (const std::exception& error) {
        return Refusal(MHD_HTTP_INTERNAL_SERVER_ERROR, error.what());
    }
}

} // namespace diskaccess::view
