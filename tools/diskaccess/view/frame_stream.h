#ifndef DISKACCESS_VIEW_FRAME_STREAM_H
#define DISKACCESS_VIEW_FRAME_STREAM_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "media/track.h"
#include "recordings/range_frames.h"
#include "view/disk_pool.h"
#include "view/http.h"
#include "view/server_pictures.h"
#include "view/survey.h"

namespace diskaccess::view {

/// What the page asks of frames. Times are microseconds on the recorder's clock.
struct FramesQuery {
    enum class Kind { All, KeyFrames, Audio };

    int64_t from = 0;
    int64_t to = 0; ///< included
    recordings::ChannelSet channels;
    Kind kind = Kind::All;
    /// Begin each camera with its last key frame at or before the start, so that its picture can be decoded; else exactly
    /// at the start.
    bool fromKeyFrame = true;
    /// Pictures that the server has decoded, of at most this height, instead of frames; 0: frames.
    uint32_t pictureHeight = 0;
};

/// The kinds of records that a stream of frames is made of. The first three are the recorder's frame types.
enum class RecordKind : uint8_t {
    Picture = 0,
    KeyFrame = 1,
    Audio = 2,
    Jpeg = 3,  ///< a picture that the server has decoded: a JPEG file; empty when no picture comes of a frame
    Loss = 16, ///< something is missing here: a JSON document with a text
    Codec = 17, ///< how the audio that follows is encoded: a JSON document
    End =
        18 ///< the last record: a JSON document that says whether all was sent. A stream without it was cut off
};

/// The frames of a stretch as the page takes them, in recording order. Each record is a head of 16 bytes (its length
/// without the head: 4; kind: 1; channel: 1; zeros: 2; time: 8; all with the least significant byte first), and then a
/// payload.
class FrameStream : public Stream {
public:
    /// @param decoding held while pictures are decoded
    /// @param texts makes a line of a problem
    FrameStream(std::shared_ptr<const recordings::Disk> disk,
                std::shared_ptr<const recordings::BlockList> blocks, const Survey& survey,
                const FramesQuery& query, std::mutex& decoding,
                std::function<std::string(const recordings::Problem&)> texts);

    std::string Next() override;

private:
    void BeginPictures(std::mutex& decoding);
    void AppendFrames(std::string& piece);
    bool Wanted(const recordings::Frame& frame) const;
    void AppendFrame(std::string& piece, const recordings::Frame& frame);
    void AppendPictures(std::string& piece);
    void AppendCodec(std::string& piece, const recordings::Frame& frame);
    void AppendLosses(std::string& piece);
    void AppendEnd(std::string& piece, bool complete);

    std::shared_ptr<const recordings::Disk> m_disk;
    std::shared_ptr<const recordings::BlockList> m_blocks;
    const Survey& m_survey;
    FramesQuery m_query;
    std::function<std::string(const recordings::Problem&)> m_texts;
    std::deque<recordings::Problem> m_losses; ///< met, but not sent yet
    std::unique_ptr<recordings::RangeFrames> m_frames;
    std::string m_payload;
    std::unique_ptr<ServerPictures> m_pictures; ///< where the server decodes
    std::string m_decoded;                      ///< records of pictures that were not sent yet
    uint64_t m_sent = 0;
    int64_t m_lastTime = 0;
    uint32_t m_codecBlock = 0xFFFFFFFF; ///< the block that m_codecs is of
    media::AudioCodec m_codecs[recordings::kChannels];
    std::string m_announced[recordings::kChannels]; ///< the codec that the page knows of
    bool m_ended = false;
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_FRAME_STREAM_H
