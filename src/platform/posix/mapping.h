// Mapping objects and their views. A kind of mapping (named, backed by the paging file; later mappings of
// files) derives from Mapping and makes views; MapViewOfFile/UnmapViewOfFile/VirtualQuery keep the views
// of every kind in one table by base address.
#pragma once

#include <cstddef>
#include <memory>

#include "plat/handle.h"
#include "plat/types.h"

namespace plat::detail {

// One view, from MapViewOfFile until UnmapViewOfFile.
class MappedView {
public:
    MappedView() = default;
    MappedView(const MappedView&) = delete;
    MappedView& operator=(const MappedView&) = delete;
    virtual ~MappedView() = default;

    virtual void* address() const = 0;
    // The bytes a caller may touch from address() (the view's length rounded up to whole pages).
    virtual std::size_t regionSize() const = 0;
    virtual bool isWritable() const = 0;
    // Ends the view, writing back whatever the kind keeps apart from its source. False with the last error.
    virtual bool close() = 0;
};

class Mapping : public KernelObject {
public:
    // A view of `bytes` (0: up to the end) from `offset` (already checked against the granularity), with
    // FILE_MAP_* access. Null with the last error.
    virtual std::unique_ptr<MappedView> openView(DWORD access, ULONGLONG offset, std::size_t bytes) = 0;
};

// A mapping of the file behind `hFile` (posix/file_mapping.cpp; what it promises: plat/file_mapping.h).
HANDLE createFileMapping(HANDLE hFile, DWORD flProtect, ULONGLONG size, LPCWSTR lpName);

}  // namespace plat::detail
