// Exports onto names that lead to the disk they read, or to what is no file: nothing is written there, and the disk
// stays as it was.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "program/one_camera.h"
#include "support/files.h"
#include "support/loop_device.h"
#include "support/run_program.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using namespace sample_recorder;

/// Parameter sets and a slice's beginning as a camera sends them: H.264, baseline, 64 x 48 pixels.
constexpr uint8_t kKeyFrameStart[] = {0,    0, 0, 1,    0x67, 0x42, 0x00, 0x0A, 0xDC, 0x47,
                                      0x90, 0, 0, 0,    1,    0x68, 0xCE, 0x38, 0x80, 0,
                                      0,    0, 1, 0x65, 0x88, 0x84, 0x00, 0x10};

/// A file's bytes and times, to tell whether anything was done to it.
struct Untouched {
    explicit Untouched(const std::string& path) : bytes(ReadFile(path)) {
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    }

    void Check(const std::string& path) const {
        struct stat now = {};
        ASSERT_EQ(stat(path.c_str(), &now), 0) << path;
        EXPECT_EQ(now.st_ino, status.st_ino) << path;
        EXPECT_EQ(now.st_mtim.tv_sec, status.st_mtim.tv_sec) << path;
        EXPECT_EQ(now.st_mtim.tv_nsec, status.st_mtim.tv_nsec) << path;
        EXPECT_EQ(now.st_ctim.tv_sec, status.st_ctim.tv_sec) << path;
        EXPECT_EQ(now.st_ctim.tv_nsec, status.st_ctim.tv_nsec) << path;
        EXPECT_TRUE(ReadFile(path) == bytes) << path;
    }

    std::string bytes;
    struct stat status = {};
};

/// One camera with audio, recorded for ten seconds.
class SourceSafety : public OneCamera {
protected:
    void SetUp() override {
        OneCameraRecording recording;
        recording.audio = true;
        recording.properties.AType = 1;
        recording.properties.Sample = 8000;
        recording.alter = [](Frame& frame) {
            if (frame.type == kVideoI) {
                std::copy(std::begin(kKeyFrameStart), std::end(kKeyFrameStart), frame.payload.begin());
            }
        };
        Record(recording);
    }

    /// Gives the disk another name.
    std::string NameDisk(const std::string& name) {
        fs::create_directories(fs::path(File(name)).parent_path());
        fs::rename(File("disk"), File(name));
        return File(name);
    }

    ProgramResult Export(const std::string& source, const std::string& output,
                         std::vector<std::string> options = {}, const ProgramSetting& setting = {}) {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "export", source, "--utc", "-o", output});
        return RunProgram(options, setting);
    }

    /// What the test's folder holds.
    std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(File(""))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Expects that an export is refused with one line before anything is read, and leaves everything as it is;
    /// with --force or without.
    void ExpectRefused(const std::string& source, const std::string& output, const std::string& line,
                       const std::vector<std::string>& options = {}) {
        const std::vector<std::string> names = Names();
        for (const bool force : {false, true}) {
            // A channel that was never recorded: nothing would be written, but it is refused before that is known.
            for (const bool nothing : {false, true}) {
                std::vector<std::string> all = options;
                if (force) {
                    all.emplace_back("--force");
                }
                if (nothing) {
                    all.insert(all.end(), {"--from", "2027-01-01"});
                }
                const ProgramResult result = Export(source, output, all);
                EXPECT_EQ(result.exitCode, 1) << output;
                EXPECT_EQ(result.out, "") << output;
                EXPECT_EQ(result.err, "diskaccess: " + line + "\n") << output << (force ? " --force" : "");
                EXPECT_EQ(Names(), names) << output;
            }
        }
    }

    bool MakeNode(const std::string& name, mode_t kind, dev_t device) {
        return mknod(File(name).c_str(), kind | 0600, device) == 0;
    }

    /// A node of the test's own for a block device.
    bool MakeNodeOf(const std::string& device, const std::string& name) {
        struct stat status = {};
        return stat(device.c_str(), &status) == 0 && MakeNode(name, S_IFBLK, status.st_rdev);
    }

    static std::string IsSource(const std::string& name) {
        return name + ": is the source, or what the source is stored in, and is never written; give another "
                      "--output";
    }

    static std::string IsNoFile(const std::string& name, const std::string& kind) {
        return name + ": is " + kind + ", and only files are replaced; give another --output";
    }
};

// ---- the source by its names

TEST_F(SourceSafety, AnExportMakesWhatItSays) {
    const Untouched disk(File("disk"));
    const ProgramResult result = Export(File("disk"), File("out.mkv"));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Names(), (std::vector<std::string>{"disk", "out.mkv", "out.mkv.json"}));
    EXPECT_EQ(Export(File("disk"), File("raw"), {"--raw"}).exitCode, 0);
    EXPECT_EQ(Names(), (std::vector<std::string>{"disk", "out.mkv", "out.mkv.json", "raw-ch0.alaw",
                                                 "raw-ch0.h264", "raw.json"}));
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, TheSourceItselfIsRefused) {
    const Untouched disk(File("disk"));
    ExpectRefused(File("disk"), File("disk"), IsSource(File("disk")));
    ExpectRefused(File("disk"), File("") + "./disk", IsSource(File("") + "./disk"));
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, ItIsRefusedByARelativeName) {
    const Untouched disk(File("disk"));
    const ProgramResult result = RunProgram(
        {"sh", "-c",
         "cd '" + File("") + "' && " DISKACCESS_PROGRAM " export '" + File("disk") + "' -o disk --force"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + IsSource("disk") + "\n");
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, ItIsRefusedByItsLinks) {
    fs::create_symlink("disk", File("link"));
    fs::create_hard_link(File("disk"), File("other"));
    fs::create_directory_symlink(".", File("folder"));
    const Untouched disk(File("disk"));
    for (const char* const name : {"link", "other", "folder/disk", "folder/link"}) {
        ExpectRefused(File("disk"), File(name), IsSource(File(name)));
        ExpectRefused(File(name), File("disk"), IsSource(File("disk")));
    }
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, ItIsRefusedByItsDescriptor) {
    const Untouched disk(File("disk"));
    for (const std::string name : {"/proc/self/fd/9", "/dev/fd/9"}) {
        for (const std::string& arguments :
             {"'" + File("disk") + "' -o " + name, name + " -o '" + File("disk") + "'"}) {
            const ProgramResult result = RunProgram(
                {"bash", "-c",
                 "exec 9<'" + File("disk") + "'; exec " DISKACCESS_PROGRAM " export --force " + arguments});
            EXPECT_EQ(result.exitCode, 1);
            const bool asOutput = arguments.back() == '9';
            EXPECT_EQ(result.err, "diskaccess: " + IsSource(asOutput ? name : File("disk")) + "\n");
        }
    }
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, ItIsRefusedAsAManifestAndAsAStream) {
    fs::create_hard_link(File("disk"), File("a.mkv.json"));
    fs::create_hard_link(File("disk"), File("b.json"));
    fs::create_hard_link(File("disk"), File("c-ch0.h264"));
    fs::create_hard_link(File("disk"), File("d-ch0.alaw"));
    fs::create_hard_link(File("disk"), File("e-ch31.video"));
    fs::create_hard_link(File("disk"), File("f-ch0.adpcm_g726"));
    const Untouched disk(File("disk"));
    ExpectRefused(File("disk"), File("a.mkv"), IsSource(File("a.mkv.json")));
    ExpectRefused(File("disk"), File("b"), IsSource(File("b.json")), {"--raw"});
    ExpectRefused(File("disk"), File("c"), IsSource(File("c-ch0.h264")), {"--raw"});
    ExpectRefused(File("disk"), File("d"), IsSource(File("d-ch0.alaw")), {"--raw"});
    ExpectRefused(File("disk"), File("e"), IsSource(File("e-ch31.video")), {"--raw"});
    ExpectRefused(File("disk"), File("f"), IsSource(File("f-ch0.adpcm_g726")),
                  {"--raw", "--audio", "adpcm_g726:8000"});
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, StreamsThatAreNotMadeMayBearAnyName) {
    fs::create_hard_link(File("disk"), File("a-ch1.h264"));
    fs::create_directory(File("a-ch2.h264"));
    const Untouched disk(File("disk"));
    EXPECT_EQ(Export(File("disk"), File("a"), {"--raw", "--channel", "0", "--force"}).exitCode, 0);
    disk.Check(File("disk"));
}

TEST_F(SourceSafety, ASourceNamedAsAHalfWrittenExportStays) {
    const std::string source = NameDisk("disk.mkv.part");
    const Untouched disk(source);
    const ProgramResult result = Export(source, File("disk.mkv"));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    disk.Check(source);
    EXPECT_EQ(Names(), (std::vector<std::string>{"disk.mkv", "disk.mkv.json", "disk.mkv.part"}));
}

TEST_F(SourceSafety, OtherFilesNamedAsHalfWrittenExportsStay) {
    for (const char* const name : {"out.mkv.part", "out.mkv.json.part"}) {
        std::ofstream(File(name)) << "precious";
    }
    EXPECT_EQ(Export(File("disk"), File("out.mkv")).exitCode, 0);
    EXPECT_EQ(ReadFile(File("out.mkv.part")), "precious");
    EXPECT_EQ(ReadFile(File("out.mkv.json.part")), "precious");
}

// ---- what is no file

TEST_F(SourceSafety, OnlyFilesAreReplaced) {
    fs::create_directory(File("folder"));
    ASSERT_EQ(mkfifo(File("fifo").c_str(), 0600), 0);
    fs::create_symlink("nowhere", File("dangling"));
    std::ofstream(File("precious")) << "precious";
    fs::create_symlink("precious", File("link"));
    fs::create_symlink("/proc/self/fd/1", File("stdout"));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(File("socket").size(), sizeof address.sun_path);
    File("socket").copy(address.sun_path, sizeof address.sun_path);
    ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(socket);

    const std::pair<std::string, const char*> kinds[] = {
        {File("folder"), "a folder"},          {File("fifo"), "a FIFO"},
        {File("socket"), "a socket"},          {File("dangling"), "a symbolic link"},
        {File("link"), "a symbolic link"},     {File("stdout"), "a symbolic link"},
        {"/proc/self/fd/2", "a symbolic link"}};
    for (const auto& [name, kind] : kinds) {
        ExpectRefused(File("disk"), name, IsNoFile(name, kind));
    }
    EXPECT_EQ(ReadFile(File("precious")), "precious");
}

TEST_F(SourceSafety, DevicesAreNotReplaced) {
    // A node of the test's own: a program that went wrong here would do away with the machine's.
    if (!MakeNode("null", S_IFCHR, makedev(1, 3))) {
        GTEST_SKIP() << "this machine makes no device nodes";
    }
    ExpectRefused(File("disk"), File("null"), IsNoFile(File("null"), "a device"));
}

TEST_F(SourceSafety, NeitherAreManifestsAndStreamsThatAreNoFiles) {
    fs::create_directory(File("a.json"));
    ASSERT_EQ(mkfifo(File("b-ch0.h264").c_str(), 0600), 0);
    fs::create_symlink("disk.none", File("c-ch0.s16le"));
    fs::create_directory(File("d-ch3.audio"));
    ExpectRefused(File("disk"), File("a"), IsNoFile(File("a.json"), "a folder"));
    ExpectRefused(File("disk"), File("a"), IsNoFile(File("a.json"), "a folder"), {"--raw"});
    ExpectRefused(File("disk"), File("b"), IsNoFile(File("b-ch0.h264"), "a FIFO"), {"--raw"});
    ExpectRefused(File("disk"), File("c"), IsNoFile(File("c-ch0.s16le"), "a symbolic link"), {"--raw"});
    ExpectRefused(File("disk"), File("d"), IsNoFile(File("d-ch3.audio"), "a folder"), {"--raw"});
}

TEST_F(SourceSafety, NamesOfFoldersAreWrongUse) {
    for (const std::string& name : {File("new/"), File("disk/")}) {
        for (const char* const option : {"--force", "--raw"}) {
            const ProgramResult result = Export(File("disk"), name, {option});
            EXPECT_EQ(result.exitCode, 2) << name;
            EXPECT_EQ(result.err, "diskaccess: --output: '" + name + "' names no file; give a file's name\n");
        }
    }
    EXPECT_EQ(Names(), std::vector<std::string>{"disk"});
}

TEST_F(SourceSafety, AFolderThatIsNotThereIsSaidAtOnce) {
    ExpectRefused(File("disk"), File("none/out.mkv"),
                  File("none/out.mkv") +
                      ": cannot be made: No such file or directory; give another --output");
    ExpectRefused(File("disk"), File("disk/out.mkv"),
                  File("disk/out.mkv") + ": cannot be made: Not a directory; give another --output");
    const std::string tooLong =
        File(std::string(252, 'x')); // with the manifest's ending, more than 255 bytes
    ExpectRefused(File("disk"), tooLong,
                  tooLong + ".json: cannot be made: File name too long; give another --output");
}

TEST_F(SourceSafety, ALongNameWorks) {
    const std::string name = File(std::string(250, 'x'));
    EXPECT_EQ(Export(File("disk"), name).exitCode, 0);
    EXPECT_GT(fs::file_size(name), 0u);
    EXPECT_GT(fs::file_size(name + ".json"), 0u);
}

TEST_F(SourceSafety, AManifestThatIsThereIsSaidBeforeTheExport) {
    std::ofstream(File("out.mkv.json")) << "precious";
    const ProgramResult result = Export(File("disk"), File("out.mkv"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + File("out.mkv.json") +
                              ": exists already; give another --output, or --force to replace it\n");
    EXPECT_EQ(Names(), (std::vector<std::string>{"disk", "out.mkv.json"}));
    EXPECT_EQ(ReadFile(File("out.mkv.json")), "precious");
}

// ---- what is printed

TEST_F(SourceSafety, NothingIsPrintedIntoTheSource) {
    const Untouched disk(File("disk"));
    const std::string source = "'" + File("disk") + "'";
    const std::string line = "diskaccess: " + File("disk") +
                             ": standard output leads into it, and it is never written; send the output "
                             "elsewhere\n";
    const std::string commands[] = {"info", "list", "play", "export --raw -o '" + File("out") + "'"};
    for (const std::string& command : commands) {
        const ProgramResult appended =
            RunProgram({"sh", "-c", DISKACCESS_PROGRAM " " + command + " " + source + " >>" + source});
        EXPECT_EQ(appended.exitCode, 1) << command;
        EXPECT_EQ(appended.err, line) << command;
        const ProgramResult complaints =
            RunProgram({"sh", "-c", DISKACCESS_PROGRAM " " + command + " " + source + " 2>>" + source});
        EXPECT_EQ(complaints.exitCode, 1) << command;
        EXPECT_EQ(complaints.out, "diskaccess: " + File("disk") +
                                      ": standard error leads into it, and it is never written; send the "
                                      "output elsewhere\n");
        const ProgramResult both = RunProgram(
            {"sh", "-c", DISKACCESS_PROGRAM " " + command + " " + source + " 1<>" + source + " 2>&1"});
        EXPECT_EQ(both.exitCode, 1) << command;
    }
    disk.Check(File("disk"));
    EXPECT_EQ(Names(), std::vector<std::string>{"disk"});
}

/// A pipe that nobody writes to would keep the program waiting.
TEST_F(SourceSafety, APipeAsSourceIsRefusedAtOnce) {
    ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
    const std::vector<std::vector<std::string>> commands = {
        {"list"}, {"info"}, {"dump"}, {"export", "-o", File("out")}};
    for (std::vector<std::string> command : commands) {
        command.insert(command.begin() + 1, File("pipe"));
        command.insert(command.begin(), {"timeout", "20", DISKACCESS_PROGRAM});
        const ProgramResult result = RunProgram(command);
        EXPECT_EQ(result.exitCode, 1) << command[3];
        EXPECT_NE(result.err.find("is neither a block device nor a file"), std::string::npos) << result.err;
    }
}

TEST_F(SourceSafety, ANameThatIsNoTextIsRefused) {
    const std::string name = File("a\xff");
    const ProgramResult result = Export(File("disk"), name);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "diskaccess: --output: '" + File("a") +
                              "\\xff' is not UTF-8, and no manifest can name it; give another name\n");
    EXPECT_EQ(Names(), std::vector<std::string>{"disk"});
}

/// Bytes and times, that of the last access too, whichever command.
TEST_F(SourceSafety, TheSourceStaysAsItIs) {
    const timespec longAgo[2] = {{1000000000, 0}, {1000000001, 0}};
    const auto bytes = [this] {
        std::ifstream file(File("disk"), std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(file), {}};
    };
    const std::string contents = bytes();
    for (const char* const command :
         {"info", "list", "events", "days", "units", "space", "check", "play", "journeys", "export"}) {
        std::vector<std::string> words = {DISKACCESS_PROGRAM, command, File("disk")};
        if (std::string(command) == "export") {
            words.insert(words.end(), {"--raw", "--hash-source", "-o", File("out")});
        }
        ASSERT_EQ(utimensat(AT_FDCWD, File("disk").c_str(), longAgo, 0), 0);
        struct stat before = {};
        ASSERT_EQ(stat(File("disk").c_str(), &before), 0);
        RunProgram(words);
        struct stat after = {};
        ASSERT_EQ(stat(File("disk").c_str(), &after), 0);
        EXPECT_EQ(after.st_atim.tv_sec, 1000000000) << command;
        EXPECT_EQ(after.st_mtim.tv_sec, 1000000001) << command;
        EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec) << command;
        EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec) << command;
    }
    EXPECT_TRUE(bytes() == contents);
}

// ---- while an export is written

class RunningExport : public SourceSafety {
protected:
    /// Exports elementary streams to "out" with a setting that has something happen meanwhile.
    ProgramResult ExportWith(std::vector<std::string> environment,
                             const std::vector<std::string>& options = {}) {
        environment.emplace_back("LD_PRELOAD=" DEVICE_SHIM);
        std::vector<std::string> all = options;
        all.emplace_back("--raw");
        ProgramSetting setting;
        setting.environment = std::move(environment);
        return Export(File("disk"), File("out"), all, setting);
    }

    /// The same on a kind of file system, with a shell command that is run in the folder before anything gets a name.
    ProgramResult ExportAnd(const std::string& command, std::vector<std::string> fileSystem,
                            const std::vector<std::string>& options = {}) {
        fileSystem.push_back("SHIM_BEFORE_RENAME=cd '" + File("") + "' && " + command);
        return ExportWith(std::move(fileSystem), options);
    }

    /// A file system that renames without replacing, one that only has links, one that has neither.
    const std::vector<std::string> m_fileSystems[3] = {
        {}, {"SHIM_NO_RENAMEAT2=1"}, {"SHIM_NO_RENAMEAT2=1", "SHIM_NO_LINKAT=1"}};
    const std::string m_stream = File("out-ch0.h264");
};

TEST_F(RunningExport, LeavesNothingWhenItIsInterrupted) {
    for (const std::string signal : {"INT", "TERM", "HUP"}) {
        const ProgramResult begun = ExportWith({"SHIM_AFTER_MAKE=kill -" + signal + " $SHIM_PROGRAM"});
        EXPECT_EQ(begun.exitCode, 1);
        EXPECT_EQ(begun.err, "diskaccess: interrupted; nothing was kept\n");
        EXPECT_EQ(Names(), std::vector<std::string>{"disk"});
    }
}

TEST_F(RunningExport, IsDoneWhenASignalComesTooLate) {
    for (const std::string signal : {"INT", "TERM", "HUP"}) {
        for (const char* const option : {"--skew=0", "--force"}) {
            const ProgramResult result = ExportAnd("kill -" + signal + " $SHIM_PROGRAM", {}, {option});
            EXPECT_EQ(result.exitCode, 0);
            EXPECT_EQ(result.err, "");
            EXPECT_EQ(Names(),
                      (std::vector<std::string>{"disk", "out-ch0.alaw", "out-ch0.h264", "out.json"}));
        }
        for (const char* const name : {"out-ch0.alaw", "out-ch0.h264", "out.json"}) {
            fs::remove(File(name));
        }
    }
}

/// A power failure after the program has said that it is done must not take the files back.
TEST_F(RunningExport, IsOnTheMediumBeforeItIsSaidToBeDone) {
    EXPECT_EQ(ExportWith({"SHIM_SYNCS=1", "SHIM_LOG=" + File("log")}).exitCode, 0);
    std::ifstream log(File("log"));
    std::vector<std::string> steps;
    for (std::string step, name; log >> step >> name;) {
        const bool temporary = name.find(".part") != std::string::npos;
        steps.push_back(step + (temporary ? " file" : " " + name));
    }
    const std::string folder = fs::canonical(File("")).string();
    EXPECT_EQ(steps, (std::vector<std::string>{"sync file", "sync file", "sync file", "name out-ch0.alaw",
                                               "name out-ch0.h264", "name out.json", "sync " + folder}));
}

/// Otherwise the manifest of one could come to stand beside the file of the other.
TEST_F(RunningExport, WaitsForAnotherThatIsNamingItsFiles) {
    const int folder = open(File("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    const pid_t release = fork();
    if (release == 0) {
        // All three files are there under temporary names, and have others a moment later were it not for the lock.
        for (int i = 0; i < 100 && Names().size() < 4; ++i) {
            usleep(10000);
        }
        usleep(500000);
        const bool named = fs::exists(File("out.json"));
        std::ofstream(File("seen")) << named;
        flock(folder, LOCK_UN);
        _exit(0);
    }
    EXPECT_EQ(ExportWith({}).exitCode, 0);
    waitpid(release, nullptr, 0);
    close(folder);
    std::string seen;
    std::ifstream(File("seen")) >> seen;
    EXPECT_EQ(seen, "0");
    EXPECT_EQ(Names(),
              (std::vector<std::string>{"disk", "out-ch0.alaw", "out-ch0.h264", "out.json", "seen"}));
}

TEST_F(RunningExport, GetsItsNamesOnEveryFileSystem) {
    for (const auto& fileSystem : m_fileSystems) {
        for (const char* const command : {"true", "echo old >out.json"}) {
            const ProgramResult result = ExportAnd(command, fileSystem, {"--force"});
            EXPECT_EQ(result.exitCode, 0) << result.err;
            EXPECT_EQ(Names(),
                      (std::vector<std::string>{"disk", "out-ch0.alaw", "out-ch0.h264", "out.json"}));
            EXPECT_EQ(ReadFile(File("out.json")).substr(0, 1), "{");
            for (const char* const name : {"out-ch0.alaw", "out-ch0.h264", "out.json"}) {
                fs::remove(File(name));
            }
        }
    }
}

TEST_F(RunningExport, ReplacesNothingThatComesUp) {
    for (const auto& fileSystem : m_fileSystems) {
        for (const std::string name : {"out-ch0.h264", "out-ch0.alaw", "out.json"}) {
            const ProgramResult result = ExportAnd("echo precious >" + name, fileSystem);
            EXPECT_EQ(result.exitCode, 1);
            EXPECT_EQ(result.err, "diskaccess: " + File(name) +
                                      ": exists already; give another --output, or --force to replace it\n");
            EXPECT_EQ(ReadFile(File(name)), "precious\n");
            EXPECT_EQ(Names(), (std::vector<std::string>{"disk", name}));
            fs::remove(File(name));
        }
    }
}

TEST_F(RunningExport, NeverReplacesASourceThatComesUp) {
    const std::string bytes = ReadFile(File("disk"));
    for (const auto& fileSystem : m_fileSystems) {
        for (const std::string command : {"ln", "ln -s", "mv"}) {
            std::ofstream(File("out.json")) << "old";
            const ProgramResult result = ExportAnd(command + " disk out-ch0.h264", fileSystem, {"--force"});
            EXPECT_EQ(result.exitCode, 1) << command;
            EXPECT_EQ(result.err, "diskaccess: " + IsSource(m_stream) + "\n");
            EXPECT_TRUE(ReadFile(m_stream) == bytes) << command;
            EXPECT_EQ(ReadFile(File("out.json")), "old");
            if (command == "mv") {
                fs::rename(m_stream, File("disk"));
            } else {
                fs::remove(m_stream);
            }
            EXPECT_EQ(Names(), (std::vector<std::string>{"disk", "out.json"}));
        }
    }
}

TEST_F(RunningExport, NeverReplacesASourceThatComesUpAtTheLastMoment) {
    const std::string bytes = ReadFile(File("disk"));
    std::ofstream(m_stream) << "old";
    // It takes the name after that was looked at and before it is taken.
    const ProgramResult result =
        ExportWith({"SHIM_BEFORE_EXCHANGE=cd '" + File("") + "' && mv -f disk out-ch0.h264"}, {"--force"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + IsSource(m_stream) + "\n");
    EXPECT_EQ(Names(), std::vector<std::string>{"out-ch0.h264"});
    EXPECT_TRUE(ReadFile(m_stream) == bytes);
}

TEST_F(RunningExport, MakesItsFilesAnew) {
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_WATCH=.part", "SHIM_LOG=" + File("log")};
    EXPECT_EQ(Export(File("disk"), File("out.mkv"), {}, setting).exitCode, 0);
    std::ifstream log(File("log"));
    std::string name;
    int flags = 0;
    size_t files = 0;
    for (; log >> name >> flags; ++files) {
        constexpr int kAnew = O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        EXPECT_EQ(flags & kAnew, kAnew) << name;
        EXPECT_EQ(flags & O_TRUNC, 0) << name;
    }
    EXPECT_EQ(files, 2u); // the recording and its manifest
}

// ---- devices

/// The disk as a block device.
class SourceOnDevice : public SourceSafety {
protected:
    void SetUp() override {
        SourceSafety::SetUp();
        if (!LoopDevice(File("disk")).Attached()) {
            GTEST_SKIP()
                << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
        }
    }
};

TEST_F(SourceOnDevice, TheFileBehindALoopDeviceIsRefused) {
    const LoopDevice device(File("disk"));
    fs::create_symlink("disk", File("link"));
    fs::create_hard_link(File("disk"), File("other"));
    const Untouched disk(File("disk"));
    for (const char* const name : {"disk", "link", "other"}) {
        ExpectRefused(device.Path(), File(name), IsSource(File(name)));
    }
    fs::create_hard_link(File("disk"), File("a.json"));
    ExpectRefused(device.Path(), File("a"), IsSource(File("a.json")), {"--raw"});
    EXPECT_EQ(Export(device.Path(), File("out.mkv")).exitCode, 0);
    EXPECT_EQ(ReadFile(File("disk")), disk.bytes);
}

TEST_F(SourceOnDevice, TheFileIsKnownWithoutItsName) {
    const LoopDevice device(File("disk"));
    fs::create_hard_link(File("disk"), File("other"));
    fs::remove(File("disk"));
    ExpectRefused(device.Path(), File("other"), IsSource(File("other")));
}

TEST_F(SourceOnDevice, TheFileBehindALoopDeviceOnALoopDeviceIsRefused) {
    const LoopDevice lower(File("disk"));
    const LoopDevice upper(lower.Path());
    ASSERT_TRUE(upper.Attached());
    ExpectRefused(upper.Path(), File("disk"), IsSource(File("disk")));
    ASSERT_TRUE(MakeNodeOf(lower.Path(), "node"));
    ExpectRefused(upper.Path(), File("node"), IsSource(File("node")));
}

TEST_F(SourceOnDevice, TheFileBehindAPartitionIsRefused) {
    // A whole disk, with the recorder's partition from 1 MiB on.
    constexpr size_t kBegin = 0x100000;
    const std::string bytes = ReadFile(File("disk"));
    std::ofstream(File("whole"), std::ios::binary) << std::string(kBegin, '\0') << bytes;
    const LoopDevice device(File("whole"));
    const std::string partition = device.AddPartition(kBegin, bytes.size());
    if (partition.empty()) {
        GTEST_SKIP() << "this machine makes no partitions";
    }
    const ProgramResult exported = Export(partition, File("out.mkv"));
    ASSERT_EQ(exported.exitCode, 0) << exported.err;
    ASSERT_TRUE(MakeNodeOf(device.Path(), "node"));
    const Untouched whole(File("whole"));
    ExpectRefused(partition, File("whole"), IsSource(File("whole")));
    ExpectRefused(partition, File("node"), IsSource(File("node")));
    whole.Check(File("whole"));
}

TEST_F(SourceOnDevice, TheDeviceIsRefusedByAnyNode) {
    const LoopDevice device(File("disk"));
    ASSERT_TRUE(MakeNodeOf(device.Path(), "node"));
    fs::create_symlink("node", File("link"));
    for (const char* const name : {"node", "link"}) {
        ExpectRefused(device.Path(), File(name), IsSource(File(name)));
    }
    // Read as a file, the image is not known to be what the device shows; but a device is no file.
    ExpectRefused(File("disk"), File("node"), IsNoFile(File("node"), "a device"));
}

TEST_F(SourceOnDevice, WhatTheFileSystemOfTheSourceIsStoredInIsRefused) {
    // A file system in a file, mounted, and the image in it.
    const std::string script = "set -e; cd '" + File("") +
                               "'; truncate -s 8M store; mkfs.ext4 -q store; mkdir mnt; mount -o loop store "
                               "mnt; cp --sparse=always disk mnt/disk";
    if (RunProgram({"unshare", "--mount", "sh", "-c", script}).exitCode != 0) {
        GTEST_SKIP() << "this machine mounts no files";
    }
    fs::remove_all(File("mnt"));
    fs::remove(File("store"));
    const ProgramResult result =
        RunProgram({"unshare", "--mount", "sh", "-c",
                    script + "; sha256sum store >sum; " DISKACCESS_PROGRAM
                             " export mnt/disk -o store --force || true; sha256sum --quiet -c sum >&2"});
    EXPECT_EQ(result.err, "diskaccess: " + IsSource("store") + "\n");
}

TEST_F(SourceOnDevice, NothingIsPrintedIntoTheFileBehindIt) {
    const LoopDevice device(File("disk"));
    const Untouched disk(File("disk"));
    for (const std::string command : {"info", "dump"}) {
        const ProgramResult result = RunProgram(
            {"sh", "-c",
             DISKACCESS_PROGRAM " " + command + " " + device.Path() + " >>'" + File("disk") + "'"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err, "diskaccess: " + device.Path() +
                                  ": standard output leads into it, and it is never written; send the output "
                                  "elsewhere\n");
    }
    const ProgramResult dumped =
        RunProgram({"sh", "-c", DISKACCESS_PROGRAM " dump '" + File("disk") + "' >>'" + File("disk") + "'"});
    EXPECT_EQ(dumped.exitCode, 1);
    disk.Check(File("disk"));
}

} // namespace
