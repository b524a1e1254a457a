#include "common/VELQKeyTransfer.h"

#include "plat/errors.h"
#include "plat/paths.h"
#include "plat/strings.h"
#include "plat/ui.h"
#include "plat/user_account.h"

namespace {

// Overwrites a secret's units before the text is emptied, so that it does not linger in freed memory.
void wipe(std::u16string& secret) {
    volatile char16_t* unit = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        unit[i] = 0;
    }
    secret.clear();
}

std::u16string textOf(const plat::WCHAR* text) {
    return text != nullptr ? std::u16string(text) : std::u16string();
}

// The filter's first part up to its NUL: the name of the file type.
std::u16string filterName(const std::u16string& filter) {
    return filter.substr(0, filter.find(u'\0'));
}

// "velq-key-backup.<extension>" in the user's home folder as the system knows it (Windows sets no HOME);
// empty when the home is unknown. A root folder ("/", "C:\") has its separator already.
std::u16string backupStartPath(const std::u16string& extension) {
    const std::u16string home = plat::userHomeFolder();
    if (home.empty()) {
        return {};
    }
    const bool endsWithSeparator = home.back() == plat::kPathSeparator || home.back() == u'/';
    return home + (endsWithSeparator ? std::u16string() : std::u16string(1, plat::kPathSeparator)) +
           u"velq-key-backup" + (extension.empty() ? std::u16string() : u"." + extension);
}

// Shows the backend's key-file dialog. S_OK with *pResult set, or the failure of a dialog not shown.
plat::HRESULT askBackend(plat::HWND hOwner, const plat::ui::KeyFileRequest& request, MODAL_RESULT* pResult,
                         plat::ui::KeyFileAnswer& answer) {
    if (pResult == nullptr) {
        return plat::E_POINTER;
    }
    plat::SetLastError(0);
    const int button = plat::ui::currentBackend().keyFileDialog().ask(hOwner, request, answer);
    if (button == 0) {
        const plat::DWORD error = plat::GetLastError();
        return error != 0 ? plat::HRESULT_FROM_WIN32(error) : plat::E_FAIL;
    }
    *pResult = button == plat::IDOK ? MODAL_OK : MODAL_CANCEL;
    return plat::S_OK;
}

}  // namespace

PasswordExportDlg::PasswordExportDlg(const plat::WCHAR* lpszDefExt, const plat::WCHAR* lpszFilter,
                                     int nFieldChars, bool bShowPassword, unsigned nMinPassword,
                                     unsigned nMaxPassword)
    : m_szDefExt(textOf(lpszDefExt)),
      m_nFieldChars(nFieldChars),
      m_bShowPassword(bShowPassword),
      m_nMinPassword(nMinPassword),
      m_nMaxPassword(nMaxPassword) {
    // The filter holds NULs of its own: it ends at the first pair of them.
    if (lpszFilter != nullptr) {
        std::size_t length = 0;
        while (lpszFilter[length] != u'\0' || lpszFilter[length + 1] != u'\0') {
            ++length;
        }
        m_szFilter.assign(lpszFilter, length);
    }
}

PasswordExportDlg::~PasswordExportDlg() {
    wipe(m_szPassword);
}

plat::HRESULT PasswordExportDlg::showModal(plat::HWND hOwner, MODAL_RESULT* pResult) {
    plat::ui::KeyFileRequest request;
    request.bExport = true;
    request.bShowPassword = m_bShowPassword;
    request.defaultExtension = m_szDefExt;
    request.typeName = filterName(m_szFilter);
    request.nMinPassword = m_nMinPassword;
    request.nMaxPassword = m_nMaxPassword;
    request.startPath = backupStartPath(m_szDefExt);
    plat::ui::KeyFileAnswer answer;
    const plat::HRESULT hr = askBackend(hOwner, request, pResult, answer);
    wipe(m_szPassword);
    m_szPath.clear();
    if (hr == plat::S_OK && *pResult == MODAL_OK) {
        m_szPath = answer.path;
        m_szPassword = answer.password;
    }
    wipe(answer.password);
    return hr;
}

PasswordImportDlg::PasswordImportDlg(bool bShowPassword, const plat::WCHAR* lpszFolder, unsigned nMinPassword)
    : m_bShowPassword(bShowPassword), m_szFolder(textOf(lpszFolder)), m_nMinPassword(nMinPassword) {}

PasswordImportDlg::~PasswordImportDlg() {
    wipe(m_szPassword);
}

plat::HRESULT PasswordImportDlg::showModal(plat::HWND hOwner, MODAL_RESULT* pResult) {
    plat::ui::KeyFileRequest request;
    request.bShowPassword = m_bShowPassword;
    request.startPath = m_szStartPath;
    request.nMinPassword = m_nMinPassword;
    plat::ui::KeyFileAnswer answer;
    const plat::HRESULT hr = askBackend(hOwner, request, pResult, answer);
    wipe(m_szPassword);
    m_szPath.clear();
    if (hr == plat::S_OK && *pResult == MODAL_OK) {
        // A name without a folder (as this system splits paths) goes into the dialog's folder.
        const bool bBareName = plat::PathFindFileNameW(answer.path.c_str()) == answer.path.c_str();
        m_szPath = (bBareName && !m_szFolder.empty()) ? m_szFolder + u"/" + answer.path : answer.path;
        m_szPassword = answer.password;
    }
    wipe(answer.password);
    return hr;
}
