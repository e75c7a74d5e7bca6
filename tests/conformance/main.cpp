// Makes the same calls on the same partitions on every target, and prints what comes of it: the outputs of any two
// builds of the library are the same, byte for byte.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "conformance/sections.h"
#include "host/system_calls.h"
#include "support/temp_dir.h"

namespace {

using namespace conformance;

/// Of each layout: enough to meet every kind of damage many times.
constexpr uint32_t kDamageCases = 40;

/// Makes the host's file system answer as any other does: a seek to where one ends and another goes on fails, and
/// so do flushes, which would wait for the host's disk each time.
class AnyFileSystem {
private:
    static constexpr int64_t kEnd = int64_t{1} << 42;

    static test_support::Fate Decide(const test_support::Call& call) {
        const bool beyond = call.kind == test_support::CallKind::Seek && call.offset >= kEnd;
        return beyond ? test_support::Fate::Failing() : test_support::PassUnflushed(call);
    }

    test_support::SystemCallLog m_log{[this](const test_support::Call& call, size_t) {
        const test_support::Fate fate = Decide(call);
        m_log.Clear(); // nobody asks for it, and there are millions
        return fate;
    }};
};

struct Section {
    std::string name;
    std::function<void()> call;
};

std::vector<Section> Sections() {
    using DiskCalls = void (*)(const Disk&, const std::string&);
    const std::pair<const char*, DiskCalls> scripts[] = {
        {"device", CallDevice},          {"search_block", CallSearchBlock}, {"search_part", CallSearchPart},
        {"search_disk", CallSearchDisk}, {"read_block", CallReadBlock},     {"read_part", CallReadPart},
        {"read_disk", CallReadDisk},     {"print_disk", CallPrintDisk}};
    std::vector<Section> sections = {{"without_disk", [] { CallWithoutDisk("without_disk"); }}};
    for (const auto& script : scripts) {
        for (const std::string& disk : DiskNames()) {
            const std::string name = std::string(script.first) + '.' + disk;
            const DiskCalls call = script.second;
            sections.push_back({name, [call, disk, name] { call(DiskOf(disk), name); }});
        }
    }
    sections.push_back({"damage.normal", [] { CallOnDamage(0, kDamageCases); }});
    sections.push_back({"damage.extended", [] { CallOnDamage(1, kDamageCases); }});
    return sections;
}

bool Wanted(const std::string& name, const std::vector<std::string>& wanted) {
    for (const std::string& start : wanted) {
        if (name.compare(0, start.size(), start) == 0) {
            return true;
        }
    }
    return wanted.empty();
}

void Run(const std::vector<std::string>& wanted) {
    const test_support::TempDir directory;
    if (chdir(directory.File("").c_str()) != 0) {
        throw std::runtime_error("cannot enter " + directory.File(""));
    }
    const AnyFileSystem fileSystem;
    setenv("TZ", "UTC0", 1);
    tzset();
    for (const Section& section : Sections()) {
        if (Wanted(section.name, wanted)) {
            Note("== %s", section.name.c_str());
            section.call();
        }
    }
    std::fprintf(stderr, "%lu calls\n", static_cast<unsigned long>(CallsMade()));
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "--list")) {
        if (arguments[0] == "--help") {
            std::printf("usage: conformance [--list] [SECTION...]\n"
                        "Runs the sections whose names begin so; without one, all of them.\n");
            return 0;
        }
        for (const Section& section : Sections()) {
            std::printf("%s\n", section.name.c_str());
        }
        return 0;
    }
    try {
        Run(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "conformance: %s\n", error.what());
        return 1;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
