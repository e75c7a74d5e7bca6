#ifndef MEDIA_SRC_CLOCK_TEXT_H
#define MEDIA_SRC_CLOCK_TEXT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace media {

/// What a container's text track shows: the recorded time of each second in which there is a frame. Where nothing was
/// recorded, nothing is shown.
class ClockText {
public:
    struct Cue {
        int64_t place = 0; ///< in the container, microseconds
        int64_t end = 0;
        std::string text;
    };

    /// @param words says a time stamp's second in words
    explicit ClockText(std::function<std::string(int64_t)> words) : m_words(std::move(words)) {}

    /// The cue that begins with a frame, if one does: the first frame of its second. It lasts until the second is over.
    /// @param place of the frame in the container
    /// @param segment number of the stretch, the newest there is, in which the container's time follows the recorder's clock
    std::optional<Cue> Next(int64_t time, int64_t place, size_t segment);

    /// Where the cue of a frame ends.
    static int64_t EndOf(int64_t time, int64_t place);
    std::string TextOf(int64_t time) const { return m_words(time); }

private:
    std::function<std::string(int64_t)> m_words;
    std::optional<int64_t> m_second; ///< that was shown last, in the segment
    size_t m_segment = 0;
};

/// What a container's text track says of a time stamp.
/// @param words beside the channels
/// @param channels of its tracks, in order; a channel may have two
std::function<std::string(int64_t)> WithChannels(std::function<std::string(int64_t)> words,
                                                 const std::vector<uint32_t>& channels);

} // namespace media

#endif // MEDIA_SRC_CLOCK_TEXT_H
