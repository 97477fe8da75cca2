// brivane-make-samples FOLDER: writes the bundled demo layers (focus.png, speed.png, rings.png) into
// FOLDER, which must exist. `make samples` runs it on samples/.
#include <cstdio>
#include <string>

#include "tools/render/SampleLayers.h"

int main(int argc, char** argv) {
    if (argc != 2 || std::string(argv[1]) == "--help") {
        std::fprintf(stderr, "usage: brivane-make-samples FOLDER\n");
        return 2;
    }
    for (const auto& layer : brivane::tools::MakeSampleLayers()) {
        const std::string path = std::string(argv[1]) + "/" + layer.fileName;
        std::string error;
        if (!brivane::tools::WritePng(path, layer.image, error)) {
            std::fprintf(stderr, "brivane-make-samples: %s\n", error.c_str());
            return 2;
        }
        std::printf("%s\n", path.c_str());
    }
    return 0;
}
