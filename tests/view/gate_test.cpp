// Who may ask the viewer's server.

#include "view/gate.h"

#include <gtest/gtest.h>

namespace {

using diskaccess::view::Admission;
using diskaccess::view::Caller;
using diskaccess::view::Gate;

constexpr const char* kToken = "0123456789abcdef0123456789abcdef";

Caller Trusted() {
    return {"127.0.0.1:8080", std::string("Bearer ") + kToken, "same-origin"};
}

Admission Api(const Caller& caller) {
    return Gate(kToken).ForApi(caller);
}

TEST(Gate, LetsInWhoHasTheToken) {
    EXPECT_EQ(Api(Trusted()), Admission::Granted);
}

TEST(Gate, TakesEveryNameAndPortOfThisMachine) {
    for (const char* host :
         {"127.0.0.1", "127.0.0.1:1", "localhost", "localhost:65535", "[::1]", "[::1]:8080"}) {
        Caller caller = Trusted();
        caller.host = host;
        EXPECT_EQ(Api(caller), Admission::Granted) << host;
        EXPECT_EQ(Gate(kToken).ForPage(caller), Admission::Granted) << host;
    }
}

TEST(Gate, RefusesOtherNames) {
    for (const char* host :
         {"", "evil.example", "evil.example:80", "127.0.0.1.evil.example", "127.0.0.2", "localhost.:80",
          "[::1].evil.example", "127.0.0.1:80:80x", "evil.example:127.0.0.1"}) {
        Caller caller = Trusted();
        caller.host = host;
        EXPECT_EQ(Api(caller), Admission::OtherHost) << host;
        EXPECT_EQ(Gate(kToken).ForPage(caller), Admission::OtherHost) << host;
    }
    Caller nameless = Trusted();
    nameless.host.reset();
    EXPECT_EQ(Api(nameless), Admission::OtherHost);
}

TEST(Gate, RefusesPagesOfOtherSites) {
    for (const char* site : {"cross-site", "same-site", "none", ""}) {
        Caller caller = Trusted();
        caller.fetchSite = site;
        EXPECT_EQ(Api(caller), Admission::OtherSite) << site;
    }
}

TEST(Gate, TakesProgramsThatAreNoBrowsers) {
    Caller caller = Trusted();
    caller.fetchSite.reset();
    EXPECT_EQ(Api(caller), Admission::Granted);
}

TEST(Gate, RefusesWithoutTheToken) {
    for (const char* given :
         {"", "Bearer ", "Bearer 0123456789abcdef0123456789abcdee", "0123456789abcdef0123456789abcdef",
          "Bearer 0123456789abcdef0123456789abcdef0", "Bearer 0123456789ABCDEF0123456789ABCDEF",
          "Basic 0123456789abcdef0123456789abcdef"}) {
        Caller caller = Trusted();
        caller.authorization = given;
        EXPECT_EQ(Api(caller), Admission::NoToken) << given;
    }
    Caller silent = Trusted();
    silent.authorization.reset();
    EXPECT_EQ(Api(silent), Admission::NoToken);
    EXPECT_EQ(Gate(kToken).ForPage(silent), Admission::Granted)
        << "the page itself tells nothing of the disk";
}

TEST(Gate, TokensAre128BitsAndDiffer) {
    const std::string one = diskaccess::view::MakeToken();
    const std::string other = diskaccess::view::MakeToken();
    EXPECT_EQ(one.size(), 32u);
    EXPECT_EQ(one.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(one, other);
}

} // namespace
