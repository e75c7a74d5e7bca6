// Stands in for container_sink.cpp where there is no libavformat.

#include "cli/failure.h"
#include "sink.h"

namespace diskaccess {

bool ContainersSupported() {
    return false;
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, const std::string& /*container*/,
                                        const ContainerFacts& /*facts*/, Outputs& /*outputs*/) {
    throw Failure(path + ": this program was built without libavformat and writes no containers; use --raw");
}

} // namespace diskaccess
