// Windows: the data home is the user's roaming application-data folder, which a program cannot move, so
// a test's data home is that folder, emptied of what the test adds.
#include <windows.h>
// windows.h first: the shell headers build on its types.
#include <knownfolders.h>
#include <shlobj.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "tests/support/TestSystem.h"

namespace brivane_test {

void SetEnv(const char* name, const char* value) {
    _putenv_s(name, value != nullptr ? value : "");  // an empty value removes the variable
}

DataHomeOverride::DataHomeOverride(const std::filesystem::path&) {
    PWSTR roaming = nullptr;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, &roaming)))
        path_ = roaming;
    CoTaskMemFree(roaming);
    if (path_.empty()) return;
    // Our own folder starts empty; whatever else the test adds beside it is removed afterwards.
    std::error_code error;
    std::filesystem::remove_all(path_ / "quorvel", error);
    for (const auto& entry : std::filesystem::directory_iterator(path_, error))
        before_.push_back(entry.path());
}

DataHomeOverride::~DataHomeOverride() {
    if (path_.empty()) return;
    std::error_code error;
    std::vector<std::filesystem::path> added;
    for (const auto& entry : std::filesystem::directory_iterator(path_, error)) {
        if (std::find(before_.begin(), before_.end(), entry.path()) == before_.end())
            added.push_back(entry.path());
    }
    for (const auto& path : added)
        std::filesystem::remove_all(path, error);
}

}  // namespace brivane_test
