#include "media/error.h"
#include "media/picture_check.h"
#include "media/picture_series.h"
#include "media/sheet.h"
#include "media/stills.h"

namespace media {

namespace {

[[noreturn]] void NotBuilt() {
    throw Error(ErrorKind::NoContainers,
                "this library was built without libavcodec and libswscale and makes no pictures");
}

} // namespace

bool StillsSupported() {
    return false;
}

std::vector<Still> TakeStills(const recordings::Disk& /*disk*/, const recordings::BlockList& /*blocks*/,
                              const StillQuery& /*query*/, const recordings::ProblemSink& /*problems*/,
                              const recordings::Watch& /*watch*/) {
    NotBuilt();
}

std::optional<std::vector<SeriesPicture>> DecodeSeries(const std::vector<SeriesFrame>& /*frames*/,
                                                       uint32_t /*height*/) {
    NotBuilt();
}

std::vector<uint8_t> EncodePicture(const Picture& /*picture*/, PictureFormat /*format*/) {
    NotBuilt();
}

void PictureCheck::Take(const recordings::Frame& /*frame*/, bool /*afterLoss*/,
                        const recordings::ProblemSink& /*problems*/) {
    NotBuilt();
}

void PictureCheck::Finish(const recordings::ProblemSink& /*problems*/) {}

uint32_t SheetCellWidth(size_t /*columns*/) {
    NotBuilt();
}

Picture Shrink(const Picture& /*picture*/, uint32_t /*width*/) {
    NotBuilt();
}

Picture DrawSheet(const Sheet& /*sheet*/) {
    NotBuilt();
}

} // namespace media
