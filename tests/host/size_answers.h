#ifndef TESTS_HOST_SIZE_ANSWERS_H
#define TESTS_HOST_SIZE_ANSWERS_H

#include <cstdint>

#include "host/host_layer.h"

namespace test_support {

/// What a block device answers when it is asked for its size.
struct SizeAnswers {
    uint64_t bytes = 0; ///< 0: the device's own size
    int sectorSize = 512;
    uint8_t refused = 0; ///< bit 0: BLKSSZGET, bit 1: BLKGETSIZE64, bit 2: BLKGETSIZE

    /// Answers a request on a device of @p ownSize bytes.
    /// @return 0, or -1 with errno set when the request is refused, or asks for no size
    int Answer(uint64_t ownSize, unsigned long request, void* answer) const;
};

/// Has regular files answer as block devices do. A SystemCallLog sees the requests if it was made later.
class BlockDeviceGuise : public HostLayer {
public:
    /// What a device tells instead of the file's size, and of sectors of 512 bytes.
    void ClaimSize(uint64_t bytes) { m_answers.bytes = bytes; }
    void ClaimSectorSize(int bytes) { m_answers.sectorSize = bytes; }

protected:
    int Control(int fd, unsigned long request, void* answer) override;

private:
    SizeAnswers m_answers;
};

} // namespace test_support

#endif // TESTS_HOST_SIZE_ANSWERS_H
