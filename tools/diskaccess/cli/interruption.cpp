#include "cli/interruption.h"

#include <csignal>

namespace diskaccess {

namespace {

volatile std::sig_atomic_t g_asked = 0;

void Ask(int /*signal*/) {
    g_asked = 1;
}

} // namespace

Interruption::Interruption()
    : m_atInterrupt(std::signal(SIGINT, Ask)), m_atTermination(std::signal(SIGTERM, Ask)) {}

Interruption::~Interruption() {
    std::signal(SIGINT, m_atInterrupt);
    std::signal(SIGTERM, m_atTermination);
}

bool Interruption::Asked() {
    return g_asked != 0;
}

} // namespace diskaccess
