#include "memory_file.h"

#include <algorithm>
#include <new>

namespace media {

namespace {

constexpr int kReadSize = 4096;

struct CloseInput {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};
struct FreeIo {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};

} // namespace

void MemoryFile::Write(const uint8_t* data, size_t size) {
    m_bytes.resize(std::max(m_bytes.size(), m_position + size));
    std::copy_n(data, size, m_bytes.begin() + static_cast<ptrdiff_t>(m_position));
    m_position += size;
}

int MemoryFile::Read(void* file, uint8_t* data, int size) {
    auto& self = *static_cast<MemoryFile*>(file);
    const size_t got = std::min(static_cast<size_t>(size), self.m_bytes.size() - self.m_position);
    std::copy_n(self.m_bytes.begin() + static_cast<ptrdiff_t>(self.m_position), got, data);
    self.m_position += got;
    return got == 0 ? AVERROR_EOF : static_cast<int>(got);
}

Parameters MemoryFile::StreamParameters() {
    m_position = 0;
    auto* const buffer = static_cast<unsigned char*>(av_malloc(kReadSize));
    AVFormatContext* context = avformat_alloc_context();
    const std::unique_ptr<AVIOContext, FreeIo> io(
        avio_alloc_context(buffer, kReadSize, 0, this, Read, nullptr, nullptr));
    if (buffer == nullptr || context == nullptr || !io) {
        throw std::bad_alloc();
    }
    context->pb = io.get();
    if (avformat_open_input(&context, nullptr, av_find_input_format("matroska"), nullptr) < 0) {
        return nullptr; // which has freed the context
    }
    const std::unique_ptr<AVFormatContext, CloseInput> input(context);
    Parameters parameters(avcodec_parameters_alloc());
    if (input->nb_streams == 0 || !parameters ||
        avcodec_parameters_copy(parameters.get(), input->streams[0]->codecpar) < 0) {
        return nullptr;
    }
    return parameters;
}

} // namespace media
