#include "view/frame_stream.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "recordings/block_frames.h"
#include "recordings/records.h"

namespace diskaccess::view {

namespace {

using nlohmann::json;
using recordings::Frame;
using recordings::Problem;
using recordings::Span;
using recordings::TimeRange;

constexpr size_t kPiece = size_t{256} << 10;
constexpr uint64_t kMostBytes = uint64_t{64} << 20; ///< of one answer

TimeRange RangeOf(const FramesQuery& query) {
    return {recordings::SecondOf(query.from), recordings::SecondOf(query.to)};
}

template <typename T>
void AppendNumber(std::string& bytes, T number) {
    for (size_t i = 0; i < sizeof(T); ++i) {
        bytes.push_back(static_cast<char>(static_cast<uint64_t>(number) >> (8 * i) & 0xFF));
    }
}

void AppendHead(std::string& bytes, RecordKind kind, uint32_t channel, int64_t time, size_t length) {
    AppendNumber(bytes, static_cast<uint32_t>(length));
    AppendNumber(bytes, static_cast<uint8_t>(kind));
    AppendNumber(bytes, static_cast<uint8_t>(channel));
    AppendNumber(bytes, uint16_t{0});
    AppendNumber(bytes, time);
}

void AppendDocument(std::string& bytes, RecordKind kind, uint32_t channel, int64_t time,
                    const json& document) {
    const std::string text = document.dump(-1, ' ', false, json::error_handler_t::replace);
    AppendHead(bytes, kind, channel, time, text.size());
    bytes += text;
}

} // namespace

FrameStream::FrameStream(std::shared_ptr<const recordings::Disk> disk,
                         std::shared_ptr<const recordings::BlockList> blocks, const Survey& survey,
                         const FramesQuery& query, std::mutex& decoding,
                         std::function<std::string(const Problem&)> texts)
    : m_disk(std::move(disk)), m_blocks(std::move(blocks)), m_survey(survey), m_query(query),
      m_texts(std::move(texts)), m_lastTime(query.from) {
    recordings::FrameQuery frames;
    frames.range = RangeOf(query);
    frames.channels = query.channels.Without(m_disk->Hidden());
    frames.decodable = query.fromKeyFrame || query.pictureHeight != 0;
    // Of key frames alone, the payloads of all others need not be read.
    frames.want = query.kind == FramesQuery::Kind::All ? recordings::Want::Payloads : recordings::Want::Heads;
    if (query.pictureHeight != 0) {
        BeginPictures(decoding);
    }
    m_frames =
        std::make_unique<recordings::RangeFrames>(*m_disk, *m_blocks, frames, [this](const Problem& problem) {
            if (problem.severity == recordings::Severity::Loss) {
                m_losses.push_back(problem);
            }
        });
}

void FrameStream::BeginPictures(std::mutex& decoding) {
    const ServerPictures::Wanted wanted = {m_query.from, m_query.fromKeyFrame, m_query.pictureHeight};
    m_pictures = std::make_unique<ServerPictures>(wanted, decoding, [this](const ServerPicture& picture) {
        AppendHead(m_decoded, RecordKind::Jpeg, picture.channel, picture.time, picture.bytes.size());
        m_decoded.append(picture.bytes.begin(), picture.bytes.end());
        m_sent += picture.bytes.size();
    });
}

std::string FrameStream::Next() {
    std::string piece;
    if (!m_ended) {
        AppendFrames(piece);
    }
    return piece;
}

void FrameStream::AppendFrames(std::string& piece) {
    Frame frame;
    while (piece.size() < kPiece) {
        if (m_sent >= kMostBytes || !m_frames->Next(frame)) {
            AppendLosses(piece);
            if (m_pictures) {
                m_pictures->Finish();
                AppendPictures(piece);
            }
            AppendEnd(piece, m_sent < kMostBytes);
            m_ended = true;
            return;
        }
        AppendLosses(piece);
        if (Wanted(frame)) {
            AppendFrame(piece, frame);
        }
    }
}

bool FrameStream::Wanted(const Frame& frame) const {
    // Pictures from before the start are needed to decode what follows; sound is not.
    const bool forPicture = frame.IsVideo() && (m_query.fromKeyFrame || m_pictures);
    const bool early = frame.time < m_query.from && !forPicture;
    if (frame.time > m_query.to || early) {
        return false;
    }
    switch (m_query.kind) {
    case FramesQuery::Kind::KeyFrames:
        return frame.type == recordings::kKeyFrame;
    case FramesQuery::Kind::Audio:
        return frame.IsAudio();
    default:
        return frame.IsVideo() || !m_pictures;
    }
}

void FrameStream::AppendFrame(std::string& piece, const Frame& frame) {
    if (frame.IsAudio()) {
        AppendCodec(piece, frame);
    }
    const auto* payload = reinterpret_cast<const char*>(frame.data);
    if (frame.data == nullptr) {
        m_payload.resize(frame.size);
        if (!recordings::ReadPayload(*m_disk, frame, m_payload.data())) {
            return;
        }
        payload = m_payload.data();
    }
    m_lastTime = frame.time;
    if (m_pictures) {
        m_pictures->Add(frame, payload);
        AppendPictures(piece);
        return;
    }
    AppendHead(piece, static_cast<RecordKind>(frame.type), frame.channel, frame.time, frame.size);
    piece.append(payload, frame.size);
    m_sent += frame.size;
}

void FrameStream::AppendPictures(std::string& piece) {
    piece += m_decoded;
    m_decoded.clear();
}

void FrameStream::AppendCodec(std::string& piece, const Frame& frame) {
    if (frame.block != m_codecBlock) {
        m_codecBlock = frame.block;
        const auto identity = recordings::ReadIdentity(*m_disk, frame.block);
        for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
            m_codecs[channel] =
                identity ? media::AudioOf(identity->properties[channel]) : media::AudioCodec();
        }
    }
    const media::AudioCodec& codec = m_codecs[frame.channel];
    const std::string name = codec.name + ":" + std::to_string(codec.sampleRate);
    if (m_announced[frame.channel] != name) {
        m_announced[frame.channel] = name;
        AppendDocument(piece, RecordKind::Codec, frame.channel, frame.time,
                       {{"codec", codec.name}, {"sample_rate", codec.sampleRate}});
    }
}

void FrameStream::AppendLosses(std::string& piece) {
    for (; !m_losses.empty(); m_losses.pop_front()) {
        const Problem& loss = m_losses.front();
        json document = {{"kind", NameOf(loss.kind)}, {"text", m_texts(loss)}};
        document["channel"] = loss.channel ? json(*loss.channel) : json(nullptr);
        document["before"] = loss.before ? json(*loss.before) : json(nullptr);
        document["after"] = loss.after ? json(*loss.after) : json(nullptr);
        AppendDocument(piece, RecordKind::Loss, loss.channel.value_or(0), loss.before.value_or(m_lastTime),
                       document);
    }
}

/// Tells, beside the end, in which seconds each camera was recorded: between them there is nothing to show.
void FrameStream::AppendEnd(std::string& piece, bool complete) {
    json spans = json::object();
    const TimeRange range = RangeOf(m_query);
    const auto add = [&spans](uint32_t channel, Span span) {
        spans[std::to_string(channel)].push_back({span.start, span.end});
    };
    if (m_survey.Complete()) {
        const Survey::Picture picture = m_survey.Recorded(range, 0);
        for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
            for (const Span& span : picture.channels.at(channel)) {
                add(channel, span);
            }
        }
    } else {
        ForEachRecord(*m_disk, *m_blocks, {range, m_query.channels}, {}, {},
                      [&add](const recordings::Record& record) {
                          add(record.channel, {record.start, record.end});
                      });
    }
    AppendDocument(piece, RecordKind::End, 0, m_lastTime, {{"complete", complete}, {"spans", spans}});
}

} // namespace diskaccess::view
