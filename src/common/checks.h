// Assertions that stay in every build, and arithmetic that ends the process when it overflows. Any thread. A sum that
// wrapped round would shed the wrong alerts or hold a retry for years, and nobody would notice.
#pragma once

#include <cstdint>
#include <source_location>

namespace zel {

// Prints "PROGRAM: FILE:LINE: FUNCTION: Assertion `TEXT' failed." to standard error and aborts.
[[noreturn]] void assertion_failed(const char* text, std::source_location where = std::source_location::current());

// Ends the process through abort; names the operation on standard error.
[[noreturn]] void arithmetic_overflow(const char* operation);

// For int32_t and int64_t.
template <class T>
T checked_add(T a, T b) {
    T result{};
    if (__builtin_add_overflow(a, b, &result)) arithmetic_overflow("addition");
    return result;
}
template <class T>
T checked_sub(T a, T b) {
    T result{};
    if (__builtin_sub_overflow(a, b, &result)) arithmetic_overflow("subtraction");
    return result;
}
template <class T>
T checked_mul(T a, T b) {
    T result{};
    if (__builtin_mul_overflow(a, b, &result)) arithmetic_overflow("multiplication");
    return result;
}

}  // namespace zel

// The expression's text is what the line shows, so it is written as it is to be read.
#define ZEL_ASSERT(expression) ((expression) ? static_cast<void>(0) : zel::assertion_failed(#expression))
