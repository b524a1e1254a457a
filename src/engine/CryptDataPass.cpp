// The views of a big file's block and the failure line shared by the data passes.
#include "engine/CryptDataPass.h"

namespace crypt_pass {

int logFailure(const DbgLogSite& site, int nResult) {
    dbgLogPrint(site, u"Error Code: 0x%x", static_cast<unsigned>(nResult));
    return nResult;
}

namespace {

void* mapView(plat::HANDLE hMapping, plat::DWORD access, std::uint64_t offset, std::uint64_t bytes) {
    return plat::MapViewOfFile(hMapping, access, static_cast<plat::DWORD>(offset >> 32),
                               static_cast<plat::DWORD>(offset), static_cast<std::size_t>(bytes));
}

}  // namespace

BlockViews::~BlockViews() {
    _unmap();
}

const plat::BYTE* BlockViews::mapSource(plat::HANDLE hMapping, std::uint64_t offset, std::uint64_t bytes) {
    m_pSource = static_cast<const plat::BYTE*>(mapView(hMapping, plat::FILE_MAP_READ, offset, bytes));
    return m_pSource;
}

plat::BYTE* BlockViews::mapDestination(plat::HANDLE hMapping, std::uint64_t offset, std::uint64_t bytes) {
    m_pDestination = static_cast<plat::BYTE*>(mapView(hMapping, kViewReadWrite, offset, bytes));
    return m_pDestination;
}

int BlockViews::end(int nResult) {
    _unmap();
    if (plat::TakeInPageError()) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (BlockViews::end)", u"Catch EXCEPTION_IN_PAGE_ERROR.");
        return VELQ_PASS_FAILURE(u" (BlockViews::end)", plat::E_IN_PAGE_ERROR);
    }
    return nResult;
}

void BlockViews::_unmap() {
    if (m_pSource != nullptr) {
        plat::UnmapViewOfFile(m_pSource);
        m_pSource = nullptr;
    }
    if (m_pDestination != nullptr) {
        plat::UnmapViewOfFile(m_pDestination);
        m_pDestination = nullptr;
    }
}

void startPass() {
    plat::TakeInPageError();
}

}  // namespace crypt_pass
