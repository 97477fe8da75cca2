#include "tools/common/PngImage.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace brivane::tools {
namespace {

struct FileCloser {
    void operator()(FILE* f) const {
        if (f) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// libpng reports errors through longjmp; the message is kept in the caller's buffer of
// kPngMessageBytes so the caller can name it.
void OnPngMessage(png_structp png, png_const_charp message) {
    auto* buffer = static_cast<char*>(png_get_error_ptr(png));
    if (buffer) snprintf(buffer, kPngMessageBytes, "%s", message);
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

bool ReadPngRows(const std::string& path, PngRowSink& sink, std::string& error) {
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

    char message[kPngMessageBytes] = "";
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, message, OnPngMessage, OnPngWarning);
    if (!png) {
        error = path + ": out of memory";
        return false;
    }
    png_infop info = png_create_info_struct(png);
    // Everything that must survive the longjmp lives outside the protected block.
    PngImage header;
    std::vector<uint8_t> whole;  // an interlaced image, decoded in passes over all of its rows
    std::vector<png_bytep> rows;
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        error = path + ": damaged PNG file" + (message[0] ? std::string(": ") + message : "");
        return false;
    }
    png_init_io(png, file.get());
    png_set_sig_bytes(png, sizeof signature);
    png_set_user_limits(png, kMaxPngSide, kMaxPngSide);
#if defined(PNG_SET_OPTION_SUPPORTED) && defined(PNG_IGNORE_ADLER32)
    // Every chunk's CRC is still checked. The zlib stream's own checksum would check the same bytes
    // again, over the whole decoded image: a sixth of the time it takes to read a large page.
    png_set_option(png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
#endif
    png_read_info(png, info);

    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const int colorType = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);

    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    if (depth == 16 && IsLittleEndianHost()) png_set_swap(png);
    const bool interlaced = png_set_interlace_handling(png) > 1;
    png_read_update_info(png, info);

    header.width = width;
    header.height = height;
    header.channels = png_get_channels(png, info);
    header.bitDepth = png_get_bit_depth(png, info);
    const size_t rowBytes = png_get_rowbytes(png, info);
    if (header.channels < 1 || header.channels > 4 || (header.bitDepth != 8 && header.bitDepth != 16) ||
        rowBytes != header.RowBytes()) {
        png_destroy_read_struct(&png, &info, nullptr);
        error = path + ": unsupported PNG layout";
        return false;
    }
    if (static_cast<uint64_t>(rowBytes) * height > kMaxPngBytes) {
        png_destroy_read_struct(&png, &info, nullptr);
        error = path + ": image too large";
        return false;
    }
    if (!sink.Begin(header, error)) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    if (interlaced) {
        whole.resize(rowBytes * height);
        rows.resize(height);
        for (png_uint_32 y = 0; y < height; ++y)
            rows[y] = whole.data() + y * rowBytes;
        png_read_image(png, rows.data());
        for (png_uint_32 y = 0; y < height; ++y) {
            std::memcpy(sink.Row(y), rows[y], rowBytes);
            sink.RowDone(y);
        }
    } else {
        for (png_uint_32 y = 0; y < height; ++y) {
            png_read_row(png, sink.Row(y), nullptr);
            sink.RowDone(y);
        }
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

bool ReadPng(const std::string& path, PngImage& out, std::string& error) {
    // Rows are decoded straight into the image, which replaces `out` only once the file is read whole.
    struct WholeImage : PngRowSink {
        PngImage image;
        bool Begin(const PngImage& header, std::string&) override {
            image = header;
            image.pixels.resize(header.RowBytes() * header.height);
            return true;
        }
        uint8_t* Row(uint32_t y) override { return image.pixels.data() + y * image.RowBytes(); }
    } whole;
    if (!ReadPngRows(path, whole, error)) return false;
    out = std::move(whole.image);
    return true;
}

bool WritePng(const std::string& path, const PngImage& image, std::string& error,
              PngCompression compression) {
    PngWriter writer;
    if (!writer.Open(path, image, compression, error)) return false;
    const size_t rowBytes = image.RowBytes();
    for (uint32_t y = 0; y < image.height; ++y) {
        if (!writer.WriteRow(image.pixels.data() + y * rowBytes, error)) return false;
    }
    return writer.Finish(error);
}

PngWriter::~PngWriter() {
    if (!m_file) return;
    png_destroy_write_struct(&m_png, m_info ? &m_info : nullptr);
    fclose(m_file);
    std::remove(m_path.c_str());
}

bool PngWriter::Fail(const std::string& what, std::string& error) {
    error = m_path + ": " + what + (m_message[0] ? std::string(": ") + m_message : "");
    png_destroy_write_struct(&m_png, m_info ? &m_info : nullptr);
    if (m_file) fclose(m_file);
    m_file = nullptr;
    std::remove(m_path.c_str());
    return false;
}

bool PngWriter::Open(const std::string& path, const PngImage& image, PngCompression compression,
                     std::string& error) {
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
        (!image.pixels.empty() && image.pixels.size() < image.RowBytes() * image.height)) {
        error = path + ": cannot write an empty or inconsistent image";
        return false;
    }
    m_path = path;
    m_file = fopen(path.c_str(), "wb");
    if (!m_file) {
        error = path + ": cannot create: " + std::strerror(errno);
        return false;
    }
    m_png = png_create_write_struct(PNG_LIBPNG_VER_STRING, m_message, OnPngMessage, OnPngWarning);
    m_info = m_png ? png_create_info_struct(m_png) : nullptr;
    if (!m_png || !m_info || setjmp(png_jmpbuf(m_png))) return Fail("cannot write PNG", error);
    png_init_io(m_png, m_file);
    png_set_IHDR(m_png, m_info, image.width, image.height, image.bitDepth, colorType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (compression == PngCompression::kSmall) {
        png_set_compression_level(m_png, 9);
        png_set_filter(m_png, PNG_FILTER_TYPE_BASE, PNG_ALL_FILTERS);
    } else {
        // Choosing a filter per row costs more than the deflate that follows; unfiltered rows of
        // effect lines still shrink well.
        png_set_compression_level(m_png, 1);
        png_set_filter(m_png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
    }
    png_write_info(m_png, m_info);
    if (image.bitDepth == 16 && IsLittleEndianHost()) png_set_swap(m_png);
    return true;
}

bool PngWriter::WriteRow(const uint8_t* row, std::string& error) {
    if (!m_file) return false;
    if (setjmp(png_jmpbuf(m_png))) return Fail("cannot write PNG", error);
    png_write_row(m_png, const_cast<png_bytep>(row));
    return true;
}

bool PngWriter::Finish(std::string& error) {
    if (!m_file) return false;
    if (setjmp(png_jmpbuf(m_png))) return Fail("cannot write PNG", error);
    png_write_end(m_png, nullptr);
    png_destroy_write_struct(&m_png, &m_info);
    if (fflush(m_file) != 0 || ferror(m_file))
        return Fail(std::string("write failed: ") + std::strerror(errno), error);
    fclose(m_file);
    m_file = nullptr;
    return true;
}

}  // namespace brivane::tools
