// POSIX systems: the data home follows XDG_DATA_HOME.
#include <stdlib.h>

#include "tests/support/TestSystem.h"

namespace brivane_test {

void SetEnv(const char* name, const char* value) {
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

DataHomeOverride::DataHomeOverride(const std::filesystem::path& scratch) : path_(scratch) {
    if (const char* old = getenv("XDG_DATA_HOME")) {
        old_ = old;
        hadOld_ = true;
    }
    SetEnv("XDG_DATA_HOME", path_.c_str());
}

DataHomeOverride::~DataHomeOverride() {
    SetEnv("XDG_DATA_HOME", hadOld_ ? old_.c_str() : nullptr);
}

}  // namespace brivane_test
