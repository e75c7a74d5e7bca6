#include "cli/interruption.h"

#include <csignal>
#include <cstddef>

namespace diskaccess {

namespace {

volatile std::sig_atomic_t g_asked = 0;

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

void Ask(int /*signal*/) {
    g_asked = 1;
}

} // namespace

Interruption::Interruption() : m_before() {
    g_asked = 0; // one that came before ended what it was meant for
    for (size_t i = 0; i < kSignals.size(); ++i) {
        m_before[i] = std::signal(kSignals[i], Ask);
        if (m_before[i] == SIG_IGN) {
            std::signal(kSignals[i], SIG_IGN);
        }
    }
}

Interruption::~Interruption() {
    for (size_t i = 0; i < kSignals.size(); ++i) {
        std::signal(kSignals[i], m_before[i]);
    }
}

bool Interruption::Asked() {
    return g_asked != 0;
}

} // namespace diskaccess
