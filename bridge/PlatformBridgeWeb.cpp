// The ST_ functions for a browser page (Emscripten). The page has no data folder: presets and guides
// come from the file picker, so there is nothing to find, create or list. Text conversion is done here
// by hand, and lower-casing uses the C library's simple one-to-one mapping, since ICU is not part of
// the page; only guide and preset names in a folder listing would need full case folding.
#include "bridge/PlatformBridge.h"
#include "bridge/Utf8Append.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <string>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// One code point from text[i..end), advancing i; a broken sequence gives one U+FFFD.
char32_t DecodeOne(const unsigned char* text, size_t end, size_t& i) {
    const unsigned char lead = text[i++];
    if (lead < 0x80) return lead;
    int extra = 0;
    char32_t c = 0, min = 0;
    if (lead >= 0xC2 && lead <= 0xDF)
        extra = 1, c = lead & 0x1F, min = 0x80;
    else if (lead >= 0xE0 && lead <= 0xEF)
        extra = 2, c = lead & 0x0F, min = 0x800;
    else if (lead >= 0xF0 && lead <= 0xF4)
        extra = 3, c = lead & 0x07, min = 0x10000;
    else
        return kReplacement;
    for (int k = 0; k < extra; ++k) {
        if (i >= end || !IsContinuation(text[i])) return kReplacement;
        c = (c << 6) | (text[i++] & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not characters.
    if (c < min || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) return kReplacement;
    return c;
}

void AppendUtf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out.push_back(static_cast<char16_t>(c));
    } else {
        c -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    }
}

// The code point at units[i], advancing i; an unpaired surrogate gives U+FFFD.
char32_t NextCodePoint(const uint16_t* units, int32_t count, int32_t& i) {
    const char32_t unit = units[i++];
    if (unit >= 0xD800 && unit <= 0xDBFF && i < count && units[i] >= 0xDC00 && units[i] <= 0xDFFF)
        return 0x10000 + ((unit - 0xD800) << 10) + (units[i++] - 0xDC00);
    if (unit >= 0xD800 && unit <= 0xDFFF) return kReplacement;
    return unit;
}

}  // namespace

extern "C" {

uint16_t* ST_Utf8ToUtf16(const char* text, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (text == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (length > static_cast<size_t>(INT32_MAX)) return nullptr;
    std::u16string units;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    for (size_t i = 0; i < length;)
        AppendUtf16(units, DecodeOne(bytes, length, i));
    // An empty result still gets a real allocation, so that null always means failure.
    auto* result = static_cast<uint16_t*>(std::malloc(units.empty() ? 1 : units.size() * sizeof(uint16_t)));
    if (result == nullptr) return nullptr;
    std::memcpy(result, units.data(), units.size() * sizeof(uint16_t));
    if (count != nullptr) *count = static_cast<int32_t>(units.size());
    return result;
}

char* ST_Utf16ToUtf8(const uint16_t* units, int32_t count) {
    if (units == nullptr || count < 0) return nullptr;
    std::string text;
    for (int32_t i = 0; i < count;)
        AppendUtf8(text, NextCodePoint(units, count, i));
    auto* result = static_cast<char*>(std::malloc(text.size() + 1));
    if (result == nullptr) return nullptr;
    std::memcpy(result, text.c_str(), text.size() + 1);
    return result;
}

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    std::u16string lowered;
    for (int32_t i = 0; i < count;)
        AppendUtf16(lowered, static_cast<char32_t>(
                                 std::towlower(static_cast<wint_t>(NextCodePoint(source, count, i)))));
    if (lowered.size() > static_cast<size_t>(capacity)) return ST_ERROR_CAPACITY;
    std::memcpy(destination, lowered.data(), lowered.size() * sizeof(uint16_t));
    return static_cast<int32_t>(lowered.size());
}

char* ST_GetAppSupportPath(void) {
    return nullptr;
}

bool ST_CreateDirectory(const char*) {
    return false;
}

uint16_t** ST_EnumFiles(const char*, const char*, int32_t* count) {
    if (count != nullptr) *count = 0;
    return nullptr;
}

}  // extern "C"
