// The search for encrypted files (menu type 4): a "search-ms:" query for every ".lqvz" file, limited to
// the request's folders and media, handed to the shell. The search and its window are the platform's.
#include <array>
#include <cstdint>
#include <string>

#include "app/VELQShellExtProc.h"
#include "diag/DbgLog.h"
#include "plat/shell.h"

namespace {

// The buffer of one escaped location; a path that does not fit it leaves its location empty.
constexpr plat::DWORD kEscapedPathChars = 260;
constexpr plat::DWORD kEscapeFlags = plat::URL_DONT_ESCAPE_EXTRA_INFO | plat::URL_ESCAPE_PERCENT;

constexpr char16_t kQueryStart[] = u"search-ms:query=";
constexpr char16_t kAllFiles[] = u"*";
constexpr char16_t kEncryptedExtension[] = u".lqvz";
constexpr char16_t kLocationCrumb[] = u"&crumb=location:";

constexpr std::intptr_t kShellExecuteFailureLimit = 32;
constexpr int kShowNormal = 1;  // SW_SHOWNORMAL

}  // namespace

void VELQShellExtProc::openSearchDlg() {
    VELQ_TRACE(u"openSearchDlg", u" (VELQShellExtProc::openSearchDlg)");
    std::u16string allPath = std::u16string(kQueryStart) + kAllFiles + kEncryptedExtension;
    for (const std::vector<std::u16string>* pList : {&m_vFolderPath, &m_vLegalMedia}) {
        for (auto iter = pList->begin(); iter != pList->end(); ++iter) {
            VELQ_LOG(DBG_LEVEL_TRC, u" (VELQShellExtProc::openSearchDlg)", u"%s = %s", u"iter->c_str()",
                     iter->c_str());
            std::array<plat::WCHAR, kEscapedPathChars> urlPath{};
            plat::DWORD capacity = kEscapedPathChars;
            const plat::HRESULT hr = plat::UrlEscapeW(iter->c_str(), urlPath.data(), &capacity, kEscapeFlags);
            VELQ_LOG(DBG_LEVEL_INF, u" (VELQShellExtProc::openSearchDlg)", u"UrlEscape hr = 0x%x",
                     static_cast<unsigned>(hr));
            VELQ_LOG(DBG_LEVEL_TRC, u" (VELQShellExtProc::openSearchDlg)", u"%s = %s", u"urlPath",
                     urlPath.data());
            // A failed escape leaves the buffer empty: that location names no place, the others stand.
            allPath += kLocationCrumb;
            allPath += urlPath.data();
        }
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (VELQShellExtProc::openSearchDlg)", u"%s = %s", u"allPath.c_str()",
             allPath.c_str());
    const std::intptr_t shown =
        plat::ShellExecuteW(nullptr, nullptr, allPath.c_str(), nullptr, nullptr, kShowNormal);
    if (shown <= kShellExecuteFailureLimit) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (VELQShellExtProc::openSearchDlg)", u"Error Code: 0x%x",
                 static_cast<unsigned>(shown));
    }
}
