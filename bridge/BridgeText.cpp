// Transcoding, copies and the C functions that are the same on every system (see BridgeText.h).
#include "bridge/BridgeText.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "bridge/PlatformBridge.h"

namespace brivane::bridge {

std::u16string DecodeUtf8(const char* bytes, std::size_t length) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes);
    std::u16string out;
    out.reserve(length);
    std::size_t i = 0;
    while (i < length) {
        const unsigned char lead = s[i];
        if (lead < 0x80) {
            out.push_back(lead);
            ++i;
            continue;
        }
        // The lead byte fixes the number of continuation bytes and the range the first of them may take,
        // which rules out overlong forms, surrogates and code points beyond U+10FFFF.
        int needed = 0;
        char32_t c = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            needed = 1, c = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            needed = 2, c = lead & 0x0F;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            needed = 3, c = lead & 0x07;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        }
        std::size_t next = i + 1;
        int taken = 0;
        while (taken < needed && next < length && s[next] >= low && s[next] <= high) {
            c = (c << 6) | (s[next++] & 0x3F);
            low = 0x80, high = 0xBF;
            ++taken;
        }
        AppendCodePoint(out, needed > 0 && taken == needed ? c : kReplacement);
        i = next;
    }
    return out;
}

std::u16string RepairUtf16(const uint16_t* units, std::size_t count) {
    std::u16string text;
    text.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const char16_t unit = units[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            text.push_back(unit);
            text.push_back(units[++i]);
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            text.push_back(static_cast<char16_t>(kReplacement));
        } else {
            text.push_back(unit);
        }
    }
    return text;
}

std::string EncodeUtf8(const std::u16string& text) {
    std::string out;
    out.reserve(text.size());
    ForEachCodePoint(text, [&out](char32_t c) {
        if (c >= 0xD800 && c <= 0xDFFF) c = kReplacement;
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    });
    return out;
}

void AppendCodePoint(std::u16string& text, char32_t c) {
    if (c < 0x10000) {
        text.push_back(static_cast<char16_t>(c));
    } else {
        text.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
        text.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
}

bool EndsWith(const std::u16string& text, const std::u16string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

char* CopyToMalloc(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

uint16_t* CopyToMalloc(const std::u16string& text, bool terminate) {
    const std::size_t units = text.size() + (terminate ? 1 : 0);
    uint16_t* copy = static_cast<uint16_t*>(std::malloc(units > 0 ? units * sizeof(uint16_t) : 1));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(copy, text.data(), text.size() * sizeof(uint16_t));
    if (terminate) copy[text.size()] = 0;
    return copy;
}

uint16_t** CopyListToMalloc(const std::vector<std::u16string>& paths, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (paths.empty() || paths.size() > static_cast<std::size_t>(INT32_MAX)) return nullptr;
    auto** list = static_cast<uint16_t**>(std::calloc(paths.size(), sizeof(uint16_t*)));
    if (list == nullptr) return nullptr;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        list[i] = CopyToMalloc(paths[i], true);
        if (list[i] == nullptr) {
            ST_FreeEnumFiles(list, static_cast<int32_t>(i));
            return nullptr;
        }
    }
    if (count != nullptr) *count = static_cast<int32_t>(paths.size());
    return list;
}

}  // namespace brivane::bridge

using namespace brivane::bridge;

extern "C" {

uint16_t* ST_Utf8ToUtf16(const char* text, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (text == nullptr) return nullptr;
    try {
        const std::size_t length = std::strlen(text);
        if (length > static_cast<std::size_t>(INT32_MAX)) return nullptr;  // the count is 32 bits
        const std::u16string units = DecodeUtf8(text, length);
        uint16_t* result = CopyToMalloc(units, false);
        if (result != nullptr && count != nullptr) *count = static_cast<int32_t>(units.size());
        return result;
    } catch (...) {  // std::bad_alloc: the C interface reports it as null
        return nullptr;
    }
}

char* ST_Utf16ToUtf8(const uint16_t* units, int32_t count) {
    if (units == nullptr || count < 0) return nullptr;
    try {
        return CopyToMalloc(EncodeUtf8(RepairUtf16(units, static_cast<std::size_t>(count))));
    } catch (...) {
        return nullptr;
    }
}

void ST_FreeUtf16(uint16_t* units) {
    std::free(units);
}

void ST_FreeUtf8(char* text) {
    std::free(text);
}

void ST_FreeEnumFiles(uint16_t** files, int32_t count) {
    if (files == nullptr) return;
    if (count < 0) std::abort();
    for (int32_t i = 0; i < count; ++i)
        std::free(files[i]);
    std::free(files);
}

}  // extern "C"
