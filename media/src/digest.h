#ifndef MEDIA_SRC_DIGEST_H
#define MEDIA_SRC_DIGEST_H

#include <cstddef>
#include <memory>
#include <string>

namespace media {

/// A running SHA-256.
class Digest {
public:
    Digest();
    ~Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    void Restart();
    void Add(const void* data, size_t size);
    /// Of everything added since the start, in hexadecimal. Ends the run.
    std::string Text();

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};

} // namespace media

#endif // MEDIA_SRC_DIGEST_H
