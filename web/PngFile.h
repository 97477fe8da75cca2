// PngFile: an 8-bit RGBA image as a PNG file, with the deflating left to the caller (the browser has
// a deflate stream of its own, so the page carries no compressor).
//
//   std::vector<uint8_t> rows = PngScanlines(image);          // deflate these (zlib format) ...
//   std::vector<uint8_t> file = PngFileBytes(w, h, deflated);  // ... and wrap them
#pragma once

#include <cstdint>
#include <vector>

#include "tools/common/PngImage.h"

// The image's rows, each after its filter-type byte (0, none), as a PNG's image data holds them.
std::vector<uint8_t> PngScanlines(const brivane::tools::PngImage& rgba);
// Signature, header (8-bit RGBA, not interlaced), the deflated rows as one data chunk, end chunk.
std::vector<uint8_t> PngFileBytes(uint32_t width, uint32_t height, const std::vector<uint8_t>& deflated);
