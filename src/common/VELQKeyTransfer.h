// The password dialogs of the key backup and recovery: where a new key's backup goes and under which
// password (PasswordExportDlg), and which backup brings a lost key back with which password
// (PasswordImportDlg). Both are modal and are shown by the process's UI backend (plat/ui.h): the scripted
// UI takes "export PATH<TAB>PASSWORD" / "import PATH<TAB>PASSWORD" / "cancel", a terminal asks for the
// path and reads the password without echo.
//
// Passwords are kept only as long as the dialog object lives and are wiped when it goes; they never
// reach a log or a transcript.
#pragma once

#include <string>

#include "plat/types.h"

// The dialogs' result: MODAL_OK when the person confirmed, MODAL_CANCEL otherwise.
using MODAL_RESULT = int;
inline constexpr MODAL_RESULT MODAL_OK = 1;
inline constexpr MODAL_RESULT MODAL_CANCEL = 2;

class PasswordExportDlg {
public:
    // `lpszDefExt`: extension given to a chosen file name that has none ("key"). `lpszFilter`: the file
    // types offered, a list of name and pattern pairs ended by two NULs; its first name is shown as a hint.
    // `nFieldChars`: the width of the password field in characters (a window's layout; text backends
    // ignore it). `bShowPassword`: the password is shown as it is typed. `nMinPassword`, `nMaxPassword`:
    // the password's length limits in UTF-16 units (0: none). Null texts count as empty.
    PasswordExportDlg(const plat::WCHAR* lpszDefExt, const plat::WCHAR* lpszFilter, int nFieldChars,
                      bool bShowPassword, unsigned nMinPassword, unsigned nMaxPassword);
    ~PasswordExportDlg();
    PasswordExportDlg(const PasswordExportDlg&) = delete;
    PasswordExportDlg& operator=(const PasswordExportDlg&) = delete;

    // Asks where the backup goes (offered: "velq-key-backup.<ext>" in the home folder) and for its password,
    // typed twice. S_OK with *pResult MODAL_OK (path and password now readable) or MODAL_CANCEL (the
    // person cancelled; path and password empty). E_POINTER for a null `pResult`; the backend's failure
    // (HRESULT of its last error, else E_FAIL) when the dialog cannot be shown; *pResult is then unchanged.
    plat::HRESULT showModal(plat::HWND hOwner, MODAL_RESULT* pResult);

    std::u16string getExportFilePath() const { return m_szPath; }
    std::u16string getPassword() const { return m_szPassword; }
    // The file types as given (pairs of name and pattern).
    const std::u16string& getFilter() const { return m_szFilter; }
    int getFieldChars() const { return m_nFieldChars; }

private:
    std::u16string m_szDefExt;
    std::u16string m_szFilter;
    int m_nFieldChars;
    bool m_bShowPassword;
    unsigned m_nMinPassword;
    unsigned m_nMaxPassword;
    std::u16string m_szPath;
    std::u16string m_szPassword;
};

class PasswordImportDlg {
public:
    // `bShowPassword`: the password is shown as it is typed. `lpszFolder`: the folder a bare file name is
    // taken from (null: as typed). `nMinPassword`: the least length of a password (0: none). The object
    // can be shown any number of times.
    PasswordImportDlg(bool bShowPassword, const plat::WCHAR* lpszFolder, unsigned nMinPassword);
    ~PasswordImportDlg();
    PasswordImportDlg(const PasswordImportDlg&) = delete;
    PasswordImportDlg& operator=(const PasswordImportDlg&) = delete;

    // The path offered at the next showing (empty: none).
    void setImportFilePath(const std::u16string& path) { m_szStartPath = path; }

    // As PasswordExportDlg::showModal; the password is asked once. A cancelled showing clears the path
    // and password read before.
    plat::HRESULT showModal(plat::HWND hOwner, MODAL_RESULT* pResult);

    std::u16string getImportFilePath() const { return m_szPath; }
    std::u16string getPassword() const { return m_szPassword; }

private:
    bool m_bShowPassword;
    std::u16string m_szFolder;
    unsigned m_nMinPassword;
    std::u16string m_szStartPath;
    std::u16string m_szPath;
    std::u16string m_szPassword;
};
