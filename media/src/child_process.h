#ifndef MEDIA_SRC_CHILD_PROCESS_H
#define MEDIA_SRC_CHILD_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "child.h"
#include "owned_descriptor.h"

namespace media {

/// A child that is ended and buried, whatever happens.
class Child {
public:
    explicit Child(pid_t id) : m_id(id) {}
    Child(Child&& other) noexcept;
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Waits for its end.
    bool Succeeded();

private:
    int Wait();

    pid_t m_id;
};

/// How often a process that waits for its child looks at other things.
constexpr int64_t kLookMillis = 100;

class Pipe {
public:
    /// @throws Error when there are no descriptors for it
    Pipe();
    int Reading() const { return m_reading->Get(); }
    int Writing() const { return m_writing->Get(); }
    void CloseReading() { m_reading.reset(); }
    void CloseWriting() { m_writing.reset(); }

private:
    std::optional<OwnedDescriptor> m_reading;
    std::optional<OwnedDescriptor> m_writing;
};

/// Descriptors that a child keeps, rising.
using Kept = std::vector<int>;

/// Starts a child that gives up everything but some descriptors.
/// @param work done in the child; its answer becomes the exit status
/// @throws Error when no child can be started
Child StartChild(const std::function<bool()>& work, Kept kept, const ChildLimits& limits);

} // namespace media

#endif // MEDIA_SRC_CHILD_PROCESS_H
