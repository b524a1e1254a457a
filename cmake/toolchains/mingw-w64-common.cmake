# Shared part of the mingw-w64 toolchains: include it after setting VELQ_MINGW_TRIPLE and
# CMAKE_SYSTEM_PROCESSOR. Debian's compilers, headers and libraries (zlib, libgcrypt, libgpg-error) of the
# -w64-mingw32 triples; the -posix compiler variants, whose winpthreads give std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 10.0)

set(CMAKE_C_COMPILER ${VELQ_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VELQ_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VELQ_MINGW_TRIPLE}-windres)
# Debian ships no pkg-config for these triples: the host's, pointed at the target's .pc files only, so that
# no host library (GLib, GTK) is ever picked up for Windows.
set(ENV{PKG_CONFIG_LIBDIR} /usr/${VELQ_MINGW_TRIPLE}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Libraries and headers come from the target's root only; programs (code generators, Python) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${VELQ_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The C and C++ runtimes (libgcc, libstdc++, winpthread) linked in statically: a program that needs no DLL
# beside it. (The libraries found by find_package are made static archives in the top-level CMakeLists.txt,
# since CMake's Windows platform module resets CMAKE_FIND_LIBRARY_SUFFIXES after a toolchain file.)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++")
