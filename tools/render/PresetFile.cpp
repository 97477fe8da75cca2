#include "tools/render/PresetFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace brivane::tools {
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
