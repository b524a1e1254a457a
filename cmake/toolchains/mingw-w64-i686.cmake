# 32-bit Windows with Debian's g++-mingw-w64-i686-posix:
#   cmake -S . -B build/win32 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-i686.cmake
set(CMAKE_SYSTEM_PROCESSOR x86)
set(VELQ_MINGW_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
