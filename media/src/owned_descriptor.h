#ifndef MEDIA_SRC_OWNED_DESCRIPTOR_H
#define MEDIA_SRC_OWNED_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace media {

/// A descriptor on its way to what closes it: it is closed, too, when memory runs short before it gets there.
class OwnedDescriptor {
public:
    /// @param descriptor may be -1, for none
    OwnedDescriptor(int descriptor) : m_descriptor(descriptor) {}
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    ~OwnedDescriptor() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(OwnedDescriptor&&) = delete;

    int Get() const { return m_descriptor; }

private:
    int m_descriptor;
};

} // namespace media

#endif // MEDIA_SRC_OWNED_DESCRIPTOR_H
