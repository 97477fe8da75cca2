#include "tools/common/PngImage.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

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
