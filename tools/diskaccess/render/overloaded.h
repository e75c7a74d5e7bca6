#ifndef DISKACCESS_OVERLOADED_H
#define DISKACCESS_OVERLOADED_H

namespace diskaccess {

/// One function object out of several, for std::visit.
template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

} // namespace diskaccess

#endif // DISKACCESS_OVERLOADED_H
