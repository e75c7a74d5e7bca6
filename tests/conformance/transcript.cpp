#include "conformance/transcript.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace conformance {

namespace {

size_t g_calls = 0;

/// A text field up to its terminator, which need not be there, with other than printable characters in
/// hexadecimal.
template <size_t Size>
std::string Text(const char (&field)[Size]) {
    std::string text = "\"";
    for (size_t i = 0; i < Size && field[i] != '\0'; ++i) {
        const auto byte = static_cast<unsigned char>(field[i]);
        if (byte >= 0x20 && byte < 0x7F) {
            text += field[i];
        } else {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", unsigned{byte});
            text += code;
        }
    }
    return text + '"';
}

unsigned long long Wide(uint64_t value) {
    return value;
}

void ShowProperties(const ChnProp_t& prop, size_t first, size_t last) {
    Note("  prop %u-%u: %u %u %u %u %u %u %u %u %u %u %u %u", static_cast<unsigned int>(first),
         static_cast<unsigned int>(last), prop.Bitrate, unsigned{prop.VType}, unsigned{prop.FrameRate},
         unsigned{prop.Resolution}, unsigned{prop.gop}, prop.Sample, prop.BitWidth, prop.audio_frame_len,
         unsigned{prop.AType}, unsigned{prop.propRes}, unsigned{prop.Reserved[0]},
         unsigned{prop.Reserved[1]});
}

} // namespace

Random::Random(const std::string& seed) : m_engine(static_cast<uint32_t>(Digest(seed.data(), seed.size()))) {}

uint64_t Digest(const void* data, size_t size) {
    uint64_t digest = 0xCBF29CE484222325;
    const auto* const bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) {
        digest = (digest ^ bytes[i]) * 0x100000001B3;
    }
    return digest;
}

void Note(const char* format, ...) {
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
    std::putchar('\n');
}

long long Result(long long result, const char* format, ...) {
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
    std::printf(" = %lld\n", result);
    ++g_calls;
    return result;
}

size_t CallsMade() {
    return g_calls;
}

void Show(const RecordItem_t& record) {
    Note("  record %08x chn %u %u-%u size %u alarm %llx flag %u", record.recId, record.chn, record.startTime,
         record.endTime, record.size, Wide(record.alarmType), record.flag);
}

void Show(const EventItem_t& event) {
    Note("  event %08x at %u type %llx", event.eventId, event.time, Wide(event.alarmType));
}

void Show(const UnitItem_t& unit) {
    Note("  unit %u at %u", unit.unitId, unit.recTime);
}

void Show(const UnitTimeItem_t& unit) {
    Note("  unit %u %u-%u", unit.unitId, unit.startTime, unit.endTime);
}

void Show(unsigned int value) {
    Note("  %u", value);
}

void Show(const OutputTime_t& region) {
    Note("  region %u-%u", region.startTime, region.endTime);
}

void Show(const DiskSpaceInfo_t& space) {
    Note("  space %llu free %llu", Wide(space.totalSize), Wide(space.freeSize));
}

void Show(const BlockHead_t& head) {
    Note("  head %08x time %u seq %u pre %u delay %u num %s id %s channels %08x", head.ValidFlag,
         head.RecTime, head.RecSeq, head.pre_RecTime, head.AlmDelayTime, Text(head.VehicleNum).c_str(),
         Text(head.VehicleID).c_str(), head.media_chn_bitmap);
    constexpr size_t kChannels = sizeof head.prop / sizeof head.prop[0];
    size_t first = 0;
    for (size_t chn = 1; chn <= kChannels; ++chn) {
        if (chn == kChannels || std::memcmp(&head.prop[chn], &head.prop[first], sizeof head.prop[0]) != 0) {
            ShowProperties(head.prop[first], first, chn - 1);
            first = chn;
        }
    }
}

void Show(const BlkExtHead_t& head) {
    Note("  extended head %u %08x %016llx", head.ExtParaValid, head.ExtPara,
         Wide(Digest(head.Reserved, sizeof head.Reserved)));
}

void Show(const BlockTail_t& tail) {
    Note("  tail %u closed %u seq %u %u-%u", tail.Reserved, tail.CloseState, tail.RecSeq, tail.StartTime,
         tail.EndTime);
}

void Show(const BlockTailEx_t& tail) {
    Note("  extended tail seq %u %u-%u", tail.RecSeq, tail.StartTime, tail.EndTime);
}

void Show(const RecSegItem_t& segment) {
    Note("  segment %u-%u at %u-%u size %u", segment.s, segment.e, segment.spos, segment.epos,
         segment.totalsize);
}

void Show(const FrameHead_t& frame) {
    Note("  frame %lld sync %08x type %u chn %u len %u", static_cast<long long>(frame.pts), frame.sync,
         frame.type, frame.chn, frame.len);
}

void Show(const FrameInfo_t& frame) {
    Note("  frame %llu type %u chn %u len %u", Wide(frame.pts), frame.type, frame.chn, frame.len);
}

void Show(const EncodeParam_t& parameters) {
    Note("  pre %u delay %u chn %u video %u rate %u audio %u bitrate %u gop %u sample %u width %u len %u res "
         "%u "
         "size %u num %s id %s",
         parameters.pre_RecTime, parameters.AlmDelayTime, parameters.chn, parameters.VType,
         parameters.FrameRate, parameters.AType, parameters.Bitrate, parameters.gop, parameters.Sample,
         parameters.BitWidth, parameters.audio_frame_len, parameters.propRes, parameters.Resolution,
         Text(parameters.VehicleNum).c_str(), Text(parameters.VehicleID).c_str());
}

void Show(const PartReadHandle_st& reader) {
    Note("  reader type %d block %u", reader.ChnType, reader.BlockNum);
    Show(reader.RecItem);
}

void ShowDigest(size_t count, uint64_t digest) {
    Note("  %u in all, digest %016llx", static_cast<unsigned int>(count), Wide(digest));
}

Payload::~Payload() {
    std::free(m_buffer);
}

void Payload::ShowBytes(uint32_t length) const {
    Note("  payload %016llx", Wide(Digest(m_buffer, length)));
}

} // namespace conformance
