// brivane-render: the effect on a PNG layer from the command line. See RenderUsage() for the options.
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tools/render/Renderer.h"

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) {
    g_interrupted = 1;
}

}  // namespace

int main(int argc, char** argv) {
    // Ctrl-C stops the engine at its next progress report, so no half-drawn file is left behind.
    std::signal(SIGINT, OnInterrupt);
    brivane::tools::RenderEnvironment environment;
    environment.errIsTerminal = isatty(STDERR_FILENO) != 0;
    environment.interrupted = &g_interrupted;
    return brivane::tools::RunRender(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr,
                                     environment);
}
