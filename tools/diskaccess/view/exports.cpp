#include "view/exports.h"

#include <algorithm>
#include <exception>

#include "recordings/error.h"

namespace diskaccess::view {

Exports::~Exports() {
    m_cancelled = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

std::optional<uint32_t> Exports::Begin(const media::ExportRequest& request) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_last != 0 && m_states[m_last].phase == ExportState::Phase::Running) {
        return std::nullopt;
    }
    if (m_thread.joinable()) {
        m_thread.join(); // it has stated its end, and does nothing more
    }
    m_cancelled = false;
    const uint32_t number = ++m_last;
    m_states[number] = {};
    m_thread = std::thread([this, number, request] { Run(number, request); });
    return number;
}

void Exports::Run(uint32_t number, const media::ExportRequest& request) {
    ExportState state = Export(number, request);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_states[number] = std::move(state);
}

ExportState Exports::Export(uint32_t number, const media::ExportRequest& request) {
    const recordings::Watch watch = [this, number](const recordings::Progress& progress) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_states[number].progress =
            static_cast<double>(progress.done) / static_cast<double>(std::max<uint64_t>(progress.total, 1));
        return !m_cancelled;
    };
    ExportState state;
    state.progress = 1;
    try {
        const auto disk = m_disks.Borrow();
        const auto blocks = m_survey.Blocks();
        state.result = media::Export(
            *disk, *blocks, m_source, request, [](const recordings::Problem&) {}, watch);
        const bool made = state.result && !state.result->outputs.empty();
        state.phase = made ? ExportState::Phase::Done : ExportState::Phase::Failed;
        state.error = made ? "" : "there is nothing of that time and these cameras; nothing was written";
    } catch (const recordings::Error& error) {
        const bool cancelled = error.Kind() == recordings::ErrorKind::Cancelled;
        state.phase = cancelled ? ExportState::Phase::Cancelled : ExportState::Phase::Failed;
        state.error = error.what();
    } catch (const std::exception& error) {
        state.phase = ExportState::Phase::Failed;
        state.error = error.what();
    }
    return state;
}

std::optional<ExportState> Exports::StateOf(uint32_t number) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto state = m_states.find(number);
    return state == m_states.end() ? std::nullopt : std::optional(state->second);
}

bool Exports::Cancel(uint32_t number) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_states.find(number) == m_states.end()) {
        return false;
    }
    m_cancelled = m_cancelled || number == m_last;
    return true;
}

} // namespace diskaccess::view
