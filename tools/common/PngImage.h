// PngImage: the tools' one way in and out of PNG files (libpng underneath).
//
//   PngImage layer;
//   std::string error;
//   if (!ReadPng("page.png", layer, error)) { fprintf(stderr, "%s\n", error.c_str()); return 2; }
//   ... layer.pixels holds width x height pixels of layer.channels samples ...
//   WritePng("out.png", layer, error);
//
// Palette, low-bit grey and tRNS transparency are expanded on reading, so a caller only ever sees 8- or
// 16-bit samples with 1 (grey), 2 (grey, alpha), 3 (RGB) or 4 (RGBA) channels. 16-bit samples are kept in
// the machine's byte order in memory (PNG stores them big-endian on disk).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace brivane::tools {

struct PngImage {
    uint32_t width = 0;           // pixels
    uint32_t height = 0;          // pixels
    int channels = 0;             // 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA
    int bitDepth = 8;             // 8 or 16 bits per sample
    std::vector<uint8_t> pixels;  // rows of RowBytes() bytes, top row first, no padding between rows

    size_t BytesPerPixel() const { return static_cast<size_t>(channels) * (bitDepth / 8); }
    size_t RowBytes() const { return BytesPerPixel() * width; }
};

// Hard limit on either side of an image read from a file: large print pages are around 10,000 px, so
// anything far beyond that is a damaged or hostile header, not a drawing.
inline constexpr uint32_t kMaxPngSide = 65536;
// Hard limit on the decoded size (4 GiB), for the same reason: a bad header must not make us allocate
// without end.
inline constexpr uint64_t kMaxPngBytes = 4ull << 30;

// Reads a PNG file. On failure returns false, leaves `out` untouched and puts a one-line reason naming
// the file into `error`.
bool ReadPng(const std::string& path, PngImage& out, std::string& error);

// Writes `image` as a PNG file (non-interlaced, default compression). Returns false with a one-line
// reason on failure; a partly written file is removed.
bool WritePng(const std::string& path, const PngImage& image, std::string& error);

}  // namespace brivane::tools
