#ifndef PYTHON_SHARED_DISK_H
#define PYTHON_SHARED_DISK_H

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "media/source_identity.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/error.h"

namespace python {

/// Thrown when a disk is used after it was closed.
class Closed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Thrown when a handler of signals uses the disk that it interrupts.
class Busy : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Thrown when the password is wrong.
class WrongPassword : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class SharedDisk;

/// What a disk's closing ends.
class Reading {
public:
    virtual ~Reading() = default;
    /// Lets go of all that refers to the disk.
    virtual void Drop() = 0;
};

/// What is opened, and how.
struct Opening {
    std::string path;
    std::optional<uint32_t> partition; ///< number of the partition in the disk's table
    std::optional<int> diskType;
    std::optional<std::string> password;
};

/// All that is there while a disk is open. Python's threads use it one after the other: the work on it goes without the
/// interpreter's lock, so that others go on meanwhile.
class SharedDisk {
public:
    explicit SharedDisk(const Opening& opening);
    ~SharedDisk();
    SharedDisk(const SharedDisk&) = delete;
    SharedDisk& operator=(const SharedDisk&) = delete;

    /// What the work gets to see of an open disk.
    struct Open {
        explicit Open(const Opening& opening);

        recordings::Disk disk;
        media::SourceIdentity identity;
        recordings::BlockList blocks;
    };

    /// Does work on the disk, without the interpreter's lock. It is handed the disk, and a watch that ends it when a
    /// signal has come whose handler raises, as Ctrl-C does.
    /// @throws Closed; what the work throws; what the handler raised
    template <typename Work>
    auto Do(Work work) {
        try {
            const pybind11::gil_scoped_release unlocked;
            const Turn turn(*this);
            ExpectOpen();
            return work(*m_open, [](const recordings::Progress& /*progress*/) { return GoesOn(); });
        } catch (const recordings::Error&) {
            ThrowWhatWasRaised();
            throw;
        }
    }

    /// Does something that no thread may do while another reads, whether the disk is open or closed.
    template <typename Work>
    auto InTurn(Work work) {
        const pybind11::gil_scoped_release unlocked;
        const Turn turn(*this);
        return work();
    }

    void Close();
    bool IsClosed() const { return m_closed; }
    /// @throws Closed
    void ExpectOpen() const;

    /// Has a reading told when the disk is closed; called in a turn.
    void Add(Reading& reading) { m_readings.insert(&reading); }
    void Remove(Reading& reading);

private:
    /// One thread's turn.
    class Turn {
    public:
        explicit Turn(SharedDisk& shared);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        SharedDisk& m_shared;
    };

    bool IsMyTurn() const { return m_whose == std::this_thread::get_id(); }
    static bool GoesOn();
    static void ThrowWhatWasRaised();

    std::string m_path;
    std::mutex m_turns;
    std::atomic<std::thread::id> m_whose;
    std::atomic<bool> m_closed = false;
    std::unique_ptr<Open> m_open;
    std::set<Reading*> m_readings; ///< looked at by the thread whose turn it is
};

} // namespace python

#endif // PYTHON_SHARED_DISK_H
