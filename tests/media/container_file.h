#ifndef TESTS_MEDIA_CONTAINER_FILE_H
#define TESTS_MEDIA_CONTAINER_FILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace media_test {

/// A container as a player sees it.
struct ContainerFile {
    struct Stream {
        std::string codec;
        int width = 0;
        int sampleRate = 0;
        std::vector<uint8_t> extradata;
        std::map<std::string, std::string> tags;
    };
    struct Packet {
        size_t stream = 0;
        int64_t micros = 0;
        bool key = false;
        int64_t duration = 0; ///< microseconds
        std::vector<uint8_t> data;
    };
    struct Chapter {
        int64_t start = 0; ///< microseconds
        int64_t end = 0;
        std::string title;
    };

    std::string format;
    int64_t duration = 0; ///< microseconds
    std::map<std::string, std::string> tags;
    std::vector<Stream> streams;
    std::vector<Chapter> chapters;
    std::vector<Packet> packets; ///< in the file's order

    /// @throws std::runtime_error when it is no container
    static ContainerFile Read(const std::string& path);
    /// The first packet after seeking to a time.
    static Packet After(const std::string& path, size_t stream, int64_t micros);
};

} // namespace media_test

#endif // TESTS_MEDIA_CONTAINER_FILE_H
