// What playback costs, beside the floor: the bare system calls for the same bytes; and beside libavformat reading
// the same frames from Matroska, MP4 and MPEG-TS.
//
// playback_bench [DIRECTORY]
//
// Makes its files in DIRECTORY, some 2.9 GB, and removes them in the end. Takes some two minutes. All reads come
// from the page cache. Each run has a process of its own; the runs of a table take turns, and medians are shown.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "playback/frame_set.h"
#include "playback/in_child.h"
#include "playback/measure.h"
#include "playback/table.h"
#include "playback/waits.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

using namespace playback_bench;

constexpr int kRounds = 5;
constexpr int kWaitRounds = 3;

/// A directory that goes when this does, with all that is in it.
class WorkDirectory {
public:
    explicit WorkDirectory(const std::filesystem::path& parent) {
        std::string name = (parent / "playback_bench.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error(parent.string() + ": no directory can be made there");
        }
        m_path = name;
    }
    ~WorkDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;
    std::string Path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

/// What making a set tells of it.
struct Extent {
    uint64_t frames;
    uint64_t bytes;
    int64_t start;
    int64_t end;
};

FrameSet Made(const std::string& directory, const Recipe& recipe) {
    FrameSet set = {directory, recipe};
    const Extent made = InChild([&] {
        MakeSet(set);
        return Extent{set.frames, set.bytes, set.start, set.end};
    });
    set.frames = made.frames;
    set.bytes = made.bytes;
    set.start = made.start;
    set.end = made.end;
    return set;
}

Variant OfContainer(const FrameSet& set, Order order, const std::string& ending, bool parsers) {
    return {"libavformat, " + ending + (parsers ? "" : ", no parsers"), Kind::Container,
            [&set, order, ending, parsers] { return ContainerReader(set, order, ending, parsers); }};
}

std::vector<Variant> InRecordedOrder(const FrameSet& set) {
    std::vector<Variant> variants = {
        {"floor: the same calls, bare", Kind::Floor,
         [&] { return BareCalls(set, LibraryReader(set, Order::AsRecorded)); }},
        {"one pread a frame", Kind::Pread, [&] { return OnePread(set, Order::AsRecorded); }},
        {"library, ReadFrame of all channels", Kind::Library,
         [&] { return LibraryReader(set, Order::AsRecorded); }},
    };
    for (const std::string& ending : set.recipe.containers) {
        variants.push_back(OfContainer(set, Order::AsRecorded, ending, true));
        variants.push_back(OfContainer(set, Order::AsRecorded, ending, false));
    }
    return variants;
}

std::vector<Variant> ByChannel(const FrameSet& set) {
    std::vector<Variant> variants = {
        {"floor: the same calls, bare", Kind::Floor,
         [&] { return BareCalls(set, LibraryReader(set, Order::ChannelByChannel)); }},
        {"one pread a frame", Kind::Pread, [&] { return OnePread(set, Order::ChannelByChannel); }},
        {"library, ReadFrame of one channel", Kind::Library,
         [&] { return LibraryReader(set, Order::ChannelByChannel); }},
    };
    for (const std::string& ending : set.recipe.containers) {
        variants.push_back(OfContainer(set, Order::ChannelByChannel, ending, false));
    }
    return variants;
}

/// Unit reads begin with the first I-frame of each block's first channel: they deliver fewer frames.
std::vector<Variant> OfUnits(const FrameSet& set) {
    return {
        {"floor: the same calls, bare", Kind::Floor, [&] { return BareCalls(set, LibraryUnitReader(set)); }},
        {"library, ReadUnitFrame", Kind::Library, [&] { return LibraryUnitReader(set); }},
    };
}

void Compare(const std::string& title, const std::vector<Variant>& variants) {
    PrintReaders(title, variants, Measure(variants, kRounds));
    std::fflush(stdout);
}

void PrintSet(const FrameSet& set) {
    std::printf("%s: %llu frames, %.0f MB of payload, %.1f KB a frame\n", set.recipe.name.c_str(),
                static_cast<unsigned long long>(set.frames), static_cast<double>(set.bytes) * 1e-6,
                static_cast<double>(set.bytes) / static_cast<double>(set.frames) * 1e-3);
    std::fflush(stdout);
}

int Run(int argc, char** argv) {
    const std::filesystem::path parent = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    av_log_set_level(AV_LOG_FATAL);
    const WorkDirectory directory(parent);
    std::printf("recording in %s ...\n", directory.Path().c_str());
    std::fflush(stdout);
    const FrameSet video = Made(directory.Path(), {"video", 7500, false, 512000000, {"mkv", "mp4", "ts"}});
    PrintSet(video);
    // MP4 and MPEG-TS cannot hold the sound.
    const FrameSet sound = Made(directory.Path(), {"sound", 7500, true, 128000000, {"mkv"}});
    PrintSet(sound);
    // Key frames of more than 128 KiB.
    const FrameSet large = Made(directory.Path(), {"large", 22500, false, 256000000, {"mkv"}});
    PrintSet(large);
    PrintLegend();

    Compare("Video, all channels in recorded order", InRecordedOrder(video));
    Compare("Video, one channel after the other", ByChannel(video));
    Compare("Video, unit by unit", OfUnits(video));
    Compare("Video and sound, all channels in recorded order", InRecordedOrder(sound));
    std::vector<Variant> variants = InRecordedOrder(large);
    variants.push_back({"library, large buffers in the heap", Kind::Library,
                        [&] { return LibraryReaderWithLargeHeap(large); }});
    Compare("Large video, all channels in recorded order", variants);

    const std::vector<Operation> operations = Operations(video);
    PrintWaits(operations, MeasureWaits(operations, kWaitRounds));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "playback_bench: %s\n", error.what());
        return 1;
    }
}
