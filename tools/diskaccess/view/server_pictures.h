#ifndef DISKACCESS_VIEW_SERVER_PICTURES_H
#define DISKACCESS_VIEW_SERVER_PICTURES_H

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "media/picture_series.h"
#include "recordings/frame.h"
#include "recordings/query.h"

namespace diskaccess::view {

/// A picture that the server has decoded.
struct ServerPicture {
    uint32_t channel = 0;
    int64_t time = 0;           ///< of its frame
    media::SeriesPicture bytes; ///< a JPEG file; empty: no picture comes of the frame
};

/// Decodes cameras that the browser cannot decode. Frames are collected until they can be decoded together: from one key
/// frame up to another.
class ServerPictures {
public:
    /// What a page asks for.
    struct Wanted {
        int64_t from = 0;       ///< microseconds: pictures from here on
        bool lastBefore = true; ///< also the last one before that, which stands there at that time
        uint32_t height = 0;    ///< those that are higher are made smaller
    };
    using Take = std::function<void(const ServerPicture& picture)>;

    /// @param turn held while a child decodes: one does at a time
    /// @param take gets each picture, those of one camera in their order
    ServerPictures(const Wanted& wanted, std::mutex& turn, Take take)
        : m_wanted(wanted), m_turn(turn), m_take(std::move(take)) {}

    /// Takes a video frame of any camera, in recording order.
    /// @param payload as many bytes as the frame has
    void Add(const recordings::Frame& frame, const char* payload);
    /// Decodes what has been collected.
    void Finish();

private:
    /// Frames of one camera. The first of them is a key frame, if there was any.
    struct Group {
        std::vector<media::SeriesFrame> frames;
        std::vector<int64_t> times;
        size_t bytes = 0;
    };

    /// @param next time of the frame that follows; what lies before the wanted time needs none of it
    void Decode(uint32_t channel, int64_t next);
    void MarkWanted(Group& group, int64_t next) const;

    Wanted m_wanted;
    std::mutex& m_turn;
    Take m_take;
    std::array<Group, recordings::kChannels> m_groups;
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_SERVER_PICTURES_H
