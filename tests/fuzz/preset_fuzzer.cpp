// Preset text: the whole reader, each value reader on the bytes as one value, and the writer on what was
// read. The seeds are the sample presets; preset.dict holds the keys.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "storage/Preset.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    if (ParsePresetText(text, &param, &flags)) {
        // The name must stay a terminated string, the arrangement one of the three.
        if (strnlen(param.name, sizeof param.name) > kIniNameMaxLength) std::abort();
        if (flags.type && (param.type < 0 || param.type > 2)) std::abort();
        if (!ParsePresetText(FormatPresetText(param), &param, &flags)) std::abort();
    }
    int32_t integer = 0;
    double real = 0;
    bool flag = false;
    PathPoint point{};
    GetIniInteger(text, integer);
    GetIniDouble(text, real);
    GetIniBool(text, flag);
    GetIniPath(text, integer);
    GetIniPoint(text, point);
    if (GetIniString(text, param.name) && std::strlen(param.name) > kIniNameMaxLength) std::abort();
    return 0;
}
