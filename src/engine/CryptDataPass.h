// What the data passes of one file (CryptEncrypt.cpp, CryptDecrypt.cpp) share: the lengths of the
// layout, the two views of a block of a big file, and the failure line of the log. Internal to the engine.
#pragma once

#include <cstdint>

#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/file_mapping.h"
#include "plat/types.h"

namespace crypt_pass {

// The length of the small paths' blocks, and so of m_dataBuffer without the 48 of a final call.
inline constexpr plat::DWORD kSmallBlockSize = 65536;
// Bytes that the final call of a run adds to its plain bytes (rounded up to 32): the cipher's tag.
inline constexpr std::uint64_t kFinalExtraBytes = 16;
// The length of the one final call of an empty file.
inline constexpr plat::DWORD kEmptyDataLength = 48;
// Access of a view that is read and written (FILE_MAP_READ | FILE_MAP_WRITE).
inline constexpr plat::DWORD kViewReadWrite = 6;

// The cipher length of a last block of `nPlainBytes`: rounded up to 32, plus the tag.
inline std::uint64_t finalCallLength(std::uint64_t nPlainBytes) {
    return ((nPlainBytes + 31) & ~std::uint64_t{31}) + kFinalExtraBytes;
}

// The same in the legacy layout, whose final call has no tag when its length is a multiple of 32.
inline std::uint64_t legacyFinalCallLength(std::uint64_t nPlainBytes) {
    return nPlainBytes % 32 == 0 ? nPlainBytes : finalCallLength(nPlainBytes);
}

// Logs the line "Error Code: 0x%x" at level 0 at the point of failure and gives the code back.
int logFailure(const DbgLogSite& site, int nResult);

#define VELQ_PASS_FAILURE(tag, code)                                                               \
    [&](int failureCode_) {                                                                        \
        static constexpr DbgLogSite failureSite_{VELQ_LOG_WIDEN(__FILE__), __LINE__, tag, u"", 0}; \
        return crypt_pass::logFailure(failureSite_, failureCode_);                                 \
    }(code)

// The two views of one block of a big file. The destructor unmaps what is still mapped, so that every
// way out of a block leaves no view behind.
class BlockViews {
public:
    BlockViews() = default;
    ~BlockViews();
    BlockViews(const BlockViews&) = delete;
    BlockViews& operator=(const BlockViews&) = delete;

    // Maps `bytes` of the mapping at the 64-bit `offset` (a multiple of the granularity): the source for
    // reading, the destination for reading and writing. Null with the last error.
    const plat::BYTE* mapSource(plat::HANDLE hMapping, std::uint64_t offset, std::uint64_t bytes);
    plat::BYTE* mapDestination(plat::HANDLE hMapping, std::uint64_t offset, std::uint64_t bytes);

    // Unmaps both views (the destination is written back then) and asks the platform whether a view of
    // this block failed to fill or to write back. `nResult` is the block's result so far: it becomes
    // E_IN_PAGE_ERROR (0x80004005) after an in-page error, logged as "Catch EXCEPTION_IN_PAGE_ERROR.".
    int end(int nResult);

private:
    void _unmap();

    const plat::BYTE* m_pSource = nullptr;
    plat::BYTE* m_pDestination = nullptr;
};

// Clears a stale in-page mark of the calling thread before a pass begins.
void startPass();

}  // namespace crypt_pass
