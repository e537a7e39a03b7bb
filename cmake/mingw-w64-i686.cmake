# Cross-compiles for 32-bit x86 Windows with Debian's MinGW-w64 (posix
# threads variant, which GoogleTest needs for std::mutex). Programs built
# for the tests run under 32-bit Wine through the emulator wrapper.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(KELVO_MINGW_PREFIX i686-w64-mingw32)
set(CMAKE_C_COMPILER ${KELVO_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KELVO_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KELVO_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KELVO_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-exec.sh)
