#include "tools/host/ResourceTable.h"

#include "bridge/BridgeText.h"

#include <charconv>
#include <fstream>
#include <sstream>

namespace brivane::tools {
namespace {

std::string_view Trim(std::string_view text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

}  // namespace

bool ResourceTable::Load(const std::string& path, std::string& error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = path + ": cannot open resource file";
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return Parse(text.str(), path, error);
}

bool ResourceTable::Parse(std::string_view text, const std::string& name, std::string& error) {
    std::map<int64_t, std::u16string> parsed;
    int lineNumber = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++lineNumber;
        if (lineNumber == 1 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);  // byte-order mark
        line = Trim(line);
        if (line.empty() || line.front() == '#') continue;

        const std::string where = name + ":" + std::to_string(lineNumber) + ": ";
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            error = where + "expected 'id = text'";
            return false;
        }
        const std::string_view idText = Trim(line.substr(0, equals));
        int64_t id = 0;
        // from_chars ignores the process locale, as a file format must.
        const auto [next, status] = std::from_chars(idText.data(), idText.data() + idText.size(), id);
        if (idText.empty() || status != std::errc() || next != idText.data() + idText.size()) {
            error = where + "resource id '" + std::string(idText) + "' is not a whole number";
            return false;
        }
        if (parsed.count(id) || m_texts.count(id)) {
            error = where + "resource id " + std::to_string(id) + " is given twice";
            return false;
        }
        parsed[id] = Utf8ToUtf16Text(Trim(line.substr(equals + 1)));
    }
    m_texts.merge(parsed);
    return true;
}

const std::u16string* ResourceTable::Find(int64_t id) const {
    const auto found = m_texts.find(id);
    return found == m_texts.end() ? nullptr : &found->second;
}

std::u16string Utf8ToUtf16Text(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        int extra = 0;
        char32_t code = 0;
        if (byte < 0x80) {
            code = byte;
        } else if ((byte & 0xE0) == 0xC0) {
            extra = 1;
            code = byte & 0x1F;
        } else if ((byte & 0xF0) == 0xE0) {
            extra = 2;
            code = byte & 0x0F;
        } else if ((byte & 0xF8) == 0xF0) {
            extra = 3;
            code = byte & 0x07;
        } else {
            out.push_back(u'\uFFFD');
            ++i;
            continue;
        }
        bool valid = i + extra < text.size();
        for (int k = 1; valid && k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) valid = false;
            code = (code << 6) | (next & 0x3F);
        }
        static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
        if (!valid || code < kSmallest[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            out.push_back(u'\uFFFD');
            ++i;  // resynchronise on the next byte
            continue;
        }
        i += 1 + extra;
        if (code >= 0x10000) {
            code -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(code));
        }
    }
    return out;
}

std::string Utf16ToUtf8Text(std::u16string_view text) {
    return bridge::EncodeUtf8(std::u16string(text));
}

}  // namespace brivane::tools
