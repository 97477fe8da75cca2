// POSIX systems: the data home follows XDG_DATA_HOME; a file size limit stands in for a full disk.
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>

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

// Past the limit a write fails with EFBIG; SIGXFSZ, which would end the process, stays ignored.
FileSizeLimit::FileSizeLimit(unsigned long long bytes) {
    rlimit limit;
    signal(SIGXFSZ, SIG_IGN);
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return;
    old_ = limit.rlim_cur;
    limit.rlim_cur = bytes;
    active_ = setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

FileSizeLimit::~FileSizeLimit() {
    rlimit limit;
    if (!active_ || getrlimit(RLIMIT_FSIZE, &limit) != 0) return;
    limit.rlim_cur = static_cast<rlim_t>(old_);
    setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace brivane_test
