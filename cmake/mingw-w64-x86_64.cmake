# Cross-builds brivane for 64-bit Windows with Debian's MinGW-w64 compilers:
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# The posix thread flavour is the one whose libstdc++ has std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(BRIVANE_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${BRIVANE_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${BRIVANE_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${BRIVANE_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${BRIVANE_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# MinGW's time.h offers the POSIX localtime_r (which dated presets use) only when asked for it.
set(CMAKE_CXX_FLAGS_INIT "-D_POSIX_THREAD_SAFE_FUNCTIONS=200112L")

# Every program and the module carry their own C++ runtime, so they need no DLL that a plain Windows
# system lacks (libstdc++-6.dll, libgcc_s_seh-1.dll, libwinpthread-1.dll).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Test programs run under Wine; the wrapper keeps the Wine prefix inside the build folder.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
