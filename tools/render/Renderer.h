// Renderer: brivane-render from arguments to files, callable in-process.
//
//   std::ostringstream out, err;
//   int status = RunRender({"page.png", "--type", "circle", "-o", "rings.png"}, out, err, {});
//
// LoadGuide is exposed on its own for tests.
#pragma once

#include <csignal>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "engine/MoveEffectParam.h"
#include "guide/PathParser.h"
#include "tools/common/PngImage.h"
#include "tools/render/RenderOptions.h"

namespace brivane::tools {

inline constexpr int kExitOk = 0;
inline constexpr int kExitBadInput = 2;       // bad arguments, unreadable or unwritable files
inline constexpr int kExitInterrupted = 130;  // the shell's code for a run stopped by Ctrl-C

// Loads the guide that the options name. Built-in names go through the plug-in's own loader. A file is
// looked up as given, then (for a bare name) as NAME.svg next to the preset that named it, then in the
// plug-in's guide folder. Unlike the plug-in, which quietly falls back to the straight guide, a missing
// file, a file without a usable path and a malformed number in the path data are reported.
// The file that was read, if any, goes into *file.
bool LoadGuide(const RenderOptions& options, PathParser& guide, std::string& error,
               std::string* file = nullptr);

// Called on the rendering thread with the engine's progress; false asks the engine to stop.
using ProgressFn = std::function<bool(int total, int done)>;

struct RenderEnvironment {
    bool errIsTerminal = false;                               // draw a progress bar on `err`
    const volatile std::sig_atomic_t* interrupted = nullptr;  // non-zero: stop and write nothing
};

// The whole tool: returns the exit status; messages go to `err` as one line each, --help to `out`.
int RunRender(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
              const RenderEnvironment& environment);

}  // namespace brivane::tools
