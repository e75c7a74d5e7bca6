#include "export.h"

#include <pybind11/stl.h>

#include <functional>
#include <optional>
#include <utility>

#include "media/sink.h"
#include "render/printable.h"
#include "rows.h"

namespace python {

namespace py = pybind11;

namespace {

/// How Python's side writes a time.
std::function<std::string(int64_t)> TimeWords(const py::object& words, const char* method) {
    return [&words, method](int64_t micros) {
        const py::gil_scoped_acquire locked;
        return words.attr(method)(micros).cast<std::string>();
    };
}

media::Wording WordingOf(const py::object& words) {
    media::Wording wording;
    wording.timestamp = TimeWords(words, "timestamp");
    wording.utcTimestamp = TimeWords(words, "utc_timestamp");
    wording.readableTime = TimeWords(words, "readable_time");
    wording.readableSecond = TimeWords(words, "readable_second");
    wording.printable = diskaccess::Printable;
    return wording;
}

py::dict Answer(const media::ExportResult& result) {
    py::list outputs;
    for (const media::Exported& output : result.outputs) {
        outputs.append(py::make_tuple(output.path, output.size, output.sha256));
    }
    py::list tracks;
    for (const media::Track& track : result.tracks) {
        tracks.append(py::make_tuple(track.channel, track.isVideo, track.Codec(), track.frames, track.bytes,
                                     track.first, track.last, track.output));
    }
    py::list leftOut;
    for (const media::LeftOut& item : result.leftOut) {
        leftOut.append(py::make_tuple(item.channel, item.isVideo, item.frames, media::NameOf(item.reason),
                                      item.description));
    }
    py::dict answer;
    answer["outputs"] = outputs;
    answer["manifest"] = result.manifest;
    answer["tracks"] = tracks;
    answer["left_out"] = leftOut;
    answer["problems"] = AsList(result.problems);
    return answer;
}

} // namespace

py::object Export(SharedDisk& shared, media::ExportRequest request, const py::object& words) {
    request.wording = WordingOf(words);
    const std::optional<media::ExportResult> result =
        shared.Do([&request](const SharedDisk::Open& open, const recordings::Watch& watch) {
            const media::QuietPeriod quiet; // what libavformat finds worth a line is in the answer
            return media::Export(open.disk, open.blocks, open.identity, request, {}, watch);
        });
    return result ? py::object(Answer(*result)) : py::object(py::none());
}

} // namespace python
