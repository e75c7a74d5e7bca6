// What searches of a large disk cost, beside the floor: the bare reads of the same structures.
//
// search_bench [DIRECTORY] [Google Benchmark's options]
//
// Makes a sparse, wrapped ring of 65,536 blocks of 8 MiB (512 GiB, of which some 800 MB are written) in
// DIRECTORY and removes it in the end. Each search is run once under watch; its floor then repeats that
// search's reads with one pread() each, without seeks, and looks at nothing.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "disk_access.h"
#include "host/system_calls.h"
#include "sample_recorder/indexed_ring.h"
#include "sample_recorder/partition_image.h"

namespace {

using test_support::Call;
using test_support::CallKind;
using test_support::SystemCallLog;

constexpr uint32_t kBlocks = 65536;
constexpr uint32_t kBlockSize = 0x800000;
constexpr uint32_t kNewest = 20000;
constexpr uint32_t kFirstTime = 1700000000;
constexpr uint32_t kSecondsPerBlock = 120; // 91 days in all
constexpr uint32_t kAll = 0xFFFFFFFF;

/// One kind of search, on a disk that is open.
struct Search {
    const char* name;
    std::function<int(CSearchDisk&)> run;
};

std::vector<Search> Searches() {
    const auto media = [](uint32_t start, uint32_t end) {
        return [=](CSearchDisk& disk) {
            SearchParam_t request = {0, start, end, kAll};
            CCommList<RecordItem_t> records;
            return disk.SearchMedia(&request, &records);
        };
    };
    const uint32_t lastHour = kFirstTime + (kBlocks - 40) * kSecondsPerBlock;
    return {
        {"newest block", [](CSearchDisk& disk) { return disk.GetLastRecBlockId(); }},
        {"one hour of records", media(lastHour, lastHour + 3600)},
        {"records of the whole disk", media(0, 0x7FFFFFFF)},
        {"date map",
         [](CSearchDisk& disk) {
             CCommList<unsigned int> days;
             return disk.GetDateInfo(&days);
         }},
        {"unit list",
         [](CSearchDisk& disk) {
             CCommList<UnitItem_t> units;
             return disk.GetUnitInfo(&units);
         }},
    };
}

/// The reads that a search makes.
std::vector<Call> ReadsOf(const Search& search, CSearchDisk& disk) {
    const SystemCallLog log;
    search.run(disk);
    std::vector<Call> reads;
    for (const Call& call : log.Calls()) {
        if (call.kind == CallKind::Read) {
            reads.push_back(call);
        }
    }
    return reads;
}

void RunFloor(int fd, const std::vector<Call>& reads) {
    std::vector<char> buffer(0x10000);
    for (const Call& call : reads) {
        if (buffer.size() < call.length) {
            buffer.resize(call.length);
        }
        if (pread(fd, buffer.data(), call.length, call.offset) < 0) {
            throw std::runtime_error("the ring cannot be read");
        }
        benchmark::DoNotOptimize(buffer.data());
    }
}

/// Shows each pair of runs as a ratio when all are done.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
                m_seconds[run.run_name.function_name] = run.GetAdjustedRealTime() * 1e-6; // in microseconds
                m_reads[run.run_name.function_name] = run.counters.at("reads");
            }
        }
    }

    void Finalize() override {
        std::ostream& out = GetOutputStream();
        out << "\nsearch                        reads     library       floor   library / floor\n";
        for (const auto& search : Searches()) {
            const std::string name = search.name;
            const double library = m_seconds[name + " (library)"];
            const double floor = m_seconds[name + " (floor)"];
            char line[160];
            std::snprintf(line, sizeof line, "%-26s %8.0f %8.3f ms %8.3f ms %17.2f\n", name.c_str(),
                          m_reads[name + " (library)"], library * 1e3, floor * 1e3, library / floor);
            out << line;
        }
    }

private:
    std::map<std::string, double> m_seconds;
    std::map<std::string, double> m_reads;
};

/// A ring in a file that goes when this does.
class RingFile {
public:
    explicit RingFile(const std::filesystem::path& directory)
        : m_path(directory / ("search_bench." + std::to_string(getpid()) + ".img")) {
        sample_recorder::Format format;
        format.blockCount = kBlocks;
        format.blockSize = kBlockSize;
        auto image = sample_recorder::PartitionImage::Create(m_path, format);
        sample_recorder::IndexedRing ring;
        ring.newest = kNewest;
        ring.firstTime = kFirstTime;
        ring.secondsPerBlock = kSecondsPerBlock;
        ring.iframesPerChannel = 40;
        ring.eventsPerBlock = 1;
        sample_recorder::WriteIndexedRing(image, ring);
        m_access = image.Access();
    }
    ~RingFile() { std::filesystem::remove(m_path); }
    RingFile(const RingFile&) = delete;
    RingFile& operator=(const RingFile&) = delete;

    PartAccess_t Access() const { return m_access; }

private:
    std::filesystem::path m_path;
    PartAccess_t m_access = {};
};

/// Leads descriptor 1, on which the library prints, to nowhere.
/// @return a stream on what it led to before
FILE* MoveStandardOutputAside() {
    FILE* const own = fdopen(dup(STDOUT_FILENO), "w");
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
    return own;
}

/// A C++ stream on a C one.
class FileBuffer : public std::streambuf {
public:
    explicit FileBuffer(FILE* file) : m_file(file) {}

protected:
    int overflow(int c) override { return c == traits_type::eof() ? 0 : std::fputc(c, m_file); }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        return static_cast<std::streamsize>(std::fwrite(text, 1, static_cast<size_t>(size), m_file));
    }
    int sync() override { return std::fflush(m_file); }

private:
    FILE* m_file;
};

int RunBenchmarks(int argc, char** argv) {
    std::filesystem::path directory = std::filesystem::temp_directory_path();
    benchmark::Initialize(&argc, argv);
    if (argc > 1) {
        directory = argv[1];
    }
    FILE* const out = MoveStandardOutputAside();
    FileBuffer buffer(out);
    std::ostream stream(&buffer);
    stream << "making a ring of " << kBlocks << " blocks in " << directory << " ...\n" << std::flush;

    const RingFile ring(directory);
    PartAccess_t access = ring.Access();
    CSearchDisk disk;
    disk.Init(&access);
    const int fd = open(access.PartName, O_RDONLY | O_CLOEXEC);
    for (const Search& search : Searches()) {
        const std::vector<Call> reads = ReadsOf(search, disk);
        const auto count = static_cast<double>(reads.size());
        const std::string name = search.name;
        benchmark::RegisterBenchmark((name + " (library)").c_str(), [&disk, search,
                                                                     count](benchmark::State& state) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(search.run(disk));
            }
            state.counters["reads"] = count;
        })->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + " (floor)").c_str(), [fd, reads,
                                                                   count](benchmark::State& state) {
            for (auto _ : state) {
                RunFloor(fd, reads);
            }
            state.counters["reads"] = count;
        })->Unit(benchmark::kMicrosecond);
    }
    RatioReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&stream);
    reporter.SetErrorStream(&stream);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    close(fd);
    stream.flush();
    fclose(out);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return RunBenchmarks(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "search_bench: %s\n", error.what());
        return 1;
    }
}
