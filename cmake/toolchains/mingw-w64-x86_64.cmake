# 64-bit Windows with Debian's g++-mingw-w64-x86-64-posix:
#   cmake -S . -B build/win64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake
# Its tests run under wine64 (see the top-level CMakeLists.txt).
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(VELQ_MINGW_TRIPLE x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
