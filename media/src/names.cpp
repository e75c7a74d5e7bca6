#include <filesystem>

#include <fmt/format.h>

#include "media/sink.h"
#include "media/stills.h"

namespace media {

const char* NameOf(Container container) {
    switch (container) {
    case Container::Matroska:
        return "matroska";
    case Container::Mp4:
        return "mp4";
    default:
        return "raw";
    }
}

std::string SuffixedName(const std::string& path, const std::string& suffix) {
    const std::filesystem::path whole(path);
    std::filesystem::path name = whole.stem();
    name += suffix;
    name += whole.extension();
    return (whole.parent_path() / name).string();
}

std::string PartName(const std::string& path, size_t number) {
    return SuffixedName(path, fmt::format("-{}", number));
}

const char* NameOf(LeftOutReason reason) {
    switch (reason) {
    case LeftOutReason::EncodingUnknown:
        return "encoding_unknown";
    case LeftOutReason::NotForContainer:
        return "not_for_container";
    case LeftOutReason::NoPictureSize:
        return "no_picture_size";
    case LeftOutReason::FrameTooLarge:
        return "frame_too_large";
    default:
        return "track_begun_too_late";
    }
}

const char* NameOf(StillState state) {
    switch (state) {
    case StillState::Whole:
        return "whole";
    case StillState::Damaged:
        return "damaged";
    case StillState::NotRecorded:
        return "not recorded";
    case StillState::KeyFrameMissing:
        return "key frame missing";
    case StillState::NotDecodable:
        return "not decodable";
    default:
        return "unknown codec";
    }
}

std::string Describe(LeftOutReason reason, Container container, const Track& track) {
    switch (reason) {
    case LeftOutReason::EncodingUnknown:
        return "its encoding is not known";
    case LeftOutReason::NotForContainer:
        return fmt::format("{} cannot hold {}", NameOf(container), track.Codec());
    case LeftOutReason::NoPictureSize:
        return "its key frames do not say how large the picture is";
    case LeftOutReason::FrameTooLarge:
        return "no container's frames can be as large";
    default:
        return "it begins after the file's tracks were laid down";
    }
}

} // namespace media
