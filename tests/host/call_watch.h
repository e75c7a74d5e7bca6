#ifndef TESTS_HOST_CALL_WATCH_H
#define TESTS_HOST_CALL_WATCH_H

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "host/host_layer.h"

namespace test_support {

enum class CallKind { Open, Seek, Read, Close, Sync, Control };

/// One call that the library makes on a device.
struct Call {
    CallKind kind;
    int fd;               ///< -1 for Open
    int flags;            ///< of Open
    int64_t offset;       ///< of Seek; of Read, where the device stood
    uint64_t length;      ///< of Read
    uint64_t request = 0; ///< of Control
};

/// What becomes of a call.
struct Fate {
    enum { Pass, Fail, Short, Skip } kind = Pass;
    int error = 5;            ///< errno of Fail: EIO
    uint64_t shortLength = 0; ///< bytes that a Short read delivers

    static Fate Failing(int withError = 5) { return {Fail, withError, 0}; }
    static Fate Shortened(uint64_t length) { return {Short, 0, length}; }
    /// A flush that succeeds at once. Of other calls, it changes nothing.
    static Fate Skipped() { return {Skip, 0, 0}; }
};

/// Passes every call but flushes, which fail at once: nothing was written to a device that is only read, and a
/// test that flushes it thousands of times would wait for the disk of its host each time.
inline Fate PassUnflushed(const Call& call) {
    return call.kind == CallKind::Sync ? Fate::Failing() : Fate();
}

/// A place among the calls or allocations of a run, and whether what happens there continues to happen.
struct Strike {
    static constexpr size_t kNever = static_cast<size_t>(-1);
    size_t position = kNever; ///< counted from 0
    bool forever = false;

    bool Hits(size_t index) const { return forever ? index >= position : index == position; }
};

/// A layer that asks what becomes of each call on a device before it is made. The calls that pass are made by the layer
/// that it is derived from.
template <typename Layer = HostLayer>
class CallWatch : public Layer {
protected:
    virtual Fate Decide(const Call& call) = 0;

    int Open(const char* path, int flags) override {
        return Fails({CallKind::Open, -1, flags, 0, 0}) ? -1 : Layer::Open(path, flags);
    }
    int64_t Seek(int fd, int64_t offset, int whence) override {
        return Fails({CallKind::Seek, fd, 0, offset, 0}) ? -1 : Layer::Seek(fd, offset, whence);
    }
    int64_t Read(int fd, void* data, size_t size) override {
        const Fate fate = Ask({CallKind::Read, fd, 0, Layer::Seek(fd, 0, SEEK_CUR), size});
        if (fate.kind == Fate::Fail) {
            return -1;
        }
        const auto shortened = static_cast<size_t>(std::min<uint64_t>(size, fate.shortLength));
        return Layer::Read(fd, data, fate.kind == Fate::Short ? shortened : size);
    }
    int Flush(int fd) override {
        const Fate fate = Ask({CallKind::Sync, fd, 0, 0, 0});
        if (fate.kind == Fate::Fail || fate.kind == Fate::Skip) {
            return fate.kind == Fate::Fail ? -1 : 0;
        }
        return Layer::Flush(fd);
    }
    int Close(int fd) override {
        // A descriptor is gone even when close reports a failure.
        const bool fails = Fails({CallKind::Close, fd, 0, 0, 0});
        const int result = Layer::Close(fd);
        return fails ? -1 : result;
    }
    int Control(int fd, unsigned long request, void* answer) override {
        return Fails({CallKind::Control, fd, 0, 0, 0, request}) ? -1 : Layer::Control(fd, request, answer);
    }

private:
    /// Decides, and sets errno if the call is to fail.
    Fate Ask(const Call& call) {
        const Fate fate = Decide(call);
        if (fate.kind == Fate::Fail) {
            errno = fate.error;
        }
        return fate;
    }
    bool Fails(const Call& call) { return Ask(call).kind == Fate::Fail; }
};

} // namespace test_support

#endif // TESTS_HOST_CALL_WATCH_H
