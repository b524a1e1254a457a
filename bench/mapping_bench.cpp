// Views of file mappings for the big-file paths' sequential block work: a source read and a destination
// written one view of 1 MiB at a time, with the platform's views (private buffers filled by pread and
// written back by pwrite at UnmapViewOfFile) against shared mmap views of the same files. Each copy
// touches every byte, as the cipher does. The files stay in the page cache between runs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "plat/file_mapping.h"
#include "plat/files.h"
#include "plat/strings.h"

namespace {

constexpr std::size_t kView = 1U << 20;

struct Files {
    std::string folder;
    std::string source;
    std::string dest;
};

Files makeFiles(std::size_t size) {
    std::string pattern = (std::filesystem::temp_directory_path() / "velq-mapbench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    Files files{pattern, pattern + "/source", pattern + "/dest"};
    const int fd = ::open(files.source.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<unsigned char> block(kView);
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<unsigned char>(i * 31);
    }
    for (std::size_t done = 0; done < size; done += kView) {
        if (::write(fd, block.data(), kView) != static_cast<ssize_t>(kView)) {
            std::abort();
        }
    }
    ::close(fd);
    return files;
}

// Every byte read and changed, as a cipher pass does in place.
void touch(unsigned char* data, std::size_t length) {
    for (std::size_t i = 0; i < length; i += 64) {
        data[i] ^= 0x5A;
    }
    benchmark::DoNotOptimize(data);
}

void copyWithPlatformViews(const Files& files, std::size_t size) {
    plat::HANDLE source =
        plat::CreateFileW(plat::fromUtf8(files.source).c_str(), plat::GENERIC_READ, 0, nullptr,
                          plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
    plat::HANDLE dest =
        plat::CreateFileW(plat::fromUtf8(files.dest).c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0,
                          nullptr, plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
    plat::HANDLE sourceMap = plat::CreateFileMappingW(source, nullptr, plat::PAGE_READONLY, 0, 0, nullptr);
    plat::HANDLE destMap = plat::CreateFileMappingW(dest, nullptr, plat::PAGE_READWRITE, 0,
                                                    static_cast<plat::DWORD>(size), nullptr);
    for (std::size_t offset = 0; offset < size; offset += kView) {
        const auto low = static_cast<plat::DWORD>(offset);
        auto* in =
            static_cast<unsigned char*>(plat::MapViewOfFile(sourceMap, plat::FILE_MAP_READ, 0, low, kView));
        auto* out = static_cast<unsigned char*>(
            plat::MapViewOfFile(destMap, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, low, kView));
        std::memcpy(out, in, kView);
        touch(out, kView);
        plat::UnmapViewOfFile(in);
        plat::UnmapViewOfFile(out);
    }
    if (plat::TakeInPageError()) {
        std::abort();
    }
    for (plat::HANDLE handle : {destMap, sourceMap, dest, source}) {
        plat::CloseHandle(handle);
    }
}

void copyWithMmapViews(const Files& files, std::size_t size) {
    const int source = ::open(files.source.c_str(), O_RDONLY);
    const int dest = ::open(files.dest.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (::posix_fallocate(dest, 0, static_cast<off_t>(size)) != 0) {
        std::abort();
    }
    for (std::size_t offset = 0; offset < size; offset += kView) {
        void* in = ::mmap(nullptr, kView, PROT_READ, MAP_SHARED, source, static_cast<off_t>(offset));
        void* out =
            ::mmap(nullptr, kView, PROT_READ | PROT_WRITE, MAP_SHARED, dest, static_cast<off_t>(offset));
        if (in == MAP_FAILED || out == MAP_FAILED) {
            std::abort();
        }
        std::memcpy(out, in, kView);
        touch(static_cast<unsigned char*>(out), kView);
        ::munmap(in, kView);
        ::munmap(out, kView);
    }
    ::close(dest);
    ::close(source);
}

template <void (*Copy)(const Files&, std::size_t)>
void BM_CopyThroughViews(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0)) << 20;
    const Files files = makeFiles(size);
    for (auto _ : state) {
        Copy(files, size);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
    std::filesystem::remove_all(files.folder);
}

BENCHMARK_TEMPLATE(BM_CopyThroughViews, copyWithPlatformViews)
    ->Name("BM_PlatformViews")
    ->Arg(256)
    ->UseRealTime();
BENCHMARK_TEMPLATE(BM_CopyThroughViews, copyWithMmapViews)->Name("BM_MmapViews")->Arg(256)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
