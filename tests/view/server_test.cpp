// The viewer's server, as clients meet it: a real socket, a disk of known frames.

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "commands/wording.h"
#include "media/stills.h"
#include "recordings/frames_fixture.h"
#include "recordings/source.h"
#include "view/api.h"

namespace {

using namespace test_support;
using diskaccess::DiskClock;
using diskaccess::TimeZone;
using diskaccess::view::Api;
using diskaccess::view::HttpLimits;
using diskaccess::view::HttpServer;
using diskaccess::view::Setting;
using Json = nlohmann::json;

constexpr const char* kToken = "0123456789abcdef0123456789abcdef";
constexpr int64_t kBase = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr int64_t kSecond = 1000000;
constexpr size_t kMebibyte = size_t{1} << 20;

/// A connection to the server.
class Client {
public:
    /// @param host one of this machine's addresses
    explicit Client(uint16_t port, uint32_t host = INADDR_LOOPBACK)
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(host);
        m_connected = connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        const timeval patience = {20, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    ~Client() { close(m_socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool Connected() const { return m_connected; }
    bool Send(const std::string& text) const {
        return send(m_socket, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    /// All that comes until the server closes the connection.
    std::string Rest() const {
        std::string all;
        char piece[4096];
        for (ssize_t count = 0; (count = recv(m_socket, piece, sizeof piece, 0)) > 0;) {
            all.append(piece, static_cast<size_t>(count));
        }
        return all;
    }

private:
    int m_socket;
    bool m_connected = false;
};

struct Answer {
    int status = 0;
    std::string head;
    std::string body;

    Json Document() const { return Json::parse(body, nullptr, false); }
};

/// The memory of this process that is in use.
int64_t ResidentKib() {
    int64_t all = 0;
    int64_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

std::string WithoutChunks(const std::string& body) {
    std::string whole;
    for (size_t at = 0; at < body.size();) {
        const size_t line = body.find("\r\n", at);
        const size_t size = std::stoul(body.substr(at, line - at), nullptr, 16);
        if (size == 0) {
            break;
        }
        whole += body.substr(line + 2, size);
        at = line + 2 + size + 2;
    }
    return whole;
}

Answer ToAnswer(const std::string& text) {
    Answer answer;
    const size_t end = text.find("\r\n\r\n");
    if (text.compare(0, 5, "HTTP/") != 0 || end == std::string::npos) {
        return answer;
    }
    answer.status = std::stoi(text.substr(9, 3));
    answer.head = text.substr(0, end);
    answer.body = text.substr(end + 4);
    if (answer.head.find("chunked") != std::string::npos) {
        answer.body = WithoutChunks(answer.body);
    }
    return answer;
}

/// A record of a stream of frames.
struct StreamRecord {
    unsigned kind = 0;
    unsigned channel = 0;
    int64_t time = 0;
    std::string payload;
};

template <typename T>
T NumberAt(const std::string& bytes, size_t at) {
    T number;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

std::vector<StreamRecord> RecordsOf(const std::string& stream) {
    std::vector<StreamRecord> records;
    for (size_t at = 0; at + 16 <= stream.size();) {
        const auto length = NumberAt<uint32_t>(stream, at);
        records.push_back({static_cast<unsigned char>(stream[at + 4]),
                           static_cast<unsigned char>(stream[at + 5]), NumberAt<int64_t>(stream, at + 8),
                           stream.substr(at + 16, length)});
        at += 16 + length;
    }
    return records;
}

/// Two channels, ten minutes: a picture a second, every fifth a key frame, sound of channel 0. Then a minute of nothing,
/// and channel 1 alone for a minute more.
class ViewServer : public FramesFixture {
protected:
    ViewServer() {
        properties[0].AType = 1;
        properties[0].Sample = 8000;
        Start(1, 0x3, 0x40000);
        for (int64_t second = 0; second < 600; ++second) {
            RecordSecond(second, 0);
            RecordSecond(second, 1);
            Record(At(second) + 500000, 2, 0, 320);
        }
        RecordEvent(At(30), 0x8000000000000001, 1);
        for (int64_t second = 660; second < 720; ++second) {
            RecordSecond(second, 1);
        }
        Recorder().PowerOff();
        Serve();
    }

    static int64_t At(int64_t second) { return (kBase + second) * kSecond; }

    void RecordSecond(int64_t second, uint32_t channel) {
        Record(At(second), second % 5 == 0 ? 1 : 0, channel, 200 + static_cast<size_t>(second % 7));
    }

    diskaccess::Names NamesOf(const std::string& document) const {
        std::ofstream(File("names.json")) << document;
        return diskaccess::Names(File("names.json"));
    }

    void Serve(HttpLimits limits = HttpLimits()) {
        m_server.reset();
        m_api.reset();
        m_held = open(Image().Path().c_str(), O_RDONLY | O_CLOEXEC);
        m_source.emplace(m_held);
        Setting setting = {
            Image().Path(),
            m_zone,
            "UTC",
            DiskClock(0),
            0,
            m_names,
            File(""),
            *m_source,
            diskaccess::WordingOf(m_zone, DiskClock(0)),
            {},
            [this] { return std::make_unique<recordings::Disk>(recordings::OpenSource(Image().Path())); }};
        m_api.emplace(setting, kToken);
        m_server.emplace(
            uint16_t{0}, [this](const diskaccess::view::Request& request) { return m_api->Answer(request); },
            limits);
    }

    ~ViewServer() override {
        m_server.reset();
        m_api.reset();
        close(m_held);
    }

    uint16_t Port() const { return m_server->Port(); }

    Answer Send(const std::string& request) const {
        const Client client(Port());
        client.Send(request);
        return ToAnswer(client.Rest());
    }

    static std::string Head(const std::string& method, const std::string& path,
                            const std::string& more = "") {
        return method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" + more;
    }

    static std::string Trusted() { return std::string("Authorization: Bearer ") + kToken + "\r\n"; }

    Answer Get(const std::string& path) const { return Send(Head("GET", path, Trusted()) + "\r\n"); }

    Answer Post(const std::string& path, const std::string& body) const {
        return Send(
            Head("POST", path, Trusted() + "Content-Length: " + std::to_string(body.size()) + "\r\n") +
            "\r\n" + body);
    }

    std::vector<StreamRecord> Frames(int64_t from, int64_t to, const std::string& more) const {
        const Answer answer =
            Get("/api/frames?from=" + std::to_string(from) + "&to=" + std::to_string(to) + more);
        EXPECT_EQ(answer.status, 200) << answer.body;
        return RecordsOf(answer.body);
    }

    void WaitForExport(int number) const {
        const std::string path = "/api/exports/" + std::to_string(number);
        for (int i = 0; i < 1000 && Get(path).Document().value("state", "") == "running"; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    /// A disk of one channel: ten key frames of a mebibyte a second, for ten seconds.
    void RecordLargeFrames() {
        Start(1, 0x1, 16 * kMebibyte);
        for (int64_t i = 0; i < 100; ++i) {
            Record(At(0) + i * kSecond / 10, 1, 0, kMebibyte);
        }
        Recorder().PowerOff();
    }

    void WaitUntilAllIsRead() const {
        for (int i = 0; i < 1000 && !Get("/api/info").Document().value("complete", false); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

private:
    TimeZone m_zone{"UTC"};
    diskaccess::Names m_names = NamesOf(R"({"channels": {"1": "<door>"}, "event_types": {"0x1": "panic"}})");
    int m_held = -1;
    std::optional<media::SourceIdentity> m_source;
    std::optional<Api> m_api;
    std::optional<HttpServer> m_server;
};

TEST_F(ViewServer, GivesThePageToEverybodyOnThisMachine) {
    const Answer page = Send(Head("GET", "/") + "\r\n");
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("<!doctype html>"), std::string::npos);
    EXPECT_NE(Send(Head("GET", "/worker.js") + "\r\n").head.find("text/javascript"), std::string::npos);
}

TEST_F(ViewServer, GuardsEveryAnswer) {
    const std::vector<Answer> answers = {
        Send(Head("GET", "/") + "\r\n"),
        Get("/api/info"),
        Get("/api/frames?from=" + std::to_string(At(0)) + "&to=" + std::to_string(At(1)) + "&channels=0"),
        Get("/nothing"),
        Get("/api/frames"),
        Send(Head("GET", "/api/info") + "\r\n"),
        Send(Head("OPTIONS", "/api/info", "Origin: http://evil.example\r\n") + "\r\n"),
        Post("/api/exports", std::string(5000, 'x')),
    };
    const std::vector<int> statuses = {200, 200, 200, 404, 400, 401, 401, 413};
    for (size_t i = 0; i < answers.size(); ++i) {
        const std::string& head = answers[i].head;
        EXPECT_EQ(answers[i].status, statuses[i]) << head;
        for (const char* guard :
             {"Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; connect-src "
              "'self'; "
              "img-src 'self' blob: data:; media-src blob:; worker-src 'self'; base-uri 'none'; form-action "
              "'none'; "
              "frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types worker\r\n",
              "Cross-Origin-Resource-Policy: same-origin\r\n", "Cross-Origin-Opener-Policy: same-origin\r\n",
              "X-Content-Type-Options: nosniff\r\n", "Referrer-Policy: no-referrer\r\n",
              "Cache-Control: no-store\r\n"}) {
            EXPECT_NE((head + "\r\n").find(guard), std::string::npos) << head;
        }
        EXPECT_EQ(head.find("Set-Cookie"), std::string::npos) << head;
        EXPECT_EQ(head.find("Access-Control-"), std::string::npos) << head;
    }
}

TEST_F(ViewServer, IsReachedFromThisMachineAlone) {
    EXPECT_TRUE(Client(Port()).Connected());
    EXPECT_FALSE(Client(Port(), INADDR_LOOPBACK + 1).Connected()); // 127.0.0.2
    ifaddrs* all = nullptr;
    ASSERT_EQ(getifaddrs(&all), 0);
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
            sockaddr_in address{};
            std::memcpy(&address, each->ifa_addr, sizeof address);
            const uint32_t host = ntohl(address.sin_addr.s_addr);
            EXPECT_EQ(Client(Port(), host).Connected(), host == INADDR_LOOPBACK) << each->ifa_name;
        }
    }
    freeifaddrs(all);
}

TEST_F(ViewServer, RefusesOthers) {
    EXPECT_EQ(Send(Head("GET", "/api/info") + "\r\n").status, 401);
    EXPECT_EQ(Send(Head("GET", "/api/info", "Authorization: Bearer 1\r\n") + "\r\n").status, 401);
    EXPECT_EQ(Send(Head("GET", "/api/info", Trusted() + "Sec-Fetch-Site: cross-site\r\n") + "\r\n").status,
              403);
    EXPECT_EQ(Send("GET / HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\n\r\n").status, 421);
    EXPECT_EQ(
        Send("GET /api/info HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\n" + Trusted() + "\r\n")
            .status,
        421);
}

TEST_F(ViewServer, KnowsItsPathsAndMethodsAlone) {
    for (const char* path : {"/../../../etc/passwd", "/%2e%2e/etc/passwd", "/page/index.html", "//",
                             "/index.html/", "/api", "/api/", "/api/nothing", "/api/exports/1"}) {
        EXPECT_EQ(Get(path).status, 404) << path;
    }
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "BREW"}) {
        EXPECT_EQ(Send(Head(method, "/", Trusted()) + "\r\n").status, 405) << method;
        EXPECT_EQ(Send(Head(method, "/api/info", Trusted()) + "\r\n").status, 405) << method;
    }
    EXPECT_EQ(Get("/api/exports").status, 405);
}

TEST_F(ViewServer, RefusesQuestionsThatMakeNoSense) {
    for (const char* query :
         {"", "?from=1", "?from=1&to=x&channels=0", "?from=-1&to=5&channels=0", "?from=9&to=5&channels=0",
          "?from=1&to=5", "?from=1&to=5&channels=", "?from=1&to=5&channels=32", "?from=1&to=5&channels=0,,1",
          "?from=1&to=5&channels=0&kind=video", "?from=1&to=5&channels=0&start=here",
          "?from=0&to=20000001&channels=0", "?from=0&to=600000001&channels=0&kind=key",
          "?from=1&to=99999999999999999999&channels=0", "?from=1&to=5&channels=0&video=mpeg",
          "?from=1&to=5&channels=0&video=jpeg", "?from=1&to=5&channels=0&video=jpeg&height=0",
          "?from=1&to=5&channels=0&video=jpeg&height=2161"}) {
        const Answer answer = Get("/api/frames" + std::string(query));
        EXPECT_EQ(answer.status, 400) << query;
        EXPECT_TRUE(answer.Document().contains("error")) << query;
    }
    for (const char* query : {"?from=1&to=5", "?from=1&to=5&width=0", "?from=1&to=5&width=8193"}) {
        EXPECT_EQ(Get("/api/coverage" + std::string(query)).status, 400) << query;
    }
}

TEST_F(ViewServer, SaysWhatTheDiskIs) {
    WaitUntilAllIsRead();
    const Answer answer = Get("/api/info");
    ASSERT_EQ(answer.status, 200) << answer.body;
    const Json info = answer.Document();
    EXPECT_EQ(info["channels"], (Json{0, 1}));
    EXPECT_EQ(info["first"], kBase);
    EXPECT_EQ(info["last"], kBase + 719);
    EXPECT_EQ(info["channel_names"], Json::array({"0", "<door>"}));
    EXPECT_EQ(info["zone"], "UTC");
    EXPECT_EQ(info["zone_offsets"].size(), 1u);
    EXPECT_EQ(info["zone_offsets"][0][1], 0);
}

TEST_F(ViewServer, SaysWhenEachCameraWasRecorded) {
    WaitUntilAllIsRead();
    const std::string whole =
        "/api/coverage?from=" + std::to_string(At(0)) + "&to=" + std::to_string(At(719));
    const Json fine = Get(whole + "&width=719").Document();
    EXPECT_EQ(fine["complete"], true);
    EXPECT_EQ(fine["channels"]["0"], (Json{{kBase, kBase + 599}}));
    EXPECT_EQ(fine["channels"]["1"], (Json{{kBase, kBase + 599}, {kBase + 660, kBase + 719}}));
    const Json coarse = Get(whole + "&width=5").Document(); // 143 seconds a column: the gap of 61 is not seen
    EXPECT_EQ(coarse["channels"]["1"], (Json{{kBase, kBase + 719}}));
    // A minute of silence parts no journeys.
    EXPECT_EQ(fine["journeys"], Json::array({Json::array({kBase, kBase + 719})}));
}

TEST_F(ViewServer, ListsEventsWithAllOfTheirBits) {
    WaitUntilAllIsRead();
    const Json events = Get("/api/events?from=0&to=4294967295000000").Document()["events"];
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["time"], At(30));
    EXPECT_EQ(events[0]["event_types"], "9223372036854775809"); // more than a page's numbers can hold
    EXPECT_EQ(events[0]["event_names"], "panic, 0x8000000000000000");
    EXPECT_EQ(Get("/api/events?from=" + std::to_string(At(31)) + "&to=4294967295000000")
                  .Document()["events"]
                  .size(),
              0u);
}

TEST_F(ViewServer, BeginsEachCameraWithTheKeyFrameBefore) {
    const auto records = Frames(At(13), At(14), "&channels=0,1&kind=all&start=key");
    std::vector<std::string> times;
    for (const StreamRecord& record : records) {
        times.push_back(std::to_string(record.kind) + "/" + std::to_string(record.channel) + "@" +
                        std::to_string((record.time - At(0)) / 1000));
    }
    // The key frames at 10 s, all pictures from there on, and sound from where it is asked for.
    EXPECT_EQ(times,
              (std::vector<std::string>{"1/0@10000", "1/1@10000", "0/0@11000", "0/1@11000", "0/0@12000",
                                        "0/1@12000", "0/0@13000", "0/1@13000", "17/0@13500", "2/0@13500",
                                        "0/0@14000", "0/1@14000", "18/0@14000"}));
    EXPECT_EQ(records[0].payload.size(), 200u + 10 % 7);
    EXPECT_EQ(Json::parse(records[8].payload), (Json{{"codec", "pcm_alaw"}, {"sample_rate", 8000}}));
    const Json end = Json::parse(records.back().payload);
    EXPECT_EQ(end["complete"], true);
    EXPECT_EQ(end["spans"]["0"][0][0], kBase);
}

TEST_F(ViewServer, BeginsExactlyWhereItIsToldTo) {
    const auto records = Frames(At(13), At(14) - 1, "&channels=1&kind=all&start=exact");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].time, At(13));
    EXPECT_EQ(records[0].kind, 0u);
}

TEST_F(ViewServer, GivesKeyFramesAlone) {
    const auto records = Frames(At(100), At(119), "&channels=0&kind=key&start=key");
    std::vector<int64_t> times;
    for (const StreamRecord& record : records) {
        if (record.kind == 1) {
            times.push_back((record.time - At(0)) / kSecond);
            EXPECT_EQ(record.payload.size(), 200u + static_cast<size_t>(times.back() % 7));
        }
    }
    EXPECT_EQ(times, (std::vector<int64_t>{100, 105, 110, 115}));
    EXPECT_EQ(records.size(), 5u);
}

TEST_F(ViewServer, SaysWhichFramesHaveNoPicture) {
    if (!media::StillsSupported()) {
        GTEST_SKIP() << "built without what decodes pictures";
    }
    const auto times = [this](const std::string& more) {
        std::vector<int64_t> seconds;
        for (const StreamRecord& record :
             Frames(At(13) + 1, At(16), "&channels=0&video=jpeg&height=90" + more)) {
            if (record.kind == 3) {
                seconds.push_back((record.time - At(0)) / kSecond);
                EXPECT_TRUE(record.payload.empty()); // the frames of this disk are no video
            }
        }
        return seconds;
    };
    EXPECT_EQ(times("&start=key"), (std::vector<int64_t>{13, 14, 15, 16})); // 13: what stands there at first
    EXPECT_EQ(times("&start=exact"), (std::vector<int64_t>{14, 15, 16}));
    EXPECT_EQ(times("&start=key&kind=key"), (std::vector<int64_t>{10, 15}));
}

TEST_F(ViewServer, GivesSoundAlone) {
    const auto records = Frames(At(0), At(3), "&channels=0&kind=audio&start=exact");
    ASSERT_EQ(records.size(), 5u); // the codec, three frames, the end
    EXPECT_EQ(records[0].kind, 17u);
    EXPECT_EQ(records[1].time, At(0) + 500000);
    EXPECT_EQ(records[1].payload.size(), 320u);
}

TEST_F(ViewServer, TellsOfALossWhereItIs) {
    const RecordedFrame& lost = Recorded()[300]; // channel 0 at 100 s
    ASSERT_EQ(lost.frame.pts, At(100));
    const std::vector<uint8_t> nothing(224, 0xEE);
    Image().Write(HeadOf(lost), nothing.data(), nothing.size());
    Serve();
    const auto records = Frames(At(99), At(103), "&channels=0&kind=all&start=key");
    const auto loss = std::find_if(records.begin(), records.end(),
                                   [](const StreamRecord& each) { return each.kind == 16; });
    ASSERT_NE(loss, records.end());
    const Json document = Json::parse(loss->payload);
    EXPECT_FALSE(document["text"].get<std::string>().empty());
    EXPECT_LE(document["before"].get<int64_t>(), At(100));
    EXPECT_GE(document["after"].get<int64_t>(), At(100));
}

TEST_F(ViewServer, RefusesBodiesThatAreTooLong) {
    EXPECT_EQ(Post("/api/exports", std::string(5000, 'x')).status, 413);
    EXPECT_EQ(Post("/api/exports", "{").status, 400);
    EXPECT_EQ(Post("/api/exports", "[]").status, 400);
    EXPECT_EQ(Post("/api/exports", R"({"from":5,"to":4,"channels":"0"})").status, 400);
    EXPECT_EQ(Post("/api/exports", R"({"from":-5,"to":4,"channels":"0"})").status, 400);
    EXPECT_EQ(Post("/api/exports", R"({"from":1,"to":4,"channels":7})").status, 400);
}

TEST_F(ViewServer, ServesWhileSlowClientsWait) {
    std::vector<std::unique_ptr<Client>> slow;
    for (int i = 0; i < 20; ++i) {
        slow.push_back(std::make_unique<Client>(Port()));
        ASSERT_TRUE(slow.back()->Connected());
        slow.back()->Send("GET /api/info HTTP/1.1\r\nHo");
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Get("/api/info").status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(ViewServer, HasFewConnectionsAtATime) {
    std::vector<std::unique_ptr<Client>> many;
    for (int i = 0; i < 40; ++i) {
        many.push_back(std::make_unique<Client>(Port()));
        many.back()->Send(Head("GET", "/api/info", Trusted()));
    }
    const Client late(Port());
    late.Send(Head("GET", "/api/info", Trusted()) + "\r\n");
    EXPECT_EQ(late.Rest(), "") << "more than 32 are served";
    many.clear();
    int status = 0;
    for (int i = 0; i < 100 && status != 200; ++i) { // until the server has seen that they are gone
        status = Get("/api/info").status;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(status, 200);
}

TEST_F(ViewServer, NamesTheFileOfAnExportItself) {
    WaitUntilAllIsRead();
    const auto nameOfExport = [this] {
        const Answer answer = Post(
            "/api/exports", R"({"from":)" + std::to_string(kBase) + R"(,"to":)" + std::to_string(kBase + 1) +
                                R"(,"channels":"0","file":"/tmp/x.mkv","name":"../x"})");
        EXPECT_EQ(answer.status, 202) << answer.body;
        return answer.Document().value("file", "");
    };
    const std::string name = File("") + "/recording_2026-11-20_14-00-00_2s";
    EXPECT_EQ(nameOfExport(), name + ".mkv");
    WaitForExport(1);
    std::ofstream(name + ".mkv")
        << "of another camera"; // frames of this disk are no video: nothing was exported
    EXPECT_EQ(nameOfExport(), name + "_2.mkv");
    WaitForExport(2);
    std::ofstream(name + "_2.mkv.json") << "of a file that was moved away";
    EXPECT_EQ(nameOfExport(), name + "_3.mkv");
}

TEST_F(ViewServer, KeepsItsMemoryWhateverIsSent) {
    WaitUntilAllIsRead();
    const std::string line(16 << 20, 'x');
    const std::string header = "X: " + std::string(1000, 'x') + "\r\n";
    const std::string piece(10000, 'x');
    const auto sendAgain = [](const Client& client, const std::string& text, int times) {
        for (int i = 0; i < times && client.Send(text); ++i) {
        }
    };
    const int64_t before = ResidentKib();
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<Client>(Port()));
        const Client& client = *clients.back();
        if (i % 4 == 0) {
            client.Send("GET /");
            client.Send(line);
        } else if (i % 4 == 1) {
            client.Send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n");
            sendAgain(client, header, 16000);
        } else if (i % 4 == 2) {
            client.Send(Head("POST", "/api/exports", Trusted() + "Content-Length: 1000000000\r\n") + "\r\n");
            sendAgain(client, piece, 1600);
        } else { // and never reads
            client.Send(Head("GET", "/api/info", Trusted()) + "\r\n");
        }
    }
    EXPECT_LT(ResidentKib() - before, 32 << 10); // of 192 MiB sent
    EXPECT_EQ(Get("/api/info").status, 200);
}

TEST_F(ViewServer, EndsRequestsWithoutEnd) {
    const Client client(Port());
    client.Send("GET / HTTP/1.1\r\n");
    const std::string line = "X-Long: " + std::string(8000, 'x') + "\r\n";
    int sent = 0;
    while (sent < 1000 && client.Send(line)) {
        ++sent;
    }
    EXPECT_LT(sent, 1000) << "eight megabytes of headers were taken";
}

TEST_F(ViewServer, SendsNoMoreThanTheMostBytesOfAnAnswer) {
    RecordLargeFrames();
    Serve();
    const auto records = Frames(At(0), At(10), "&channels=0&kind=all&start=key");
    ASSERT_EQ(records.size(), 64u + 1); // 64 MiB, and the end
    EXPECT_EQ(records[63].payload.size(), kMebibyte);
    EXPECT_EQ(records[63].time, At(6) + 300000);
    EXPECT_EQ(records[64].kind, 18u);
    EXPECT_EQ(records[64].time, At(6) + 300000); // what lies after it is asked for again
    EXPECT_EQ(Json::parse(records[64].payload)["complete"], false);
    const auto rest = Frames(At(6) + 300001, At(10), "&channels=0&kind=all&start=exact");
    ASSERT_EQ(rest.size(), 36u + 1);
    EXPECT_EQ(rest[0].time, At(6) + 400000);
    EXPECT_EQ(Json::parse(rest[36].payload)["complete"], true);
}

TEST_F(ViewServer, EndsConnectionsThatAreSilent) {
    Serve({2});
    const auto begin = std::chrono::steady_clock::now();
    const Client silent(Port());
    silent.Send("GET /api/info HTTP/1.1\r\nHo");
    const Client slow(Port()); // takes longer than that for its request, but never pauses for as long
    for (const char letter : Head("GET", "/api/info", Trusted()).substr(0, 30)) {
        ASSERT_TRUE(slow.Send(std::string(1, letter)));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    slow.Send(Head("GET", "/api/info", Trusted()).substr(30) + "\r\n");
    EXPECT_EQ(ToAnswer(slow.Rest()).status, 200);
    EXPECT_EQ(silent.Rest(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)); // else the client gave up
}

TEST_F(ViewServer, EndsConnectionsThatTakeNothing) {
    RecordLargeFrames();
    Serve({1});
    WaitUntilAllIsRead();
    const int64_t before = ResidentKib();
    const Client client(Port());
    client.Send(
        Head("GET",
             "/api/frames?from=" + std::to_string(At(0)) + "&to=" + std::to_string(At(10)) + "&channels=0",
             Trusted()) +
        "\r\n");
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_LT(ResidentKib() - before, 32 << 10);     // of 64 MiB asked for
    EXPECT_LT(client.Rest().size(), 32 * kMebibyte); // what was on its way
}

TEST_F(ViewServer, EndsWhileClientsAreConnected) {
    const Client idle(Port());
    idle.Send("GET /api/frames");
    const auto begin = std::chrono::steady_clock::now();
    Serve(); // the server before this one ends
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(Get("/api/info").status, 200);
}

TEST_F(ViewServer, GoesOnWhenTheDiskIsGone) {
    WaitUntilAllIsRead();
    ASSERT_EQ(truncate(Image().Path().c_str(), 0), 0);
    const Answer answer =
        Get("/api/frames?from=" + std::to_string(At(0)) + "&to=" + std::to_string(At(9)) + "&channels=0");
    EXPECT_TRUE(answer.status == 500 || answer.status == 200) << answer.status;
    EXPECT_EQ(Get("/api/coverage?from=0&to=4294967295000000&width=100").status, 200);
}

} // namespace
