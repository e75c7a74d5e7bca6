// All mutants of a source in one build: each stands behind a switch, and DISKACCESS_MUTANT says which is on.
// switched.py writes the sources that use this. Where the compiler needs a constant, every switch is off.
//
// DISKACCESS_MUTANTS_REACHED names a file with a byte for each mutant, that is set when its code is reached.

#ifndef DISKACCESS_TESTS_MUTATION_SWITCHES_H
#define DISKACCESS_TESTS_MUTATION_SWITCHES_H
#ifdef __cplusplus

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <type_traits>

namespace mutants {

/// The status of a program that has reached a mutant that is no C++.
constexpr int kUnviable = 99;

class Switches {
public:
    Switches() {
        const char* const mutant = std::getenv("DISKACCESS_MUTANT");
        const char* const reached = std::getenv("DISKACCESS_MUTANTS_REACHED");
        m_on = mutant == nullptr ? -1 : std::atoi(mutant);
        const int fd = reached == nullptr ? -1 : open(reached, O_RDWR | O_CLOEXEC);
        struct stat status = {};
        if (fd >= 0 && fstat(fd, &status) == 0) {
            void* const map =
                mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            m_reached = map == MAP_FAILED ? nullptr : static_cast<unsigned char*>(map);
            close(fd);
        }
    }
    bool IsOn(int mutant) const {
        if (m_reached != nullptr) {
            m_reached[mutant] = 1;
        }
        return mutant == m_on;
    }

private:
    int m_on = -1;
    unsigned char* m_reached = nullptr;
};

inline bool IsOn(int mutant) {
    static const Switches switches;
    return switches.IsOn(mutant);
}

template <int Mutant>
constexpr bool On() {
    return __builtin_is_constant_evaluated() ? false : IsOn(Mutant);
}

template <int... Mutants, typename T, typename... Others>
constexpr T Number(T number, Others... others) {
    static_cast<void>(((On<Mutants>() ? (number = static_cast<T>(others), 0) : 0), ...));
    return number;
}

/// A unary operator: Not<1>{}->*x is !x, or x; and so on.
template <int Mutant>
struct Not {};
template <int Mutant, typename T>
constexpr auto operator->*(Not<Mutant>, const T& x) {
    using Result = std::conditional_t<std::is_arithmetic_v<T>, T, bool>;
    return On<Mutant>() ? static_cast<Result>(x) : static_cast<Result>(!x);
}
template <int Mutant>
struct Minus {};
template <int Mutant, typename T>
constexpr T operator->*(Minus<Mutant>, T x) {
    return On<Mutant>() ? x : -x;
}
template <int Mutant>
struct Increment {};
template <int Mutant, typename T>
constexpr T& operator->*(Increment<Mutant>, T& x) {
    return On<Mutant>() ? --x : ++x;
}
template <int Mutant>
struct Decrement {};
template <int Mutant, typename T>
constexpr T& operator->*(Decrement<Mutant>, T& x) {
    return On<Mutant>() ? ++x : --x;
}

[[noreturn]] inline void EndUnviable() {
    _exit(kUnviable);
}

/// A binary operator: x < Less<1, 2>{} < y is x < y, x <= y or x >= y; and so on. Operands and precedence stay.
#define DISKACCESS_APPLY(Name, op)                                                                           \
    struct Name {                                                                                            \
        template <typename X, typename Y>                                                                    \
        static constexpr auto Of(const X& x, const Y& y, int) -> decltype(x op y) {                          \
            return x op y;                                                                                   \
        }                                                                                                    \
        template <typename X, typename Y>                                                                    \
        static constexpr auto Of(const X& x, const Y& y, long) -> decltype(x) {                              \
            EndUnviable();                                                                                   \
            static_cast<void>(y);                                                                            \
            return x;                                                                                        \
        }                                                                                                    \
    };
DISKACCESS_APPLY(ApplyLess, <)
DISKACCESS_APPLY(ApplyLessEqual, <=)
DISKACCESS_APPLY(ApplyGreater, >)
DISKACCESS_APPLY(ApplyGreaterEqual, >=)
DISKACCESS_APPLY(ApplyEqual, ==)
DISKACCESS_APPLY(ApplyUnequal, !=)
DISKACCESS_APPLY(ApplyPlus, +)
DISKACCESS_APPLY(ApplyMinus, -)
DISKACCESS_APPLY(ApplyTimes, *)
DISKACCESS_APPLY(ApplyOver, /)
DISKACCESS_APPLY(ApplyAnd, &)
DISKACCESS_APPLY(ApplyOr, |)
DISKACCESS_APPLY(ApplyShiftLeft, <<)
DISKACCESS_APPLY(ApplyShiftRight, >>)

template <typename Result, typename Other, typename X, typename Y>
constexpr Result Mutated(const X& x, const Y& y) {
    if constexpr (std::is_convertible_v<decltype(Other::Of(x, y, 0)), Result>) {
        return Other::Of(x, y, 0);
    } else {
        EndUnviable();
    }
}

#define DISKACCESS_BINARY(Name, op, Other, Another)                                                          \
    template <int... Mutants>                                                                                \
    struct Name {};                                                                                          \
    template <typename X, int... Mutants>                                                                    \
    struct Left##Name {                                                                                      \
        const X& x;                                                                                          \
    };                                                                                                       \
    template <typename X, int... Mutants>                                                                    \
    constexpr Left##Name<X, Mutants...> operator op(const X& x, Name<Mutants...>) {                          \
        return {x};                                                                                          \
    }                                                                                                        \
    template <typename X, typename Y, int First>                                                             \
    constexpr auto operator op(const Left##Name<X, First>& left, const Y& y) {                               \
        using Result = decltype(left.x op y);                                                                \
        return On<First>() ? Mutated<Result, Other>(left.x, y) : left.x op y;                                \
    }                                                                                                        \
    template <typename X, typename Y, int First, int Second>                                                 \
    constexpr auto operator op(const Left##Name<X, First, Second>& left, const Y& y) {                       \
        using Result = decltype(left.x op y);                                                                \
        return On<First>()    ? Mutated<Result, Other>(left.x, y)                                            \
               : On<Second>() ? Mutated<Result, Another>(left.x, y)                                          \
                              : left.x op y;                                                                 \
    }
DISKACCESS_BINARY(Less, <, ApplyLessEqual, ApplyGreaterEqual)
DISKACCESS_BINARY(LessEqual, <=, ApplyLess, ApplyGreater)
DISKACCESS_BINARY(Greater, >, ApplyLessEqual, ApplyGreaterEqual)
DISKACCESS_BINARY(GreaterEqual, >=, ApplyLess, ApplyGreater)
DISKACCESS_BINARY(Equal, ==, ApplyUnequal, ApplyUnequal)
DISKACCESS_BINARY(Unequal, !=, ApplyEqual, ApplyEqual)
DISKACCESS_BINARY(Plus, +, ApplyMinus, ApplyMinus)
DISKACCESS_BINARY(Difference, -, ApplyPlus, ApplyPlus)
DISKACCESS_BINARY(Times, *, ApplyOver, ApplyOver)
DISKACCESS_BINARY(Over, /, ApplyTimes, ApplyTimes)
DISKACCESS_BINARY(Remainder, %, ApplyTimes, ApplyTimes)
DISKACCESS_BINARY(BitAnd, &, ApplyOr, ApplyOr)
DISKACCESS_BINARY(BitOr, |, ApplyAnd, ApplyAnd)
DISKACCESS_BINARY(ExclusiveOr, ^, ApplyAnd, ApplyAnd)
DISKACCESS_BINARY(ShiftLeft, <<, ApplyShiftRight, ApplyShiftRight)
DISKACCESS_BINARY(ShiftRight, >>, ApplyShiftLeft, ApplyShiftLeft)

/// An assignment: x += Add<1>{} += y is x += y, or x -= y; and so on.
#define DISKACCESS_ASSIGNMENT(Name, op, other)                                                               \
    template <int Mutant>                                                                                    \
    struct Name {};                                                                                          \
    template <typename Y, int Mutant>                                                                        \
    struct Right##Name {                                                                                     \
        const Y& y;                                                                                          \
    };                                                                                                       \
    template <typename Y, int Mutant>                                                                        \
    constexpr Right##Name<Y, Mutant> operator op(Name<Mutant>, const Y& y) {                                 \
        return {y};                                                                                          \
    }                                                                                                        \
    template <typename X, typename Y, int Mutant>                                                            \
    constexpr X& operator op(X& x, const Right##Name<Y, Mutant>& right) {                                    \
        return On<Mutant>() ? x other right.y : x op right.y;                                                \
    }
DISKACCESS_ASSIGNMENT(Add, +=, -=)
DISKACCESS_ASSIGNMENT(Subtract, -=, +=)
DISKACCESS_ASSIGNMENT(Multiply, *=, /=)
DISKACCESS_ASSIGNMENT(Divide, /=, *=)
DISKACCESS_ASSIGNMENT(Remain, %=, *=)
DISKACCESS_ASSIGNMENT(SetAnd, &=, |=)
DISKACCESS_ASSIGNMENT(SetOr, |=, &=)
DISKACCESS_ASSIGNMENT(SetExclusive, ^=, &=)
DISKACCESS_ASSIGNMENT(SetShiftLeft, <<=, >>=)
DISKACCESS_ASSIGNMENT(SetShiftRight, >>=, <<=)

} // namespace mutants

#endif // __cplusplus
#endif // DISKACCESS_TESTS_MUTATION_SWITCHES_H
