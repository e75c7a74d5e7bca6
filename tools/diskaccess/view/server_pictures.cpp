#include "view/server_pictures.h"

#include <limits>
#include <optional>
#include <utility>

namespace diskaccess::view {

namespace {

constexpr size_t kFewFrames = 16;    ///< fewer are not worth a process of their own
constexpr size_t kMostFrames = 1000; ///< from one key frame to the next; no camera comes near it
constexpr size_t kMostBytes = size_t{8} << 20;

} // namespace

void ServerPictures::Add(const recordings::Frame& frame, const char* payload) {
    Group& group = m_groups.at(frame.channel);
    const bool key = frame.type == recordings::kKeyFrame;
    const bool full = group.frames.size() >= kMostFrames || group.bytes + frame.size > kMostBytes;
    if ((key && group.frames.size() >= kFewFrames) || full) {
        Decode(frame.channel, frame.time);
    }
    media::SeriesFrame entry;
    entry.payload.assign(payload, payload + frame.size);
    group.frames.push_back(std::move(entry));
    group.times.push_back(frame.time);
    group.bytes += frame.size;
}

void ServerPictures::Finish() {
    for (uint32_t channel = 0; channel < m_groups.size(); ++channel) {
        Decode(channel, std::numeric_limits<int64_t>::max());
    }
}

void ServerPictures::MarkWanted(Group& group, int64_t next) const {
    for (size_t i = 0; i < group.frames.size(); ++i) {
        const int64_t after = i + 1 < group.frames.size() ? group.times[i + 1] : next;
        const bool standsThere = m_wanted.lastBefore && after > m_wanted.from;
        group.frames[i].wanted = group.times[i] >= m_wanted.from || standsThere;
    }
}

void ServerPictures::Decode(uint32_t channel, int64_t next) {
    Group group = std::exchange(m_groups.at(channel), {});
    MarkWanted(group, next);
    while (!group.frames.empty() && !group.frames.back().wanted) {
        group.frames.pop_back(); // nothing that is wanted needs it
    }
    if (group.frames.empty()) {
        return;
    }
    std::optional<std::vector<media::SeriesPicture>> pictures;
    for (int tries = 0; !pictures && tries < 2; ++tries) { // somebody may have ended the child
        const std::lock_guard<std::mutex> lock(m_turn);
        pictures = media::DecodeSeries(group.frames, m_wanted.height);
    }
    size_t count = 0;
    for (size_t i = 0; i < group.frames.size(); ++i) {
        if (group.frames[i].wanted) {
            m_take({channel, group.times[i],
                    pictures ? std::move(pictures->at(count)) : media::SeriesPicture()});
            ++count;
        }
    }
}

} // namespace diskaccess::view
