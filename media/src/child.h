#ifndef MEDIA_SRC_CHILD_H
#define MEDIA_SRC_CHILD_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace media {

/// What a child process may use.
struct ChildLimits {
    uint32_t seconds = 20;               ///< of its processor, and of the clock on the wall; 0: no limit
    uint32_t silence = 20;               ///< seconds without a byte of the answer
    uint64_t memory = uint64_t{1} << 30; ///< bytes beyond what this process has
    uint64_t answer = uint64_t{1} << 28; ///< bytes that it may answer
};

/// Does something dangerous in a child process, which starts as a copy of this one.
///
/// The child gives up what it can do before the work begins: its user (when that is root), its open files but one end of
/// a pipe, the right to open others, to start programs or processes, and to write files. The kernel lets it do nothing but
/// compute, ask for memory, and write to the pipe.
/// @param work gets the descriptor to write its answer to; returns whether it has succeeded. It may not use threads
/// @param meanwhile called several times a second while the child works; what it throws ends the child
/// @return the answer; nothing when the work has failed, was ended by the limits, or answered too much
/// @throws Error when no child can be started
std::optional<std::vector<uint8_t>> InChild(const std::function<bool(int answer)>& work,
                                            const ChildLimits& limits,
                                            const std::function<void()>& meanwhile = {});

/// What a child has answered, also one that did not come to its end.
struct ChildAnswer {
    std::vector<uint8_t> bytes;
    bool complete = false; ///< the work has succeeded
};

/// The same for work that answers as it goes.
ChildAnswer HearChild(const std::function<bool(int answer)>& work, const ChildLimits& limits,
                      const std::function<void()>& meanwhile = {});

/// A child process that is asked and answers as long as it is wanted. It gives up the same, but for a second pipe, from
/// which it reads what it is asked.
class AskedChild {
public:
    /// What the child does: reads from @p questions until that ends, and writes to @p answers.
    using Work = std::function<bool(int questions, int answers)>;

    /// @param meanwhile called several times a second while the child is waited for; it may throw
    /// @throws Error when no child can be started
    AskedChild(const Work& work, const ChildLimits& limits, std::function<void()> meanwhile = {});
    ~AskedChild();
    AskedChild(const AskedChild&) = delete;
    AskedChild& operator=(const AskedChild&) = delete;

    /// Both wait for the child as long as its limits let it be silent.
    /// @return false when it has ended, or takes too long: it is of no use any more
    bool Send(const void* data, size_t size);
    bool Receive(void* data, size_t size);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// For what a child does: moves all bytes, or returns false.
bool ReadAll(int descriptor, void* data, size_t size);
bool WriteAll(int descriptor, const void* data, size_t size);

} // namespace media

#endif // MEDIA_SRC_CHILD_H
