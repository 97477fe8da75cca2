#include "tools/render/PresetFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace brivane::tools {
namespace {

// The white space of the classic "C" classification, whatever the process locale says.
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

// Where each key of each category goes: its reader and its flag.
struct IniKey {
    std::string_view category;
    std::string_view key;
    bool (*read)(std::string_view value, MoveEffectIniParam& param);
    bool MoveEffectIniReadFlag::*flag;
};

template <auto Field, auto Reader>
bool ReadField(std::string_view value, MoveEffectIniParam& param) {
    return Reader(value, param.*Field);
}

using P = MoveEffectIniParam;
using F = MoveEffectIniReadFlag;

// clang-format off
constexpr IniKey kIniKeys[] = {
    {"guide", "type", ReadField<&P::type, GetIniPath>, &F::type},
    {"guide", "p1", ReadField<&P::p1, GetIniPoint>, &F::p1},
    {"guide", "p2", ReadField<&P::p2, GetIniPoint>, &F::p2},
    {"guide", "p3", ReadField<&P::p3, GetIniPoint>, &F::p3},
    {"guide", "name", ReadField<&P::name, GetIniString>, &F::name},
    {"guide", "curvature", ReadField<&P::curvature, GetIniDouble>, &F::curvature},
    {"pen", "size", ReadField<&P::size, GetIniDouble>, &F::size},
    {"pen", "hardness", ReadField<&P::hardness, GetIniDouble>, &F::hardness},
    {"pen", "fluction", ReadField<&P::fluction, GetIniDouble>, &F::fluction},
    {"pen", "in", ReadField<&P::in, GetIniInteger>, &F::in},
    {"pen", "out", ReadField<&P::out, GetIniInteger>, &F::out},
    {"pen", "asdist", ReadField<&P::asdist, GetIniBool>, &F::asdist},
    {"pen", "easing", ReadField<&P::easing, GetIniBool>, &F::easing},
    {"line", "position", ReadField<&P::position, GetIniInteger>, &F::position},
    {"line", "posfluct", ReadField<&P::posfluct, GetIniDouble>, &F::posfluct},
    {"line", "length", ReadField<&P::length, GetIniInteger>, &F::length},
    {"line", "lenfluct", ReadField<&P::lenfluct, GetIniDouble>, &F::lenfluct},
    {"line", "spacing", ReadField<&P::spacing, GetIniInteger>, &F::spacing},
    {"line", "spcfluct", ReadField<&P::spcfluct, GetIniDouble>, &F::spcfluct},
    {"line", "lengain", ReadField<&P::lengain, GetIniDouble>, &F::lengain},
    {"line", "spcgain", ReadField<&P::spcgain, GetIniDouble>, &F::spcgain},
    {"line", "connect", ReadField<&P::connect, GetIniBool>, &F::connect},
};
// clang-format on

// Reads one value of a known key into its field; the reader's result becomes the key's flag. Unknown
// keys, and keys outside their category, are passed over.
void ReadIniValue(std::string_view category, std::string_view key, std::string_view value,
                  MoveEffectIniParam& param, MoveEffectIniReadFlag& flags) {
    for (const IniKey& entry : kIniKeys) {
        if (entry.category == category && entry.key == key) {
            flags.*entry.flag = entry.read(value, param);
            return;
        }
    }
}

}  // namespace

bool ParsePresetText(std::string_view text, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags) {
    if (param == nullptr || text.empty()) return false;
    std::memset(param, 0, sizeof *param);
    MoveEffectIniReadFlag read;
    std::memset(&read, 0, sizeof read);

    std::string_view category;  // keys before the first header belong to no category
    while (true) {
        const std::size_t end = text.find('\n');
        const std::string_view line = Trim(text.substr(0, end));
        if (!line.empty() && line.front() != '#' && line.front() != ';') {
            if (line.front() == '[') {
                const std::size_t close = line.find(']');
                if (close != std::string_view::npos) category = Trim(line.substr(1, close - 1));
            } else if (const std::size_t equals = line.find('='); equals != std::string_view::npos) {
                ReadIniValue(category, Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)), *param,
                             read);
            }
        }
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    if (flags != nullptr) *flags = read;
    return true;
}

std::string FormatPresetText(const MoveEffectIniParam& param) {
    static constexpr const char* kTypeWords[] = {"radiate", "parallel", "circle"};
    const std::string_view type = (param.type >= 0 && param.type <= 2) ? kTypeWords[param.type] : "";
    const std::string_view guide(param.name, strnlen(param.name, sizeof param.name));

    std::string text;
    AppendIniCategory(text, "guide");
    AppendIniString(text, "type", type);
    AppendIniPoint(text, "p1", param.p1);
    AppendIniPoint(text, "p2", param.p2);
    AppendIniPoint(text, "p3", param.p3);
    AppendIniString(text, "name", guide);
    AppendIniDouble(text, "curvature", param.curvature);
    AppendIniEmptyLine(text);
    AppendIniCategory(text, "pen");
    AppendIniDouble(text, "size", param.size);
    AppendIniDouble(text, "hardness", param.hardness);
    AppendIniDouble(text, "fluction", param.fluction);
    AppendIniInteger(text, "in", param.in);
    AppendIniInteger(text, "out", param.out);
    AppendIniBool(text, "asdist", param.asdist);
    AppendIniBool(text, "easing", param.easing);
    AppendIniEmptyLine(text);
    AppendIniCategory(text, "line");
    AppendIniInteger(text, "position", param.position);
    AppendIniDouble(text, "posfluct", param.posfluct);
    AppendIniInteger(text, "length", param.length);
    AppendIniDouble(text, "lenfluct", param.lenfluct);
    AppendIniInteger(text, "spacing", param.spacing);
    AppendIniDouble(text, "spcfluct", param.spcfluct);
    AppendIniDouble(text, "lengain", param.lengain);
    AppendIniDouble(text, "spcgain", param.spcgain);
    AppendIniBool(text, "connect", param.connect);
    return text;
}

bool ReadPresetFile(const std::string& path, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags,
                    std::string& error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) {
        error = path + ": cannot read";
        return false;
    }
    if (!ParsePresetText(text, param, flags)) {
        error = path + ": empty preset file";
        return false;
    }
    return true;
}

bool WritePresetFile(const std::string& path, const MoveEffectIniParam& param, std::string& error) {
    const std::string text = FormatPresetText(param);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        error = path + ": cannot create: " + std::strerror(errno);
        return false;
    }
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        error = path + ": write failed";
        return false;
    }
    return true;
}

}  // namespace brivane::tools
