// ResourceTable: the host-side caption texts of a plug-in, by string resource id.
//
// The file is plain UTF-8 text, one entry a line:
//
//   # comment
//   101 = Effect lines
//   142 =                 <- an empty text
//
// Spaces around the id and the text are trimmed; a text cannot start or end with a space.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace brivane::tools {

class ResourceTable {
public:
    // Reads a table file, adding to what is there. False with a one-line reason naming the file and
    // line; the table is then unchanged.
    bool Load(const std::string& path, std::string& error);
    // Parses table text; `name` labels the reasons.
    bool Parse(std::string_view text, const std::string& name, std::string& error);
    void Set(int64_t id, std::u16string text) { m_texts[id] = std::move(text); }
    // Null when the table has no text for id.
    const std::u16string* Find(int64_t id) const;
    size_t Size() const { return m_texts.size(); }

private:
    std::map<int64_t, std::u16string> m_texts;
};

// UTF-8 to UTF-16 and back; invalid input becomes U+FFFD.
std::u16string Utf8ToUtf16Text(std::string_view text);
std::string Utf16ToUtf8Text(std::u16string_view text);

}  // namespace brivane::tools
