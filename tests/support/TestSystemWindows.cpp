// Windows: the data home is the roaming folder, the one the bridge names.
#include <stdlib.h>

#include <algorithm>

#include "bridge/PlatformBridge.h"
#include "tests/support/TestSystem.h"

namespace brivane_test {

void SetEnv(const char* name, const char* value) {
    _putenv_s(name, value != nullptr ? value : "");  // an empty value removes the variable
}

DataHomeOverride::DataHomeOverride(const std::filesystem::path&) {
    char* roaming = ST_GetAppSupportPath();
    path_ = Utf8Path(roaming != nullptr ? roaming : "");
    ST_FreeUtf8(roaming);
    if (path_.empty()) return;
    std::error_code error;
    std::filesystem::remove_all(path_ / "quorvel", error);
    for (const auto& entry : std::filesystem::directory_iterator(path_, error))
        before_.push_back(entry.path());
}

DataHomeOverride::~DataHomeOverride() {
    std::error_code error;
    std::vector<std::filesystem::path> added;
    for (const auto& entry : std::filesystem::directory_iterator(path_, error)) {
        if (std::find(before_.begin(), before_.end(), entry.path()) == before_.end())
            added.push_back(entry.path());
    }
    for (const auto& path : added)
        std::filesystem::remove_all(path, error);
}

// Windows has no per-process limit on file sizes.
FileSizeLimit::FileSizeLimit(unsigned long long) {}
FileSizeLimit::~FileSizeLimit() {}

}  // namespace brivane_test
