#include "cli/progress.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <utility>

#include <fmt/format.h>

#include "render/amounts.h"

namespace diskaccess {

namespace {

constexpr std::chrono::milliseconds kQuiet{1000};
constexpr std::chrono::milliseconds kBetween{200};

} // namespace

Progress::Progress(std::string what)
    : m_what(std::move(what)), m_terminal(isatty(STDERR_FILENO) == 1), m_next(m_begin + kQuiet) {}

Progress::~Progress() {
    Hide();
}

void Progress::Hide() {
    if (m_shown) {
        std::fputs("\r\x1b[K", stderr);
        m_shown = false;
    }
}

void Progress::Show(double done, uint64_t bytes) {
    if (!m_terminal) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < m_next) {
        return;
    }
    m_next = now + kBetween;
    m_shown = true;
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    std::fputs(("\r" + ProgressText(m_what, done, bytes, seconds) + "\x1b[K").c_str(), stderr);
}

std::string ProgressText(const std::string& what, double done, uint64_t bytes, double seconds) {
    std::string text = fmt::format("{} {:3.0f} %", what, done * 100);
    if (bytes != 0) {
        const auto rate = static_cast<uint64_t>(static_cast<double>(bytes) / seconds);
        text += fmt::format("  {}/s", BytesText(rate));
    }
    if (done > 0.01) {
        text += fmt::format("  {} left",
                            DurationText(static_cast<uint64_t>(std::lround(seconds / done - seconds))));
    }
    return text;
}

} // namespace diskaccess
