#include "media/picture_series.h"

#include <algorithm>
#include <cstring>

#include "child.h"
#include "picture_codec.h"
#include "video_decoder.h"

namespace media {

namespace {

/// Good enough to look at; half the bytes of the best.
constexpr int kQuality = 4;

constexpr uint64_t kMostBytes = uint64_t{64} << 20; ///< of all pictures of a series
constexpr uint32_t kSeconds = 10;

/// What a child answers before a picture.
struct PictureHead {
    uint32_t frame;
    uint32_t size;
};

// ---- in the child

/// Makes JPEG files of decoded pictures.
class JpegMaker {
public:
    explicit JpegMaker(uint32_t height) : m_height(height) {}

    /// @return null when none can be made
    Packet Make(const AVFrame& picture) {
        if (!m_frame || picture.width != m_width || picture.height != m_sourceHeight ||
            picture.format != m_format) {
            Begin(picture);
        }
        Packet packet(av_packet_alloc());
        if (!m_codec || !packet || av_frame_make_writable(m_frame.get()) < 0) {
            return nullptr;
        }
        sws_scale(m_scaler.get(), picture.data, picture.linesize, 0, picture.height, m_frame->data,
                  m_frame->linesize);
        m_frame->quality = FF_QP2LAMBDA * kQuality;
        if (avcodec_send_frame(m_codec.get(), m_frame.get()) < 0 ||
            avcodec_receive_packet(m_codec.get(), packet.get()) < 0) {
            return nullptr;
        }
        return packet;
    }

private:
    void Begin(const AVFrame& picture) {
        m_width = picture.width;
        m_sourceHeight = picture.height;
        m_format = picture.format;
        m_codec.reset();
        m_frame.reset(av_frame_alloc());
        if (!m_frame || !SizeAllowed(picture.width, picture.height)) {
            return;
        }
        const int height = std::min(picture.height, static_cast<int>(m_height));
        m_frame->height = height;
        m_frame->width = static_cast<int>(
            std::max<int64_t>(1, (int64_t{picture.width} * height + picture.height / 2) / picture.height));
        m_frame->format = AV_PIX_FMT_YUVJ420P;
        m_frame->color_range = AVCOL_RANGE_JPEG;
        m_scaler.reset(sws_getContext(picture.width, picture.height,
                                      static_cast<AVPixelFormat>(picture.format), m_frame->width, height,
                                      AV_PIX_FMT_YUVJ420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (m_scaler && av_frame_get_buffer(m_frame.get(), 0) >= 0) {
            SetColours(*m_scaler, picture, SWS_CS_ITU601);
            m_codec = OpenEncoder(AV_CODEC_ID_MJPEG, *m_frame, kQuality);
        }
    }

    uint32_t m_height;
    int m_width = 0;
    int m_sourceHeight = 0;
    int m_format = -1;
    FramePointer m_frame;
    Scaler m_scaler;
    Codec m_codec;
};

/// Decodes a series, and writes the pictures of the wanted frames as they come.
class SeriesDecoder {
public:
    SeriesDecoder(int answer, const std::vector<SeriesFrame>& frames, uint32_t height)
        : m_answer(answer), m_frames(frames), m_maker(height) {}

    bool Run(VideoCodec kind) {
        VideoDecoder decoder(kind);
        bool written = decoder.Ready();
        const auto take = [&](const AVFrame& picture, int64_t number) {
            written = written && Write(picture, number);
        };
        for (size_t i = 0; written && i < m_frames.size(); ++i) {
            decoder.Take(m_frames[i].payload, take);
        }
        if (written) {
            decoder.Finish(take);
        }
        return written;
    }

private:
    bool Write(const AVFrame& picture, int64_t number) {
        const bool known = number >= 0 && number < static_cast<int64_t>(m_frames.size());
        if (!known || !m_frames[static_cast<size_t>(number)].wanted || VideoDecoder::Damaged(picture)) {
            return true;
        }
        const Packet jpeg = m_maker.Make(picture);
        if (!jpeg) {
            return true;
        }
        const PictureHead head = {static_cast<uint32_t>(number), static_cast<uint32_t>(jpeg->size)};
        return WriteAll(m_answer, &head, sizeof head) && WriteAll(m_answer, jpeg->data, head.size);
    }

    int m_answer;
    const std::vector<SeriesFrame>& m_frames;
    JpegMaker m_maker;
};

// ---- in the parent

/// Takes the answer of a child apart, which may be anything.
std::optional<std::vector<SeriesPicture>> PicturesOf(const std::vector<uint8_t>& answer,
                                                     const std::vector<SeriesFrame>& frames) {
    std::vector<SeriesPicture> all(frames.size());
    for (size_t at = 0; at < answer.size();) {
        PictureHead head = {};
        if (answer.size() - at < sizeof head) {
            return std::nullopt;
        }
        std::memcpy(&head, answer.data() + at, sizeof head);
        at += sizeof head;
        if (head.frame >= all.size() || head.size > answer.size() - at) {
            return std::nullopt;
        }
        const auto begin = answer.begin() + static_cast<std::ptrdiff_t>(at);
        all[head.frame].assign(begin, begin + static_cast<std::ptrdiff_t>(head.size));
        at += head.size;
    }
    std::vector<SeriesPicture> wanted;
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].wanted) {
            wanted.push_back(std::move(all[i]));
        }
    }
    return wanted;
}

} // namespace

std::optional<std::vector<SeriesPicture>> DecodeSeries(const std::vector<SeriesFrame>& frames,
                                                       uint32_t height) {
    const VideoCodec kind = frames.empty()
                                ? VideoCodec::Unknown
                                : DetectVideo(frames.front().payload.data(), frames.front().payload.size());
    if (kind == VideoCodec::Unknown || height == 0) {
        return PicturesOf({}, frames);
    }
    ChildLimits limits;
    limits.seconds = kSeconds;
    limits.answer = kMostBytes;
    const auto work = [&](int answer) { return SeriesDecoder(answer, frames, height).Run(kind); };
    const auto answer = InChild(work, limits);
    return answer ? PicturesOf(*answer, frames) : std::nullopt;
}

} // namespace media
