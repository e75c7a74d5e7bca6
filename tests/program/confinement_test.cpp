// What a command can no longer do once it is confined: each is tried, by a child process.

#include "cli/confinement.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "support/temp_dir.h"

namespace {

using namespace diskaccess;

class Confined : public ::testing::Test {
protected:
    Confined() {
        std::ofstream(Path("source.001")) << "source";
        std::ofstream(Path("other")) << "other";
        std::filesystem::create_directory(Path("out"));
        std::filesystem::create_directory(Path("elsewhere"));
    }

    std::string Path(const std::string& name) const { return m_directory.File(name); }

    Needs ForExport() const { return {WithPartsBeside(Path("source.001")), {Path("out")}, false}; }

    /// Confines a child process and has it try something there.
    /// @return 0 when that worked, else its errno; 255 where the kernel cannot confine
    static int Try(const Needs& needs, const std::function<int()>& attempt) {
        const pid_t child = fork();
        if (child == 0) {
            const Confinement confinement = Confine(needs);
            if (!confinement.files || !confinement.calls) {
                _exit(255);
            }
            errno = 0;
            _exit(attempt() >= 0 ? 0 : errno);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status);
    }
    int Try(const std::function<int()>& attempt) const { return Try(ForExport(), attempt); }
    int Open(const std::string& path, int flags) const {
        return Try([&] { return open(path.c_str(), flags, 0600); });
    }

    void SetUp() override {
        if (Try([] { return 0; }) == 255) {
            GTEST_SKIP() << "this kernel has no Landlock, or lets nobody filter system calls";
        }
    }

    test_support::TempDir m_directory;
};

TEST_F(Confined, TheSourceCanBeReadAndNotWritten) {
    EXPECT_EQ(Open(Path("source.001"), O_RDONLY), 0);
    EXPECT_EQ(Open(Path("source.001"), O_WRONLY), EACCES);
    EXPECT_EQ(Open(Path("source.001"), O_RDWR), EACCES);
    EXPECT_EQ(Try([this] { return truncate(Path("source.001").c_str(), 0); }), EACCES);
    EXPECT_EQ(Try([this] { return unlink(Path("source.001").c_str()); }), EACCES);
    EXPECT_EQ(Try([this] { return rename(Path("source.001").c_str(), Path("x").c_str()); }), EACCES);
}

TEST_F(Confined, TheOtherPartsOfAnImageCanBeReadToo) {
    std::ofstream(Path("source.002")) << "more";
    EXPECT_EQ(Open(Path("source.002"), O_RDONLY), 0);
    EXPECT_EQ(Open(Path("source.002"), O_WRONLY), EACCES);
}

TEST_F(Confined, OtherFilesAreOutOfReach) {
    EXPECT_EQ(Open(Path("other"), O_RDONLY), EACCES);
    EXPECT_EQ(Open(Path("other"), O_WRONLY), EACCES);
    EXPECT_EQ(Open(Path("new"), O_WRONLY | O_CREAT), EACCES);
    EXPECT_EQ(Open("/etc/passwd", O_RDONLY), EACCES);
    EXPECT_EQ(Open("/usr/bin/env", O_WRONLY), EACCES);
}

TEST_F(Confined, OutputsAreMadeInTheirFolder) {
    EXPECT_EQ(Open(Path("out/new"), O_RDWR | O_CREAT | O_EXCL), 0);
    EXPECT_EQ(Try([this] { return rename(Path("out/new").c_str(), Path("out/name").c_str()); }), 0);
    EXPECT_EQ(Try([this] { return truncate(Path("out/name").c_str(), 0); }), 0);
    EXPECT_EQ(Try([this] { return link(Path("out/name").c_str(), Path("out/second").c_str()); }), 0);
    EXPECT_EQ(Try([this] { return unlink(Path("out/second").c_str()); }), 0);
    EXPECT_EQ(Open(Path("out"), O_RDONLY | O_DIRECTORY), 0); // to have the kernel write it to the disk
    EXPECT_NE(Try([this] { return rename(Path("out/name").c_str(), Path("elsewhere/name").c_str()); }), 0);
    EXPECT_EQ(Try([this] { return symlink("x", Path("out/link").c_str()); }), EACCES);
    EXPECT_EQ(Try([this] { return mkfifo(Path("out/fifo").c_str(), 0600); }), EACCES);
    EXPECT_EQ(Try([this] { return mkdir(Path("out/folder").c_str(), 0700); }), EACCES);
}

TEST_F(Confined, WhatTheSystemNeedsCanBeRead) {
    EXPECT_EQ(Open("/usr", O_RDONLY | O_DIRECTORY), 0);
    EXPECT_EQ(Open("/sys", O_RDONLY | O_DIRECTORY), 0);
    EXPECT_EQ(Open("/dev/urandom", O_RDONLY), 0);
}

TEST_F(Confined, NoProgramIsStarted) {
    EXPECT_EQ(Try([] { return execl("/bin/true", "true", nullptr); }), EPERM);
    EXPECT_EQ(
        Try([] { return static_cast<int>(syscall(SYS_execveat, -1, "/bin/true", nullptr, nullptr, 0)); }),
        EPERM);
}

TEST_F(Confined, NothingIsSentAnywhere) {
    EXPECT_EQ(Try([] { return socket(AF_INET, SOCK_STREAM, 0); }), EPERM);
    EXPECT_EQ(Try([] { return socket(AF_UNIX, SOCK_STREAM, 0); }), EPERM);
    int ends[2];
    EXPECT_EQ(Try([&ends] { return socketpair(AF_UNIX, SOCK_STREAM, 0, ends); }), EPERM);
    Needs server;
    server.network = true;
    EXPECT_EQ(Try(server, [] { return socket(AF_INET, SOCK_STREAM, 0); }), 0);
    EXPECT_EQ(Try(server, [] { return execl("/bin/true", "true", nullptr); }), EPERM);
}

TEST_F(Confined, TheSystemIsLeftAlone) {
    EXPECT_EQ(Try([this] { return mount("none", Path("out").c_str(), "tmpfs", 0, nullptr); }), EPERM);
    EXPECT_EQ(Try([] { return chroot("/"); }), EPERM);
    EXPECT_EQ(Try([] { return static_cast<int>(syscall(SYS_bpf, 0, nullptr, 0)); }), EPERM);
    EXPECT_EQ(Try([] { return static_cast<int>(syscall(SYS_io_uring_setup, 1, nullptr)); }), EPERM);
    EXPECT_EQ(Try([] { return static_cast<int>(syscall(SYS_keyctl, 0, 0, 0, 0, 0)); }), EPERM);
#if !defined(DISKACCESS_LOOKS_FOR_LEAKS)
    EXPECT_EQ(Try([] { return static_cast<int>(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr)); }), EPERM);
#endif
}

/// A read-only descriptor does not keep root from these.
TEST_F(Confined, NoCommandsAreSentToDevices) {
    const int file = open(Path("source.001").c_str(), O_RDONLY);
    EXPECT_EQ(Try([file] { return ioctl(file, SG_IO, nullptr); }), EPERM);
    EXPECT_EQ(Try([file] { return ioctl(file, 0x5412, "x"); }), EPERM);     // TIOCSTI
    EXPECT_EQ(Try([file] { return ioctl(file, 0x1277, nullptr); }), EPERM); // BLKDISCARD
    EXPECT_EQ(Try([file] { return ioctl(file, 0x80081272, nullptr); }),
              ENOTTY); // BLKGETSIZE64, which is asked for
    close(file);
}

TEST_F(Confined, ThreadsStartAndAreConfinedToo) {
    const auto attempt = [this] {
        int error = 0;
        std::thread([&] { error = open(Path("other").c_str(), O_RDONLY) < 0 ? errno : 0; }).join();
        errno = error;
        return error == 0 ? 0 : -1;
    };
    EXPECT_EQ(Try(attempt), EACCES);
    EXPECT_EQ(Try([] {
                  std::thread([] {}).join();
                  return 0;
              }),
              0);
}

TEST_F(Confined, IsSaidInASentence) {
    EXPECT_EQ((Confinement{true, true}.Text()), "the program reads no file but the source and the system's, "
                                                "and writes none but its outputs; it starts no "
                                                "program, and sends nothing anywhere");
    EXPECT_EQ((Confinement{true, true, true}.Text()), "the program reads no file but the source and the "
                                                      "system's, and writes none but its outputs; it starts "
                                                      "no program");
    EXPECT_EQ((Confinement{false, false}.Text()), "the program is not kept from other files: this kernel has "
                                                  "no Landlock; it is not kept from system calls "
                                                  "that it does not need");
}

TEST(PartsBeside, AreThoseOfTheSameStem) {
    const test_support::TempDir directory;
    for (const char* const name : {"a.E01", "a.E02", "ab.E01", "a", "a.E01.json"}) {
        std::ofstream(directory.File(name)) << name;
    }
    std::vector<std::string> parts = WithPartsBeside(directory.File("a.E01"));
    std::sort(parts.begin(), parts.end());
    EXPECT_EQ(parts, (std::vector<std::string>{directory.File("a"), directory.File("a.E01"),
                                               directory.File("a.E02")}));
    EXPECT_EQ(WithPartsBeside("/dev/null"), std::vector<std::string>{"/dev/null"});
    EXPECT_EQ(WithPartsBeside(directory.File("none")), std::vector<std::string>{directory.File("none")});
}

} // namespace
