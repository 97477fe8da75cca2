// Test support shared by the storage and guide reader tests: a throw-away data home and a locale with a
// decimal comma.
#pragma once

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <locale>
#include <string>

#include "storage/FileHelpers.h"
#include "tests/support/TestSystem.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace brivane_test {

// Gives the plug-in an empty data home for the life of the object (a fresh temporary folder with a
// non-ASCII name where the system lets a program choose it), so that tests never touch the real data
// folders, and creates the preset and guide folders inside it.
class ScratchDataHome {
public:
    ScratchDataHome()
        : scratch_(MakeScratchFolder("brivane_home.データ.")),
          home_(scratch_),
          root_(Utf8Text(home_.path())) {
        CreateDataDirectory(GetPluginDir(true));
        CreateDataDirectory(GetPluginDir(false));
    }
    ~ScratchDataHome() {
        std::error_code ignored;
        if (!scratch_.empty()) std::filesystem::remove_all(scratch_, ignored);
    }
    ScratchDataHome(const ScratchDataHome&) = delete;
    ScratchDataHome& operator=(const ScratchDataHome&) = delete;

    const std::string& root() const { return root_; }
    std::string PresetPath(const std::string& name) const {
        return root_ + "/quorvel/brivane/preset/" + name + ".ini";
    }
    std::string GuidePath(const std::string& name) const {
        return root_ + "/quorvel/brivane/guide/" + name + ".svg";
    }
    void WritePreset(const std::string& name, const std::string& bytes) const {
        Write(PresetPath(name), bytes);
    }
    void WriteGuide(const std::string& name, const std::string& bytes) const {
        Write(GuidePath(name), bytes);
    }

    static void Write(const std::string& path, const std::string& bytes) {
        std::ofstream(Utf8Path(path), std::ios::binary | std::ios::trunc)
            .write(bytes.data(), std::streamsize(bytes.size()));
    }
    static std::string Read(const std::string& path) {
        std::ifstream file(Utf8Path(path), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path scratch_;
    DataHomeOverride home_;
    std::string root_;
};

// Switches both the C library and the C++ global locale to one whose decimal point is a comma, for the
// life of the object, and back to "C" afterwards. When no such locale is installed and the system has
// the locale sources, one is compiled into a temporary folder (LOCPATH). active() is false when neither
// works; the caller then skips.
class DecimalCommaLocale {
public:
    DecimalCommaLocale() {
        if (TryNames()) return;
        if (std::system("command -v localedef >/dev/null 2>&1") != 0) return;
        if (!std::filesystem::exists("/usr/share/i18n/locales/de_DE")) return;
        compiled_ = Utf8Text(MakeScratchFolder("brivane_locale."));
        if (compiled_.empty()) return;
        const std::string command =
            "localedef -i de_DE -f UTF-8 '" + compiled_ + "/de_DE.UTF-8' >/dev/null 2>&1";
        if (std::system(command.c_str()) != 0 && !std::filesystem::exists(compiled_ + "/de_DE.UTF-8")) return;
        SetEnv("LOCPATH", compiled_.c_str());
        TryNames();
    }
    ~DecimalCommaLocale() {
        std::setlocale(LC_ALL, "C");
        std::locale::global(std::locale::classic());
        if (!compiled_.empty()) {
            SetEnv("LOCPATH", nullptr);
            std::error_code ignored;
            std::filesystem::remove_all(compiled_, ignored);
        }
    }
    DecimalCommaLocale(const DecimalCommaLocale&) = delete;
    DecimalCommaLocale& operator=(const DecimalCommaLocale&) = delete;

    bool active() const { return active_; }

private:
    bool TryNames() {
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "nl_NL.UTF-8",
                                 "ru_RU.UTF-8", "de_DE", "fr_FR"}) {
            if (std::setlocale(LC_ALL, name) == nullptr) continue;
            if (std::localeconv()->decimal_point[0] != ',') continue;
            try {
#if defined(__SANITIZE_ADDRESS__)
                // glibc's newlocale never frees its copy of LOCPATH; that is not ours to report.
                __lsan::ScopedDisabler ignoreLibraryLeak;
#endif
                std::locale::global(std::locale(name));
            } catch (const std::runtime_error&) {
                continue;
            }
            active_ = true;
            return true;
        }
        std::setlocale(LC_ALL, "C");
        return false;
    }

    bool active_ = false;
    std::string compiled_;
};

}  // namespace brivane_test
