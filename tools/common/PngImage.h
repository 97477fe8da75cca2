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
#include <cstdio>
#include <string>
#include <vector>

// libpng's own records, kept opaque here.
struct png_struct_def;
struct png_info_def;

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

// Room for libpng's one-line reason when a file cannot be read or written.
inline constexpr size_t kPngMessageBytes = 256;

// Reads a PNG file. On failure returns false, leaves `out` untouched and puts a one-line reason naming
// the file into `error`.
bool ReadPng(const std::string& path, PngImage& out, std::string& error);

// Takes the rows of an image as ReadPngRows decodes them, top row first, so a caller can keep them in
// whatever form it needs instead of the whole decoded file.
class PngRowSink {
public:
    virtual ~PngRowSink() = default;
    // The image's size and layout (`pixels` empty); false refuses it with a reason in `error`.
    virtual bool Begin(const PngImage& header, std::string& error) = 0;
    // Where row y is to be decoded: header.RowBytes() bytes, valid until RowDone(y).
    virtual uint8_t* Row(uint32_t y) = 0;
    virtual void RowDone(uint32_t /*y*/) {}
};

// Reads a PNG file into `sink`, with the expansions of ReadPng. Only an interlaced file is held whole
// while it is decoded. Returns false with a one-line reason naming the file.
bool ReadPngRows(const std::string& path, PngRowSink& sink, std::string& error);

// How hard the writer works: fast (zlib level 1, no row filters) suits large pages written often;
// small (level 9, every filter tried per row) makes the smallest files at several times the cost.
enum class PngCompression { kFast, kSmall };

// Writes `image` as a PNG file (non-interlaced). Returns false with a one-line reason on failure; a
// partly written file is removed.
bool WritePng(const std::string& path, const PngImage& image, std::string& error,
              PngCompression compression = PngCompression::kFast);

// Writes a PNG file row by row, top row first, so an image need never be held whole:
//
//   PngWriter writer;
//   if (!writer.Open(path, header, PngCompression::kFast, error)) ...
//   for (y ...) if (!writer.WriteRow(row, error)) ...
//   if (!writer.Finish(error)) ...
//
// A writer destroyed before Finish succeeded removes its file.
class PngWriter {
public:
    PngWriter() = default;
    ~PngWriter();
    PngWriter(const PngWriter&) = delete;
    PngWriter& operator=(const PngWriter&) = delete;

    // Creates the file for an image of `header`'s size and layout (`pixels` is not read).
    bool Open(const std::string& path, const PngImage& header, PngCompression compression,
              std::string& error);
    // One row of header.RowBytes() bytes.
    bool WriteRow(const uint8_t* row, std::string& error);
    bool Finish(std::string& error);

private:
    bool Fail(const std::string& what, std::string& error);

    std::string m_path;
    std::FILE* m_file = nullptr;
    png_struct_def* m_png = nullptr;
    png_info_def* m_info = nullptr;
    char m_message[kPngMessageBytes] = "";  // libpng's reason for the last error
};

}  // namespace brivane::tools
