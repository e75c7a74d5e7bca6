// Stands in for container_rules.cpp, container_sink.cpp, packet_reader.cpp and sound_decoder.cpp where there is no
// libavformat.

#include "container_rules.h"
#include "media/error.h"
#include "media/sink.h"
#include "media/track.h"
#include "packet_reader.h"
#include "sound_decoder.h"

namespace media {

bool ContainersSupported() {
    return false;
}

std::unique_ptr<Sink> MakeStreamSink(const std::string& name, int /*stream*/, Outputs& /*outputs*/) {
    throw Error(ErrorKind::NoContainers, name + ": no containers can be written: libavformat was not there");
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, Container /*container*/,
                                        Outputs& /*outputs*/, size_t /*output*/, SoundDecoder* /*sound*/) {
    throw Error(ErrorKind::NoContainers,
                path + ": cannot be made: libavformat was not there when this was built");
}

bool CanDecodeAudio(const std::string& /*name*/) {
    return true;
}

void QuietContainers() {}

QuietPeriod::QuietPeriod() = default;
QuietPeriod::~QuietPeriod() = default;

int64_t NextTime(ClockUnit /*unit*/, int64_t last, int64_t /*micros*/) {
    return last + 1;
}

int64_t LargestGapOf(Container /*container*/, ClockUnit /*unit*/) {
    return INT64_MAX;
}

int64_t DurationUntil(ClockUnit /*unit*/, int64_t /*time*/, int64_t /*end*/) {
    return 1;
}

std::vector<uint8_t> TextPayload(Container /*container*/, const std::string& /*text*/) {
    return {};
}

std::string TitleOfTracks(uint32_t /*channel*/) {
    return {};
}

const char* KeyOfStart(Container /*container*/, const std::string& /*startTime*/) {
    return "";
}

std::optional<LeftOutReason> RefusalOf(Container /*container*/, const Track& /*track*/,
                                       const recordings::Frame& /*frame*/) {
    return LeftOutReason::NotForContainer;
}

std::optional<Encoding> EncodingFor(Container /*container*/, const Track& /*track*/,
                                    LeftOutReason /*refusal*/) {
    return std::nullopt;
}

class SoundDecoder::Child {};

// NOLINTNEXTLINE(performance-unnecessary-value-param): the constructor that decodes keeps it
SoundDecoder::SoundDecoder(std::function<void()> /*meanwhile*/) {}

SoundDecoder::~SoundDecoder() = default;

std::optional<std::vector<float>> SoundDecoder::Decode(uint32_t /*stream*/, const AudioCodec& /*codec*/,
                                                       const recordings::Frame& /*frame*/) {
    return std::nullopt;
}

class PacketReader::Impl {};

PacketReader::PacketReader(const recordings::Source& file, Container /*container*/) {
    throw Error(ErrorKind::NoContainers,
                file.Name() + ": cannot be read: libavformat was not there when this was built");
}

PacketReader::~PacketReader() = default;

size_t PacketReader::Streams() const {
    return 0;
}

bool PacketReader::HasLengths(size_t /*stream*/) const {
    return false;
}

ClockUnit PacketReader::Unit(size_t /*stream*/) const {
    return {};
}

ClockUnit PacketReader::TextUnit() const {
    return {};
}

FileFacts PacketReader::Facts() const {
    return {};
}

bool PacketReader::Next(Packet& /*packet*/) {
    return false;
}

} // namespace media
