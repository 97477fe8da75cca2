// The tools' PNG reader on each input via a scratch file: what it accepts holds all rows, a refusal says why.
#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/common/PngImage.h"

static const std::string kPath = "/tmp/brivane-png-fuzz-" + std::to_string(getpid());
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(kPath.c_str(), "wb");
    if (!file || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) std::abort();
    brivane::tools::PngImage image;
    std::string error;
    const bool read = brivane::tools::ReadPng(kPath, image, error);
    if (read ? image.pixels.size() != image.RowBytes() * image.height : error.empty()) std::abort();
    return std::remove(kPath.c_str()), 0;
}
