#ifndef DISKACCESS_VIEW_DISK_POOL_H
#define DISKACCESS_VIEW_DISK_POOL_H

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "recordings/disk.h"

namespace diskaccess::view {

/// Disk objects of one partition, one for each thread that reads at a time. An object that is given back is lent again.
class DiskPool {
public:
    using Open = std::function<std::unique_ptr<recordings::Disk>()>;

    /// @param open opens the partition once more. Called on several threads at once
    explicit DiskPool(Open open) : m_open(std::move(open)) {}

    /// Lends an object. It comes back when the last pointer to it goes; the pool must still be there then.
    /// @throws recordings::Error when the partition cannot be opened any more
    std::shared_ptr<const recordings::Disk> Borrow() {
        std::unique_ptr<recordings::Disk> disk = TakeIdle();
        if (!disk) {
            disk = m_open();
        }
        return {disk.release(),
                [this](recordings::Disk* lent) { TakeBack(std::unique_ptr<recordings::Disk>(lent)); }};
    }

private:
    std::unique_ptr<recordings::Disk> TakeIdle() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_idle.empty()) {
            return nullptr;
        }
        std::unique_ptr<recordings::Disk> disk = std::move(m_idle.back());
        m_idle.pop_back();
        return disk;
    }

    void TakeBack(std::unique_ptr<recordings::Disk> disk) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_idle.push_back(std::move(disk));
    }

    Open m_open;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<recordings::Disk>> m_idle;
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_DISK_POOL_H
