#include "stills.h"

#include <pybind11/numpy.h>

#include <memory>
#include <utility>
#include <vector>

#include "media/error.h"
#include "rows.h"

namespace python {

namespace py = pybind11;

namespace {

struct Answer {
    std::vector<media::Still> stills;
    recordings::ProblemList problems;
};

/// The picture as an array, which takes its memory over.
py::object ArrayOf(media::Picture picture) {
    if (picture.pixels.empty()) {
        return py::none();
    }
    auto pixels = std::make_unique<std::vector<uint8_t>>(std::move(picture.pixels));
    uint8_t* const first = pixels->data();
    const py::capsule owner(pixels.get(),
                            [](void* memory) { delete static_cast<std::vector<uint8_t>*>(memory); });
    static_cast<void>(pixels.release()); // the capsule's now
    return py::array_t<uint8_t>({py::ssize_t{picture.height}, py::ssize_t{picture.width}, py::ssize_t{3}},
                                first, owner);
}

py::tuple AsTuple(media::Still still) {
    const bool recorded = still.HasFrame();
    const auto known = [recorded](auto number) {
        return recorded ? py::object(py::int_(number)) : py::object(py::none());
    };
    return py::make_tuple(still.channel, media::NameOf(still.state), known(still.time), known(still.block),
                          known(still.offset), ArrayOf(std::move(still.picture)));
}

} // namespace

py::tuple Stills(SharedDisk& shared, const media::StillQuery& query) {
    py::module_::import("numpy"); // before anything is read
    Answer answer = shared.Do([&query](const SharedDisk::Open& open, const recordings::Watch& watch) {
        try {
            Answer found;
            found.stills = TakeStills(open.disk, open.blocks, query, found.problems.Sink(), watch);
            return found;
        } catch (const media::Error& error) {
            throw NoPicture(open.disk.Bytes().Name() + ": " + error.what());
        }
    });
    py::list stills;
    for (media::Still& still : answer.stills) {
        stills.append(AsTuple(std::move(still)));
    }
    return py::make_tuple(stills, AsList(answer.problems.All()));
}

} // namespace python
