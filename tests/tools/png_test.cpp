#include "tools/common/PngImage.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

using brivane::tools::PngImage;
using brivane::tools::ReadPng;
using brivane::tools::WritePng;

namespace {

std::string TempPath(const std::string& name) {
    return (std::filesystem::temp_directory_path() / ("brivane_png_test_" + name)).string();
}

PngImage MakeImage(int channels, int bitDepth) {
    PngImage image;
    image.width = 5;
    image.height = 3;
    image.channels = channels;
    image.bitDepth = bitDepth;
    image.pixels.resize(image.RowBytes() * image.height);
    for (size_t i = 0; i < image.pixels.size(); ++i)
        image.pixels[i] = static_cast<uint8_t>(i * 37 + 11);
    return image;
}

}  // namespace

TEST(png_test, writes_and_reads_back_every_supported_layout) {
    for (int channels = 1; channels <= 4; ++channels) {
        for (int depth : {8, 16}) {
            const PngImage image = MakeImage(channels, depth);
            const std::string path = TempPath("roundtrip.png");
            std::string error;
            ASSERT_TRUE(WritePng(path, image, error)) << error;
            PngImage back;
            ASSERT_TRUE(ReadPng(path, back, error)) << error;
            EXPECT_EQ(back.width, image.width);
            EXPECT_EQ(back.height, image.height);
            EXPECT_EQ(back.channels, channels);
            EXPECT_EQ(back.bitDepth, depth);
            EXPECT_EQ(back.pixels, image.pixels) << channels << " channels, " << depth << " bits";
            std::remove(path.c_str());
        }
    }
}

TEST(png_test, keeps_sixteen_bit_samples_in_machine_order) {
    PngImage image = MakeImage(1, 16);
    const uint16_t value = 0x1234;
    std::memcpy(image.pixels.data(), &value, 2);
    const std::string path = TempPath("order.png");
    std::string error;
    ASSERT_TRUE(WritePng(path, image, error)) << error;
    PngImage back;
    ASSERT_TRUE(ReadPng(path, back, error)) << error;
    uint16_t read;
    std::memcpy(&read, back.pixels.data(), 2);
    EXPECT_EQ(read, value);
    std::remove(path.c_str());
}

TEST(png_test, rejects_bad_files_with_a_message_and_leaves_the_output_alone) {
    const std::string notPng = TempPath("text.png");
    std::ofstream(notPng) << "hello, this is not an image";
    const std::string truncated = TempPath("truncated.png");
    {
        const std::string full = TempPath("full.png");
        std::string error;
        ASSERT_TRUE(WritePng(full, MakeImage(4, 8), error));
        std::ifstream in(full, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), {});
        std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
        std::remove(full.c_str());
    }
    struct Case {
        std::string path;
        std::string expected;
    } cases[] = {
        {TempPath("missing.png"), "cannot open"},
        {notPng, "not a PNG file"},
        {truncated, "damaged PNG file"},
    };
    for (const Case& c : cases) {
        PngImage out = MakeImage(2, 8);
        const PngImage before = out;
        std::string error;
        EXPECT_FALSE(ReadPng(c.path, out, error)) << c.path;
        EXPECT_NE(error.find(c.expected), std::string::npos) << error;
        EXPECT_NE(error.find(c.path), std::string::npos) << error;
        EXPECT_EQ(out.pixels, before.pixels);
    }
    std::remove(notPng.c_str());
    std::remove(truncated.c_str());
}

TEST(png_test, refuses_to_write_into_a_missing_folder) {
    std::string error;
    EXPECT_FALSE(WritePng("/nonexistent-folder/x.png", MakeImage(3, 8), error));
    EXPECT_NE(error.find("cannot create"), std::string::npos);
}
