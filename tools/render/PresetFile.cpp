#include "tools/render/PresetFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "storage/FileHelpers.h"

namespace brivane::tools {

namespace {

// The system's reason for the last failure, when it gave one.
std::string Reason() {
    return errno != 0 ? std::string(": ") + std::strerror(errno) : std::string();
}

}  // namespace

bool ReadPresetFile(const std::string& path, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags,
                    std::string& error) {
    std::string text;
    errno = 0;
    // The plug-in's own bound: a preset the plug-in would refuse is refused here too, with the reason.
    switch (ReadAllTextWithin(path, kPresetMaxBytes, text)) {
        case ReadResult::kRead:
            break;
        case ReadResult::kTooLarge:
            error =
                path + ": not a preset file: larger than " + std::to_string(kPresetMaxBytes >> 10) + " KiB";
            return false;
        case ReadResult::kUnreadable: {
            std::error_code ignored;
            error = path + ": cannot open" +
                    (std::filesystem::is_directory(path, ignored) ? ": is a folder" : Reason());
            return false;
        }
    }
    if (!ParsePresetText(text, param, flags)) {
        error = path + ": empty preset file";
        return false;
    }
    return true;
}

bool WritePresetFile(const std::string& path, const MoveEffectIniParam& param, std::string& error) {
    errno = 0;
    // Written beside the file and then put in its place, as the plug-in saves: a failed save leaves an
    // older preset of that name whole.
    if (WriteAllText(path, FormatPresetText(param))) return true;
    error = path + ": cannot save" + Reason();
    return false;
}

}  // namespace brivane::tools
