// What the C++ library of Emscripten 3.1.6 (libc++ 14) lacks and the engine's sources use: std::atomic_ref
// for the coverage stamps, and the floating-point std::from_chars and std::to_chars of the preset grammar
// and the render tool's option reader. Forced into every source by the web build alone; each piece steps
// aside once the library has its own.
#pragma once

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>

#ifndef __cpp_lib_atomic_ref
namespace std {

// The members the engine uses, over the compiler's atomic built-ins. The page runs one thread, so this
// only has to be correct, not fast under contention.
template <class T>
class atomic_ref {
public:
    explicit atomic_ref(T& object) : m_object(&object) {}
    T load(memory_order order = memory_order_seq_cst) const {
        return __atomic_load_n(m_object, static_cast<int>(order));
    }
    bool compare_exchange_weak(T& expected, T desired, memory_order order = memory_order_seq_cst) const {
        return __atomic_compare_exchange_n(m_object, &expected, desired, true, static_cast<int>(order),
                                           static_cast<int>(order));
    }

private:
    T* m_object;
};

}  // namespace std
#endif

#if !defined(__cpp_lib_to_chars)
namespace std {

// The page runs in the "C" locale only, so strtod and snprintf read and write "." whatever the
// browser's language. The general format as std::from_chars reads it: no leading space or "+", no hexadecimal
// form; an out-of-range value leaves `value` as it was.
inline from_chars_result from_chars(const char* first, const char* last, double& value) {
    const char* digits = first != last && *first == '-' ? first + 1 : first;
    if (digits == last || *digits == '+' || *digits == ' ' || (*digits >= '\t' && *digits <= '\r'))
        return {first, errc::invalid_argument};
    std::string text(first, last);
    if (digits + 1 < last && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
        text.resize(static_cast<size_t>(digits - first) + 1);
    char* end = nullptr;
    errno = 0;
    const double result = std::strtod(text.c_str(), &end);
    if (end == text.c_str()) return {first, errc::invalid_argument};
    if (errno == ERANGE) return {first + (end - text.c_str()), errc::result_out_of_range};
    value = result;
    return {first + (end - text.c_str()), errc{}};
}

inline to_chars_result to_chars(char* first, char* last, double value, chars_format, int precision) {
    char buffer[400];
    const int length = std::snprintf(buffer, sizeof buffer, "%.*f", precision, value);
    if (length < 0 || length > last - first) return {last, errc::value_too_large};
    for (int i = 0; i < length; ++i)
        first[i] = buffer[i];
    return {first + length, errc{}};
}

}  // namespace std
#endif
