// The sample recorder's program, with any arguments and any scenario: it records, or says in a line what is wrong.
// What it writes lies in memory, and is bounded.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/findings.h"
#include "support/fuzzer.h"
#include "support/recorder_disk.h"

int RunSampleRecorder(int argc, char** argv);

namespace fuzzing {

namespace {

/// Writes after which the disk is full, and calls in all.
constexpr uint32_t kMostWrites = 3000;
constexpr uint64_t kMostCalls = 200000;
/// The most that one allocation may take. Frames are small, and libav's own buffers are not counted.
constexpr size_t kLargestAllocation = 8 << 20;

constexpr const char* kScenarioPath = "/fuzz/scenario";
constexpr const char* kOutputPath = RecorderDisk::kName;

/// A file in memory that holds the scenario.
class ScenarioFile {
public:
    ScenarioFile()
        : m_fd(memfd_create("scenario", MFD_CLOEXEC)), m_path("/proc/self/fd/" + std::to_string(m_fd)) {}

    const char* Path() const { return m_path.c_str(); }
    void Fill(const std::string& text) const {
        const auto size = static_cast<ssize_t>(text.size());
        if (ftruncate(m_fd, 0) != 0 || pwrite(m_fd, text.data(), text.size(), 0) != size) {
            std::abort();
        }
    }

private:
    int m_fd;
    std::string m_path;
};

const ScenarioFile& Scenario() {
    static const ScenarioFile scenario;
    return scenario;
}

/// The files that the program may read: the scenario, and what lies beside it.
const char* Resolve(const char* path) {
    if (std::strcmp(path, kScenarioPath) == 0) {
        return Scenario().Path();
    }
    if (std::strcmp(path, "/fuzz/video.h264") == 0) {
        return FUZZ_MEDIA "video.h264";
    }
    return std::strcmp(path, "/fuzz/audio.wav") == 0 ? FUZZ_MEDIA "audio.wav" : nullptr;
}

/// An input: arguments, one a line, up to an empty line; after it the scenario.
struct Input {
    std::vector<std::string> arguments = {"diskaccess-sample"};
    std::string scenario;

    explicit Input(const std::string& text) {
        size_t at = 0;
        while (at < text.size()) {
            const size_t end = std::min(text.find('\n', at), text.size());
            if (end == at) {
                scenario = text.substr(at + 1);
                break;
            }
            Add(text.substr(at, end - at));
            at = end + 1;
        }
    }

private:
    void Add(const std::string& argument) {
        // Files elsewhere, which may be devices or addresses in a network, stay out of it.
        if (argument.compare(0, 3, "--m") != 0) {
            arguments.push_back(argument == "SCENARIO" ? kScenarioPath
                                : argument == "OUTPUT" ? kOutputPath
                                                       : argument.substr(0, argument.find('\0')));
        }
    }
};

/// Collects what is said on standard error for as long as it lives.
class Complaints {
public:
    Complaints() : m_saved(stderr), m_savedBuffer(std::cerr.rdbuf(m_stream.rdbuf())) {
        stderr = open_memstream(&m_text, &m_size);
    }
    ~Complaints() {
        Text();
        std::free(m_text);
    }
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    /// Ends the collection.
    std::string Text() {
        if (m_saved != nullptr) {
            std::fclose(stderr);
            stderr = m_saved;
            m_saved = nullptr;
            std::cerr.rdbuf(m_savedBuffer);
        }
        return m_stream.str() + std::string(m_text, m_size);
    }

private:
    FILE* m_saved;
    std::ostringstream m_stream;
    std::streambuf* m_savedBuffer;
    char* m_text = nullptr;
    size_t m_size = 0;
};

/// A refusal is a line for the person who wrote the scenario. It may begin with a file's name or quote the scenario, but not
/// begin with the words of libraries.
void CheckRefusal(int code, const std::string& text, const std::vector<std::string>& arguments) {
    static const std::string name = "diskaccess-sample: ";
    Require(code == 1 || code == 2, "the program ends with no known code");
    Require(!text.empty(), "the program fails without a word");
    if (code == 1) {
        Require(text.compare(0, name.size(), name) == 0,
                "the program fails with a line that does not contain its name");
        const bool namesFile =
            std::any_of(arguments.begin(), arguments.end(), [&](const std::string& argument) {
                return text.compare(name.size(), argument.size() + 2, argument + ": ") == 0;
            });
        for (const std::string word : {"std::", "[json.exception", "basic_string", "stoi\n", "stoul\n",
                                       "stod\n", "vector::", "map::at"}) {
            if (!namesFile && text.compare(name.size(), word.size(), word) == 0) {
                Report("the program fails with words of a library: %s", text.c_str());
            }
        }
    }
}

void RunOnce(Input input) {
    std::vector<char*> arguments;
    for (std::string& argument : input.arguments) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    RecorderDisk::The().Begin(kMostWrites, kMostCalls, Resolve);
    Complaints complaints;
    const AllocationWatch watch;
    const int code = RunSampleRecorder(static_cast<int>(arguments.size()) - 1, arguments.data());
    const std::string text = complaints.Text();
    if (code != 0) {
        CheckRefusal(code, text, input.arguments);
    }
    Require(watch.Largest() <= kLargestAllocation, "the program takes more memory than a sample needs");
}

class TextMutation {
public:
    TextMutation(std::string& text, uint32_t seed) : m_text(text), m_random(seed) {}

    void Apply() {
        switch (Below(3)) {
        case 0:
            return ReplaceValue();
        case 1:
            return CopyLine();
        default:
            return DropLine();
        }
    }

private:
    size_t Below(size_t below) { return below == 0 ? 0 : m_random() % below; }

    /// Puts another value in the place of a number or a text.
    void ReplaceValue() {
        static const char* const kValues[] = {"0",
                                              "1",
                                              "-1",
                                              "31",
                                              "32",
                                              "255",
                                              "256",
                                              "2147483647",
                                              "2147483648",
                                              "4294967295",
                                              "4294967296",
                                              "18446744073709551615",
                                              "1e30",
                                              "0.5",
                                              "1e999",
                                              "\"\"",
                                              "\"0x10\"",
                                              "\"-1\"",
                                              "null",
                                              "true",
                                              "[]",
                                              "{}",
                                              "[[1]]",
                                              "\"2026-11-18T07:58:00Z\"",
                                              "\"9999-12-31T23:59:59Z\"",
                                              "\"video.h264\"",
                                              "\"audio.wav\""};
        std::vector<std::pair<size_t, size_t>> places;
        for (size_t at = 0; at < m_text.size(); ++at) {
            size_t end = at;
            if (m_text[at] == '"') {
                end = m_text.find('"', at + 1);
                end = end == std::string::npos ? m_text.size() : end + 1;
            } else {
                while (end < m_text.size() && std::isalnum(static_cast<unsigned char>(m_text[end])) != 0) {
                    ++end;
                }
            }
            if (end > at) {
                places.emplace_back(at, end - at);
                at = end;
            }
        }
        if (!places.empty()) {
            const auto [at, length] = places[Below(places.size())];
            m_text.replace(at, length, kValues[Below(std::size(kValues))]);
        }
    }
    std::pair<size_t, size_t> Line() {
        const size_t at = Below(m_text.size());
        const size_t before = m_text.rfind('\n', at);
        const size_t start = before == std::string::npos ? 0 : before + 1;
        const size_t end = m_text.find('\n', start);
        return {start, end == std::string::npos ? m_text.size() - start : end + 1 - start};
    }
    void CopyLine() {
        const auto [from, length] = Line();
        m_text.insert(Line().first, m_text.substr(from, length));
    }
    void DropLine() {
        const auto [start, length] = Line();
        m_text.erase(start, length);
    }

    std::string& m_text;
    std::mt19937 m_random;
};

} // namespace

} // namespace fuzzing

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    const Input input(std::string(reinterpret_cast<const char*>(data), size));
    Scenario().Fill(input.scenario);
    RunOnce(input);
    RecorderDisk::The().End();
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    if (seed % 3 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    fuzzing::TextMutation(text, seed).Apply();
    const size_t length = std::min(text.size(), maxSize);
    std::copy_n(text.begin(), length, data);
    return length;
}
