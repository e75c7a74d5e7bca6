#ifndef DISK_ACCESS_FORMAT_STATE_H
#define DISK_ACCESS_FORMAT_STATE_H

#include <cstdlib>
#include <new>

namespace disk_access {

/// Makes an object's private state in zeroed memory from the C allocator.
/// @return null if there is no memory
template <typename State>
State* MakeState() {
    void* const memory = std::calloc(1, sizeof(State));
    return memory == nullptr ? nullptr : new (memory) State();
}

/// Destroys a state made by MakeState(), and sets the pointer to null. The pointer may be null.
template <typename State>
void DropState(State*& state) {
    if (state != nullptr) {
        state->~State();
        std::free(state);
        state = nullptr;
    }
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_STATE_H
