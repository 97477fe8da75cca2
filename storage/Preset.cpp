#include "storage/Preset.h"

#include <charconv>
#include <cstring>
#include <ctime>

#include "storage/FileHelpers.h"
#include "storage/NumberText.h"

namespace {

// The white space of the classic "C" classification: space, tab, LF, VT, FF, CR.
bool IsClassicSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsClassicSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsClassicSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Compares after lower-casing the ASCII letters of text; word is lower case already.
bool EqualsLowerAscii(std::string_view text, std::string_view word) {
    if (text.size() != word.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
        if (lower != word[i]) return false;
    }
    return true;
}

constexpr std::string_view kTypeWords[] = {"radiate", "parallel", "circle"};

// The type word of an arrangement; an unknown type is written as an empty value.
void AppendIniType(std::string& text, std::string_view key, int32_t type) {
    AppendIniString(text, key, (type >= 0 && type <= 2) ? kTypeWords[type] : std::string_view());
}

// The buffer may have been filled to the brim by a caller; never read past it.
void AppendIniName(std::string& text, std::string_view key, const char (&name)[kIniNameCapacity]) {
    AppendIniString(text, key, std::string_view(name, strnlen(name, sizeof name)));
}

// The whole grammar: each key of each category, in file order, with its reader, writer and flag.
struct IniKey {
    std::string_view category;
    std::string_view key;
    bool (*read)(std::string_view value, MoveEffectIniParam& param);
    void (*write)(std::string& text, std::string_view key, const MoveEffectIniParam& param);
    bool MoveEffectIniReadFlag::*flag;
};

#define BRIVANE_INI_KEY(category, field, reader, writer)                                                    \
    IniKey {                                                                                                \
        category, #field, [](std::string_view v, MoveEffectIniParam& p) { return reader(v, p.field); },     \
            [](std::string& t, std::string_view k, const MoveEffectIniParam& p) { writer(t, k, p.field); }, \
            &MoveEffectIniReadFlag::field                                                                   \
    }

// clang-format off
constexpr IniKey kIniKeys[] = {
    BRIVANE_INI_KEY("guide", type, GetIniPath, AppendIniType),
    BRIVANE_INI_KEY("guide", p1, GetIniPoint, AppendIniPoint),
    BRIVANE_INI_KEY("guide", p2, GetIniPoint, AppendIniPoint),
    BRIVANE_INI_KEY("guide", p3, GetIniPoint, AppendIniPoint),
    BRIVANE_INI_KEY("guide", name, GetIniString, AppendIniName),
    BRIVANE_INI_KEY("guide", curvature, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("pen", size, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("pen", hardness, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("pen", fluction, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("pen", in, GetIniInteger, AppendIniInteger),
    BRIVANE_INI_KEY("pen", out, GetIniInteger, AppendIniInteger),
    BRIVANE_INI_KEY("pen", asdist, GetIniBool, AppendIniBool),
    BRIVANE_INI_KEY("pen", easing, GetIniBool, AppendIniBool),
    BRIVANE_INI_KEY("line", position, GetIniInteger, AppendIniInteger),
    BRIVANE_INI_KEY("line", posfluct, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("line", length, GetIniInteger, AppendIniInteger),
    BRIVANE_INI_KEY("line", lenfluct, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("line", spacing, GetIniInteger, AppendIniInteger),
    BRIVANE_INI_KEY("line", spcfluct, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("line", lengain, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("line", spcgain, GetIniDouble, AppendIniDouble),
    BRIVANE_INI_KEY("line", connect, GetIniBool, AppendIniBool),
};
// clang-format on

#undef BRIVANE_INI_KEY

const IniKey* FindIniKey(std::string_view category, std::string_view key) {
    for (const IniKey& entry : kIniKeys) {
        if (entry.category == category && entry.key == key) return &entry;
    }
    return nullptr;
}

// One line of the file, already trimmed: a header changes the category, a known key is read.
void ReadIniLine(std::string_view line, std::string_view& category, MoveEffectIniParam& param,
                 MoveEffectIniReadFlag& flags) {
    if (line.empty() || line.front() == '#' || line.front() == ';') return;
    if (line.front() == '[') {
        const std::size_t close = line.find(']');
        if (close != std::string_view::npos) category = Trim(line.substr(1, close - 1));
        return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const IniKey* entry = FindIniKey(category, Trim(line.substr(0, equals)));
    if (entry == nullptr) return;
    flags.*entry->flag = entry->read(Trim(line.substr(equals + 1)), param);
}

void AppendKey(std::string& text, std::string_view key) {
    text.append(key);
    text.push_back('=');
}

std::string FormatInteger(int32_t value) {
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

}  // namespace

void GetDefaultPreset(MoveEffectIniParam* param) {
    if (param == nullptr) return;
    std::memset(param, 0, sizeof *param);
    param->type = 0;
    param->p1 = {0.5, 0.5};
    param->p2 = {0.5, 0.325};
    param->p3 = {0.5, 0.125};
    std::memcpy(param->name, ":S", 3);
    param->curvature = 1.0;
    param->size = 2.0;
    param->hardness = 1.0;
    param->fluction = 0.0;
    param->in = 500;
    param->out = 500;
    param->asdist = false;
    param->easing = false;
    param->position = 0;
    param->posfluct = 0.0;
    param->length = 10;
    param->lenfluct = 0.0;
    param->spacing = 50;
    param->spcfluct = 0.0;
    param->lengain = 0.0;
    param->spcgain = 0.0;
    param->connect = true;
}

void GetDefaultTargetPoint(int type, int index, PathPoint& point) {
    static constexpr PathPoint kPoints[3][3] = {
        {{0.5, 0.5}, {0.5, 0.325}, {0.5, 0.125}},       // radiate
        {{0.25, 0.875}, {0.25, 0.125}, {0.75, 0.875}},  // parallel
        {{0.25, 0.5}, {0.75, 0.5}, {0.5, 0.25}},        // circle
    };
    if (type < 0 || type > 2 || index < 0 || index > 2) return;
    point = kPoints[type][index];
}

bool ParsePresetText(std::string_view text, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags) {
    if (param == nullptr || text.empty()) return false;
    std::memset(param, 0, sizeof *param);
    MoveEffectIniReadFlag read;
    std::memset(&read, 0, sizeof read);

    std::string_view category;  // keys before the first header belong to no category
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        ReadIniLine(Trim(text.substr(0, end)), category, *param, read);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    if (flags != nullptr) *flags = read;
    return true;
}

std::string FormatPresetText(const MoveEffectIniParam& param) {
    std::string text;
    std::string_view category;
    for (const IniKey& entry : kIniKeys) {
        if (entry.category != category) {
            if (!category.empty()) AppendIniEmptyLine(text);
            category = entry.category;
            AppendIniCategory(text, category);
        }
        entry.write(text, entry.key, param);
    }
    return text;
}

bool LoadPreset(const std::u16string& name, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags) {
    if (param == nullptr) return false;
    std::string text;
    if (ReadAllTextWithin(GetPluginDataPath(name, true), kPresetMaxBytes, text) != ReadResult::kRead)
        return false;
    return ParsePresetText(text, param, flags);
}

bool SavePreset(const std::u16string& name, const MoveEffectIniParam* param) {
    if (param == nullptr || name.empty()) return false;
    return WriteAllText(GetIniFilePath(name), FormatPresetText(*param));
}

bool SavePresetAsDate(const MoveEffectIniParam* param, std::u16string* outName) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char stamp[32] = "";
    if (localtime_r(&now, &local) != nullptr) std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    const std::u16string name = Utf8ToUtf16(stamp);
    if (outName != nullptr) *outName = name;
    return SavePreset(name, param);
}

bool GetIniInteger(std::string_view value, int32_t& out) {
    return ReadLeadingInt32(value, out) == std::errc{};
}

bool GetIniDouble(std::string_view value, double& out) {
    return ReadLeadingDouble(value, out) == std::errc{};
}

bool GetIniString(std::string_view value, char (&out)[kIniNameCapacity]) {
    if (value.size() > kIniNameMaxLength) return false;
    value.copy(out, value.size());
    out[value.size()] = '\0';
    return true;
}

bool GetIniBool(std::string_view value, bool& out) {
    if (value == "1" || EqualsLowerAscii(value, "true")) {
        out = true;
        return true;
    }
    if (value == "0" || EqualsLowerAscii(value, "false")) {
        out = false;
        return true;
    }
    return false;
}

bool GetIniPath(std::string_view value, int32_t& out) {
    for (int32_t type = 0; type < 3; ++type) {
        if (EqualsLowerAscii(value, kTypeWords[type])) {
            out = type;
            return true;
        }
    }
    return false;
}

bool GetIniPoint(std::string_view value, PathPoint& out) {
    const std::size_t comma = value.find(',');
    if (value.empty() || comma == std::string_view::npos) return false;
    if (!GetIniDouble(value.substr(0, comma), out.x)) return false;
    return GetIniDouble(value.substr(comma + 1), out.y);
}

void AppendIniEmptyLine(std::string& text) {
    text.push_back('\n');
}

void AppendIniCategory(std::string& text, std::string_view category) {
    text.push_back('[');
    text.append(category);
    text.append("]\n");
}

void AppendIniPoint(std::string& text, std::string_view key, const PathPoint& value) {
    AppendKey(text, key);
    text.append(_dtos(value.x, 5));
    text.push_back(',');
    text.append(_dtos(value.y, 5));
    text.push_back('\n');
}

void AppendIniBool(std::string& text, std::string_view key, bool value) {
    AppendKey(text, key);
    text.append(value ? "true" : "false");
    text.push_back('\n');
}

void AppendIniString(std::string& text, std::string_view key, std::string_view value) {
    AppendKey(text, key);
    text.append(value);
    text.push_back('\n');
}

void AppendIniInteger(std::string& text, std::string_view key, int32_t value) {
    AppendKey(text, key);
    text.append(FormatInteger(value));
    text.push_back('\n');
}

void AppendIniDouble(std::string& text, std::string_view key, double value) {
    AppendKey(text, key);
    text.append(_dtos(value, 2));
    text.push_back('\n');
}

std::string _dtos(double value, int decimals) {
    // A negative precision means the stream default of 6. Past 1074 decimals every double is exact and
    // further digits are zeros that the trimming below removes anyway.
    if (decimals < 0) decimals = 6;
    if (decimals > 1074) decimals = 1074;
    // Fixed notation of the largest double: 309 digits before the point.
    std::string text(320 + static_cast<std::size_t>(decimals), '\0');
    const auto result =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, decimals);
    text.resize(static_cast<std::size_t>(result.ptr - text.data()));
    if (text.find('.') != std::string::npos) {
        while (text.back() == '0')
            text.pop_back();
        if (text.back() == '.') text.pop_back();
    }
    return text;
}
