// Text handling shared by every system's bridge: transcoding with U+FFFD repair, the malloc'd copies the
// C interface hands out, and the listing's suffix test. None of the systems' own converters repairs the
// same way on every version (Foundation refuses invalid UTF-8 outright, older Windows drops it), so the
// bridges share this one and agree byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace brivane::bridge {

inline constexpr char32_t kReplacement = 0xFFFD;

// Decodes `length` bytes as UTF-8, each maximal invalid subsequence becoming one U+FFFD (the Unicode
// recommended practice: "\xC0\xAF" gives two, a truncated three-byte sequence one).
std::u16string DecodeUtf8(const char* bytes, std::size_t length);
// Copies `count` units, replacing every unpaired surrogate with U+FFFD.
std::u16string RepairUtf16(const uint16_t* units, std::size_t count);
// Encodes UTF-16 as UTF-8; unpaired surrogates come out as U+FFFD.
std::string EncodeUtf8(const std::u16string& text);

// Calls visit(code point) for each character of already repaired UTF-16.
template <class Visit>
void ForEachCodePoint(const std::u16string& text, Visit visit) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        visit(c);
    }
}
void AppendCodePoint(std::u16string& text, char32_t c);

bool EndsWith(const std::u16string& text, const std::u16string& suffix);

// New malloc'd copies; null when the allocation fails. An empty UTF-16 copy is still a real allocation,
// so that null always means failure.
char* CopyToMalloc(const std::string& text);
uint16_t* CopyToMalloc(const std::u16string& text, bool terminate);
// The list ST_EnumFiles hands out: null with a count of 0 when `paths` is empty or memory runs out.
uint16_t** CopyListToMalloc(const std::vector<std::u16string>& paths, int32_t* count);

}  // namespace brivane::bridge
