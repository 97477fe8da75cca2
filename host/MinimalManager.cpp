// STAND-IN: a manager for testing the host layer, built into the module brivane_standin_plugin (the
// real module gets its manager from the effect controller; see host/CMakeLists.txt).
//
// It registers the filter under the real identifier and names, and "draws" by filling the selection
// (or the whole layer) with the main colour, so the host bridge can be driven end to end: buffers in
// every channel order, progress with cancellation, restart, and write-back.
#include <cstring>

#include "host/PluginManager.h"

namespace {

// Progress is reported in this many steps a pass, as the effect controller will do.
constexpr int64_t kProgressSteps = 500;

class MinimalManager final : public PluginManager {
public:
    void OnGetGuid(char* buffer) override { std::strcpy(buffer, "3A7C51E2-94B0-4F6D-8E21-C5D90B7A4F13"); }

    bool OnInitFilter() override {
        SetPluginName(101, 't', 102, 's');
        SetLayerMode(35);
        EnablePreview(true);
        EnableDrawEmptyArea(true);
        return true;
    }

    bool OnPropertyChanged(int64_t, _Property*) override { return true; }

    void OnPrepareDraw() override {
        SetProgressMax(kProgressSteps);
        AllocBitmap();
    }

    void OnCalculate() override {
        const BitmapBlock& dest = m_destination;
        if (!dest.pixels || dest.depth < 1) return;
        const uint32_t rgb = GetMainColor();
        const unsigned char red = rgb & 0xff, green = (rgb >> 8) & 0xff, blue = (rgb >> 16) & 0xff;
        const unsigned char grey = static_cast<unsigned char>((77 * red + 150 * green + 29 * blue) >> 8);

        int64_t reported = 0;
        for (int64_t y = 0; y < dest.height; ++y) {
            unsigned char* row = dest.pixels + y * dest.rowBytes;
            for (int64_t x = 0; x < dest.width; ++x) {
                if (!IsSelected(x, y)) continue;
                FillPixel(row + x * dest.depth, red, green, blue, grey);
            }
            const int64_t step = (y + 1) * kProgressSteps / dest.height;
            if (step > reported) {
                reported = step;
                SetProgressValue(step);
                if (GetCurrentHostState(kHostProcessStateContinue) != kHostProcessAnswerContinue) return;
            }
        }
        ApplyBitmap();
    }

    void OnExitDraw() override { ReleaseBitmap(); }

private:
    bool IsSelected(int64_t x, int64_t y) const {
        const BitmapBlock& mask = m_selection;
        if (!mask.pixels) return true;
        if (x >= mask.width || y >= mask.height) return false;
        return mask.pixels[y * mask.rowBytes + x * mask.depth] != 0;
    }

    void FillPixel(unsigned char* pixel, unsigned char red, unsigned char green, unsigned char blue,
                   unsigned char grey) const {
        const BitmapBlock& dest = m_destination;
        auto put = [&](int64_t index, unsigned char value) {
            if (index >= 0 && index < dest.depth) pixel[index] = value;
        };
        switch (dest.channelOrder) {
            case kHostChannelOrderRgbAlpha:
                put(dest.channelIndex[0], red);
                put(dest.channelIndex[1], green);
                put(dest.channelIndex[2], blue);
                put(dest.depth - 1, 255);
                break;
            case kHostChannelOrderRgba:
                put(dest.channelIndex[0], red);
                put(dest.channelIndex[1], green);
                put(dest.channelIndex[2], blue);
                put(dest.channelIndex[3], 255);
                break;
            case kHostChannelOrderGrayAlpha:
                put(0, grey);
                put(1, 255);
                break;
            case kHostChannelOrderMask:
                put(0, grey >= 128 ? 255 : 0);
                put(1, 255);
                break;
            default:
                put(0, 255);
                break;
        }
    }
};

}  // namespace

PluginManager* CreatePluginManager() {
    return new MinimalManager;
}
