// Stands in for container_sink.cpp where there is no libavformat.

#include "media/error.h"
#include "media/sink.h"

namespace media {

bool ContainersSupported() {
    return false;
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, Container /*container*/,
                                        Outputs& /*outputs*/) {
    throw Error(ErrorKind::NoContainers,
                path + ": cannot be made: libavformat was not there when this was built");
}

void QuietContainers() {}

} // namespace media
