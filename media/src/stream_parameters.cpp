#include "stream_parameters.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "media/error.h"
#include "memory_file.h"
#include "muxer.h"

namespace media {

namespace {

Parameters NewParameters() {
    Parameters parameters(avcodec_parameters_alloc());
    if (!parameters) {
        throw std::bad_alloc();
    }
    return parameters;
}

/// How MP4 shows texts: at the bottom, in the middle, white; by a font named "Serif", which players replace by their own.
constexpr std::array<uint8_t, 48> kTextStyle = {
    0,    0,    0,    0,                              // display flags
    1,    0xFF, 0,    0,    0,   0,                   // centred, at the bottom, on nothing
    0,    0,    0,    0,    0,   0,   0,   0,         // box: all there is
    0,    0,    0,    0,    0,   1,   0,   18,        // style: font 1, of 18 points
    0xFF, 0xFF, 0xFF, 0xFF,                           // white
    0,    0,    0,    18,   'f', 't', 'a', 'b', 0, 1, // one font
    0,    1,    5,    'S',  'e', 'r', 'i', 'f'};

/// A packet of its own memory, as parsers and filters want it.
Packet PacketOf(const recordings::Frame& frame) {
    Packet packet(av_packet_alloc());
    if (!packet || av_new_packet(packet.get(), static_cast<int>(frame.size)) < 0) {
        throw std::bad_alloc();
    }
    std::copy_n(frame.data, frame.size, packet->data);
    return packet;
}

bool SetExtradata(AVCodecParameters& parameters, const uint8_t* data, size_t size) {
    auto* const copy = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::copy_n(data, size, copy);
    av_freep(&parameters.extradata);
    parameters.extradata = copy;
    parameters.extradata_size = static_cast<int>(size);
    return size != 0;
}

/// Takes the parameter sets out of a key frame: containers keep them once, at their beginning.
bool TakeParameterSets(const recordings::Frame& keyFrame, AVCodecParameters& parameters) {
    AVBSFContext* made = nullptr;
    const AVBitStreamFilter* const kind = av_bsf_get_by_name("extract_extradata");
    if (kind == nullptr || av_bsf_alloc(kind, &made) < 0) {
        return false;
    }
    const Filter filter(made);
    const Packet packet = PacketOf(keyFrame);
    if (avcodec_parameters_copy(filter->par_in, &parameters) < 0 || av_bsf_init(filter.get()) < 0 ||
        av_bsf_send_packet(filter.get(), packet.get()) < 0 ||
        av_bsf_receive_packet(filter.get(), packet.get()) < 0) {
        return false;
    }
    size_t size = 0;
    const uint8_t* const sets = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
    return sets != nullptr && SetExtradata(parameters, sets, size);
}

/// Reads the picture's size out of a key frame.
bool TakePictureSize(const recordings::Frame& keyFrame, AVCodecParameters& parameters) {
    const Parser parser(av_parser_init(parameters.codec_id));
    const Codec codec(avcodec_alloc_context3(nullptr));
    if (!parser || !codec) {
        return false;
    }
    codec->codec_id = parameters.codec_id;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    const Packet packet = PacketOf(keyFrame);
    uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(parser.get(), codec.get(), &out, &outSize, packet->data, packet->size, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, 0);
    parameters.width = parser->width;
    parameters.height = parser->height;
    return parser->width > 0 && parser->height > 0;
}

/// Whether a file can be made of such a track. A forged head may state what no container can, as a sample rate of four
/// thousand million, and of some encodings a file must tell what a recorder does not; libavformat says so only when it writes
/// a file.
bool CanWrite(Container container, const AVCodecParameters& parameters) {
    MemoryFile file;
    Muxer muxer("a track", container, file);
    muxer.AddStream(parameters, 0);
    // It begins as each frame of AAC does that tells by itself how it is encoded: MP4 takes no such frames.
    constexpr uint8_t anything[4] = {0xFF, 0xF1, 0x6C, 0x40};
    try {
        muxer.Start({});
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            muxer.Write(0, anything, sizeof anything, 0, true);
            muxer.Finish();
        }
        return true;
    } catch (const Error&) {
        return false;
    }
}

/// Whether nobody can decode sound, for want of what stands beside it in files.
bool CannotDecode(const AVCodecParameters& parameters) {
    return avcodec_find_decoder(parameters.codec_id) != nullptr && !OpenDecoder(parameters);
}

/// Puts the parameter sets into the form that containers keep them in. libavformat knows how, but does it only while it
/// writes a file: so it writes one, and reads it.
/// @return false when the sets are not such that a file can be made of them
bool StoreParameterSets(AVCodecParameters& parameters) {
    MemoryFile file;
    Muxer muxer("parameter sets", Container::Matroska, file);
    muxer.AddStream(parameters, 0);
    constexpr uint8_t anything[4] = {};
    try {
        muxer.Start({});
        muxer.Write(0, anything, sizeof anything, 0, true);
        muxer.Finish();
    } catch (const Error&) {
        return false;
    }
    const Parameters stored = file.StreamParameters();
    if (stored && stored->extradata_size > 0 && stored->extradata[0] == 1) {
        SetExtradata(parameters, stored->extradata, static_cast<size_t>(stored->extradata_size));
    }
    return true;
}

} // namespace

AVCodecID CodecOf(const Track& track) {
    if (track.isVideo) {
        return track.video == VideoCodec::H264   ? AV_CODEC_ID_H264
               : track.video == VideoCodec::H265 ? AV_CODEC_ID_HEVC
                                                 : AV_CODEC_ID_NONE;
    }
    const AVCodecDescriptor* const codec = avcodec_descriptor_get_by_name(track.audio.name.c_str());
    return codec == nullptr || codec->type != AVMEDIA_TYPE_AUDIO || !track.audio.Known() ? AV_CODEC_ID_NONE
                                                                                         : codec->id;
}

bool CanDecodeAudio(const std::string& name) {
    const AVCodecDescriptor* const codec = avcodec_descriptor_get_by_name(name.c_str());
    return codec != nullptr && codec->type == AVMEDIA_TYPE_AUDIO &&
           avcodec_find_decoder(codec->id) != nullptr;
}

Parameters VideoParameters(AVCodecID codec, const recordings::Frame& keyFrame) {
    Parameters parameters = NewParameters();
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = codec;
    const bool complete = TakeParameterSets(keyFrame, *parameters) &&
                          TakePictureSize(keyFrame, *parameters) && StoreParameterSets(*parameters);
    return complete ? std::move(parameters) : nullptr;
}

Parameters AudioParameters(AVCodecID codec, const Track& track) {
    Parameters parameters = NewParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = codec;
    parameters->sample_rate = static_cast<int>(track.audio.sampleRate);
    parameters->bits_per_coded_sample = av_get_bits_per_sample(codec);
    parameters->block_align = parameters->bits_per_coded_sample / 8;
    av_channel_layout_default(&parameters->ch_layout, 1);
    return parameters;
}

Codec OpenDecoder(const AVCodecParameters& parameters) {
    const AVCodec* const decoder = avcodec_find_decoder(parameters.codec_id);
    Codec codec(decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder));
    if (!codec || avcodec_parameters_to_context(codec.get(), &parameters) < 0) {
        return nullptr;
    }
    codec->thread_count = 1;
    return avcodec_open2(codec.get(), decoder, nullptr) >= 0 ? std::move(codec) : nullptr;
}

Parameters TextParameters(Container container) {
    Parameters parameters = NewParameters();
    parameters->codec_type = AVMEDIA_TYPE_SUBTITLE;
    parameters->codec_id = container == Container::Mp4 ? AV_CODEC_ID_MOV_TEXT : AV_CODEC_ID_SUBRIP;
    if (container == Container::Mp4) {
        SetExtradata(*parameters, kTextStyle.data(), kTextStyle.size());
    }
    return parameters;
}

std::optional<LeftOutReason> Examine(Container container, const Track& track, const recordings::Frame& frame,
                                     Parameters& parameters) {
    const AVCodecID codec = CodecOf(track);
    if (codec == AV_CODEC_ID_NONE) {
        return LeftOutReason::EncodingUnknown;
    }
    // A-law in Matroska goes by the name it has in WAV files; every player knows it.
    const AVOutputFormat* const format = av_guess_format(NameOf(container), nullptr, nullptr);
    if (format == nullptr || avformat_query_codec(format, codec, FF_COMPLIANCE_UNOFFICIAL) != 1) {
        return LeftOutReason::NotForContainer;
    }
    parameters = track.isVideo ? VideoParameters(codec, frame) : AudioParameters(codec, track);
    if (!parameters) {
        return LeftOutReason::NoPictureSize;
    }
    const bool can = CanWrite(container, *parameters) && (track.isVideo || !CannotDecode(*parameters));
    return can ? std::nullopt : std::optional(LeftOutReason::NotForContainer);
}

bool WantsLengths(const AVCodecParameters& parameters) {
    return parameters.codec_type == AVMEDIA_TYPE_VIDEO && parameters.extradata_size > 0 &&
           parameters.extradata[0] == 1;
}

} // namespace media
