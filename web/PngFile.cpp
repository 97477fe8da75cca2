#include "web/PngFile.h"

#include <array>
#include <cstring>
#include <string_view>

namespace {

// The CRC-32 of PNG chunks (polynomial 0xEDB88320), one table entry per byte value.
const std::array<uint32_t, 256>& CrcTable() {
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    return table;
}

void AppendBigEndian(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
}

void AppendChunk(std::vector<uint8_t>& out, std::string_view type, const uint8_t* data, size_t size) {
    AppendBigEndian(out, static_cast<uint32_t>(size));
    const size_t start = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), data, data + size);
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = start; i < out.size(); ++i)
        crc = CrcTable()[(crc ^ out[i]) & 0xFF] ^ (crc >> 8);
    AppendBigEndian(out, crc ^ 0xFFFFFFFFu);
}

}  // namespace

std::vector<uint8_t> PngScanlines(const brivane::tools::PngImage& rgba) {
    const size_t rowBytes = rgba.RowBytes();
    std::vector<uint8_t> rows((rowBytes + 1) * rgba.height, 0);
    for (uint32_t y = 0; y < rgba.height; ++y)
        std::memcpy(&rows[y * (rowBytes + 1) + 1], &rgba.pixels[y * rowBytes], rowBytes);
    return rows;
}

std::vector<uint8_t> PngFileBytes(uint32_t width, uint32_t height, const std::vector<uint8_t>& deflated) {
    static constexpr uint8_t kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> file(std::begin(kSignature), std::end(kSignature));
    std::vector<uint8_t> header;
    AppendBigEndian(header, width);
    AppendBigEndian(header, height);
    header.insert(header.end(), {8, 6, 0, 0, 0});  // 8 bits, RGBA, deflate, adaptive filters, no interlace
    AppendChunk(file, "IHDR", header.data(), header.size());
    AppendChunk(file, "IDAT", deflated.data(), deflated.size());
    AppendChunk(file, "IEND", nullptr, 0);
    return file;
}
