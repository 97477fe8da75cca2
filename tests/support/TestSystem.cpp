#include "tests/support/TestSystem.h"

#include <random>
#include <system_error>

namespace brivane_test {

std::filesystem::path MakeScratchFolder(const std::string& prefix) {
    std::error_code error;
    const std::filesystem::path temp = std::filesystem::temp_directory_path(error);
    if (error) return {};
    std::random_device entropy;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::filesystem::path folder = temp / (prefix + std::to_string(entropy()));
        if (std::filesystem::create_directory(folder, error)) return folder;
    }
    return {};
}

}  // namespace brivane_test
