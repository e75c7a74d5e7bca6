#include "watcher.h"

#include "recordings/error.h"

namespace media {

recordings::Watch Watcher::Silent() {
    return [this](const recordings::Progress&) { return GoOn(); };
}

recordings::Watch Watcher::Reading() {
    return [this](const recordings::Progress& progress) {
        m_progress = progress;
        return GoOn();
    };
}

void Watcher::Ask() const {
    if (!GoOn()) {
        throw recordings::Error(recordings::ErrorKind::Cancelled, m_ended);
    }
}

} // namespace media
