#include "storage/NumberText.h"

#include <cfloat>
#include <charconv>
#include <cmath>

namespace {

// The white space of the classic "C" classification.
bool IsClassicSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Skips leading white space and one "+" (std::from_chars takes only "-"). Returns the offset of the
// number, or npos when a "+" is followed by another sign, which the standard conversions refuse too.
std::size_t FindNumberStart(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsClassicSpace(text[i]))
        ++i;
    if (i < text.size() && text[i] == '+') {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) return std::string_view::npos;
    }
    return i;
}

}  // namespace

std::errc ReadLeadingDouble(std::string_view text, double& value, std::size_t* used) {
    const std::size_t start = FindNumberStart(text);
    if (start == std::string_view::npos) return std::errc::invalid_argument;
    double result = 0;
    const char* first = text.data() + start;
    const auto [end, error] = std::from_chars(first, text.data() + text.size(), result);
    if (error != std::errc{}) return error;
    // The C library reports a result that underflows into the subnormal range as out of range; keep that.
    if (result != 0 && std::isfinite(result) && std::fabs(result) < DBL_MIN)
        return std::errc::result_out_of_range;
    value = result;
    if (used != nullptr) *used = static_cast<std::size_t>(end - text.data());
    return std::errc{};
}

std::errc ReadLeadingInt32(std::string_view text, int32_t& value, std::size_t* used) {
    const std::size_t start = FindNumberStart(text);
    if (start == std::string_view::npos) return std::errc::invalid_argument;
    int32_t result = 0;
    const char* first = text.data() + start;
    const auto [end, error] = std::from_chars(first, text.data() + text.size(), result, 10);
    if (error != std::errc{}) return error;
    value = result;
    if (used != nullptr) *used = static_cast<std::size_t>(end - text.data());
    return std::errc{};
}
