#include "tools/common/PngImage.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

namespace brivane::tools {
namespace {

struct FileCloser {
    void operator()(FILE* f) const {
        if (f) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// libpng reports errors through longjmp; the message is kept here so the caller can name it.
struct ErrorSink {
    char message[256] = "";
};

void OnPngError(png_structp png, png_const_charp message) {
    auto* sink = static_cast<ErrorSink*>(png_get_error_ptr(png));
    if (sink) snprintf(sink->message, sizeof sink->message, "%s", message);
    png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

bool IsLittleEndianHost() {
    const uint16_t probe = 1;
    uint8_t first;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

}  // namespace

bool ReadPng(const std::string& path, PngImage& out, std::string& error) {
    FilePtr file(fopen(path.c_str(), "rb"));
    if (!file) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    png_byte signature[8];
    if (fread(signature, 1, sizeof signature, file.get()) != sizeof signature ||
        png_sig_cmp(signature, 0, sizeof signature) != 0) {
        error = path + ": not a PNG file";
        return false;
    }

    ErrorSink sink;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &sink, OnPngError, OnPngWarning);
    if (!png) {
        error = path + ": out of memory";
        return false;
    }
    png_infop info = png_create_info_struct(png);
    // Everything that must survive the longjmp lives outside the protected block.
    PngImage image;
    std::vector<png_bytep> rows;
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        error = path + ": damaged PNG file" + (sink.message[0] ? std::string(": ") + sink.message : "");
        return false;
    }
    png_init_io(png, file.get());
    png_set_sig_bytes(png, sizeof signature);
    png_set_user_limits(png, kMaxPngSide, kMaxPngSide);
    png_read_info(png, info);

    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const int colorType = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);

    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    if (depth == 16 && IsLittleEndianHost()) png_set_swap(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);

    image.width = width;
    image.height = height;
    image.channels = png_get_channels(png, info);
    image.bitDepth = png_get_bit_depth(png, info);
    const size_t rowBytes = png_get_rowbytes(png, info);
    if (image.channels < 1 || image.channels > 4 || (image.bitDepth != 8 && image.bitDepth != 16) ||
        rowBytes != image.RowBytes()) {
        png_destroy_read_struct(&png, &info, nullptr);
        error = path + ": unsupported PNG layout";
        return false;
    }
    if (static_cast<uint64_t>(rowBytes) * height > kMaxPngBytes) {
        png_destroy_read_struct(&png, &info, nullptr);
        error = path + ": image too large";
        return false;
    }
    image.pixels.resize(rowBytes * height);
    rows.resize(height);
    for (png_uint_32 y = 0; y < height; ++y)
        rows[y] = image.pixels.data() + y * rowBytes;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);

    out = std::move(image);
    return true;
}

bool WritePng(const std::string& path, const PngImage& image, std::string& error) {
    int colorType;
    switch (image.channels) {
        case 1:
            colorType = PNG_COLOR_TYPE_GRAY;
            break;
        case 2:
            colorType = PNG_COLOR_TYPE_GRAY_ALPHA;
            break;
        case 3:
            colorType = PNG_COLOR_TYPE_RGB;
            break;
        case 4:
            colorType = PNG_COLOR_TYPE_RGB_ALPHA;
            break;
        default:
            error = path + ": cannot write an image of " + std::to_string(image.channels) + " channels";
            return false;
    }
    if ((image.bitDepth != 8 && image.bitDepth != 16) || image.width == 0 || image.height == 0 ||
        image.pixels.size() < image.RowBytes() * image.height) {
        error = path + ": cannot write an empty or inconsistent image";
        return false;
    }
    FilePtr file(fopen(path.c_str(), "wb"));
    if (!file) {
        error = path + ": cannot create: " + std::strerror(errno);
        return false;
    }

    ErrorSink sink;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, OnPngError, OnPngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    std::vector<png_bytep> rows(image.height);
    if (!png || !info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        file.reset();
        std::remove(path.c_str());
        error = path + ": cannot write PNG" + (sink.message[0] ? std::string(": ") + sink.message : "");
        return false;
    }
    png_init_io(png, file.get());
    png_set_IHDR(png, info, image.width, image.height, image.bitDepth, colorType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // Large pages are written often while working; fast compression keeps the tools snappy.
    png_set_compression_level(png, 3);
    png_write_info(png, info);
    if (image.bitDepth == 16 && IsLittleEndianHost()) png_set_swap(png);
    const size_t rowBytes = image.RowBytes();
    for (uint32_t y = 0; y < image.height; ++y)
        rows[y] = const_cast<png_bytep>(image.pixels.data() + y * rowBytes);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (fflush(file.get()) != 0 || ferror(file.get())) {
        file.reset();
        std::remove(path.c_str());
        error = path + ": write failed: " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace brivane::tools
