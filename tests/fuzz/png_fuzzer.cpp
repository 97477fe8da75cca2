// The tools' PNG reader on bytes in memory: an image it accepts holds all its rows, a refusal says why.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/common/PngImage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* file = size > 0 ? fmemopen(const_cast<uint8_t*>(data), size, "rb") : nullptr;
    if (!file) return 0;
    brivane::tools::PngImage image;
    std::string error;
    const bool read = brivane::tools::ReadPng(file, "input", image, error);
    std::fclose(file);
    if (read ? image.pixels.size() != image.RowBytes() * image.height : error.empty()) std::abort();
    return 0;
}
