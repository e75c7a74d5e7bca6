// Tests that end in every way that a test can. check_runner.sh looks at what is told of them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

TEST(Subject, Passes) {}

TEST(Subject, Fails) {
    FAIL();
}

TEST(Subject, IsSkipped) {
    GTEST_SKIP();
}

TEST(Subject, Crashes) {
    std::raise(SIGKILL);
}

TEST(Subject, EndsTheProgram) {
    _exit(0);
}

TEST(Subject, Hangs) {
    while (true) {
        pause();
    }
}

TEST(Subject, PassesAtTheEnd) {}

class SubjectAfter : public ::testing::Test {
protected:
    static void TearDownTestSuite() {
        if (std::getenv("SUBJECT_FAILS_AFTERWARDS") != nullptr) {
            _exit(3);
        }
    }
};

TEST_F(SubjectAfter, Passes) {}

TEST(SubjectLast, Passes) {}
