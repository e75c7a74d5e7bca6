#include "program/visitor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace fuzzing {

namespace {

constexpr int kPauseMillis = 5;
constexpr int kMostPauses = 2000;

/// Asks a server of this machine.
class Visitor {
public:
    Visitor(uint16_t port, std::string token) : m_port(port), m_token(std::move(token)) {}

    std::string Ask(const std::string& method, const std::string& path, const std::string& body = "") const {
        return Exchange(method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                        "Authorization: Bearer " + m_token +
                        "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

private:
    std::string Exchange(const std::string& request) const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::string answer;
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
            char piece[4096];
            for (ssize_t got = 0; (got = recv(fd, piece, sizeof piece, 0)) > 0;) {
                answer.append(piece, static_cast<size_t>(got));
            }
        }
        close(fd);
        return answer;
    }

    uint16_t m_port;
    std::string m_token;
};

void AskEverything(const Visitor& visitor) {
    const std::string all = "?from=0&to=4294967295000000";
    for (const std::string& path :
         {std::string("/"), std::string("/api/info"), "/api/coverage" + all + "&width=100",
          "/api/events" + all, "/api/damage" + all,
          std::string(
              "/api/frames?from=1699999990000000&to=1700000030000000&channels=0,1,31&start=key&kind=all"),
          std::string(
              "/api/frames?from=1700000000000000&to=1700000020000000&channels=0,31&start=exact&kind=key")}) {
        visitor.Ask("GET", path);
    }
    visitor.Ask("POST", "/api/exports", R"({"from":1700000000,"to":1700000020,"channels":"0,1,31"})");
    for (int i = 0;
         i < kMostPauses && visitor.Ask("GET", "/api/exports/1").find("\"running\"") != std::string::npos;
         ++i) {
        poll(nullptr, 0, kPauseMillis);
    }
}

} // namespace

void VisitViewer(const ProgramCall::Output& output, const ProgramCall::Stopped& stopped) {
    const std::string before = "http://127.0.0.1:";
    const std::string between = "/#token=";
    std::string shown;
    while (!stopped() && shown.find('\n') == std::string::npos) {
        poll(nullptr, 0, kPauseMillis);
        shown = output();
    }
    const size_t port = shown.find(before);
    const size_t token = shown.find(between);
    if (port == std::string::npos || token == std::string::npos) {
        return; // it has refused the disk
    }
    const int number = std::stoi(shown.substr(port + before.size()));
    AskEverything(Visitor(static_cast<uint16_t>(number),
                          shown.substr(token + between.size(), shown.find('\n') - token - between.size())));
    kill(getpid(), SIGINT);
}

} // namespace fuzzing
