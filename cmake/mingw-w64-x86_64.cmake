# Cross-compiles for 64-bit Windows with the POSIX-threads variant of mingw-w64, and runs what is
# built under Wine. scripts/build-cross-libraries builds the libraries.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH repository)
set(CMAKE_CROSSCOMPILING_EMULATOR "${repository}/scripts/wine")
set(CMAKE_FIND_ROOT_PATH "${repository}/build/dependencies/windows" /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
