// Stand-ins for the concerns that the format and scene tests do not exercise but that a VELQCryptFile
// object needs to exist: the per-file work, progress, the error list (its thread ends at once, so the
// object's destructor has nothing to wait for) and the key recovery guide. The cipher, keys and users
// are the real ones.
#include "app/VELQShellExtProc.h"
#include "engine/VELQCryptFile.h"

plat::LONG VELQShellExtProc::recoverKeyGuide() {
    return plat::E_FAIL;
}

int VELQCryptFile::_encryptFile(FileInfo*) {
    return CRYPT_E_GENERAL;
}
int VELQCryptFile::_decryptFile(FileInfo*) {
    return CRYPT_E_GENERAL;
}
int VELQCryptFile::_startProgressBar(int) {
    return 0;
}
void VELQCryptFile::_stopProgressBar() {}
void VELQCryptFile::_updateFileCountLine(plat::DWORD, int) {}
plat::HRESULT VELQCryptFile::_showMessageDialog(const std::u16string&) {
    return 0;
}
plat::BOOL VELQCryptFile::_isErrorDialogVisible() {
    return plat::FALSE;
}
unsigned VELQCryptFile::_ThreadProcShowMessage(void*) {
    return 0;
}

VELQProgressDialog::VELQProgressDialog()
    : m_hWnd(nullptr), m_bTopMost(plat::TRUE), m_pProgressDialog(nullptr) {}
VELQProgressDialog::~VELQProgressDialog() = default;
plat::BOOL VELQProgressDialog::start() {
    return plat::FALSE;
}
plat::BOOL VELQProgressDialog::stop() {
    return plat::FALSE;
}
plat::BOOL VELQProgressDialog::setProgress(plat::DWORD, plat::DWORD) {
    return plat::FALSE;
}
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    return plat::FALSE;
}
plat::BOOL VELQProgressDialog::setLine(plat::DWORD, const plat::WCHAR*) {
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::setTitle(const plat::WCHAR*) {
    return plat::TRUE;
}
plat::BOOL VELQProgressDialog::setCancelMessage(const plat::WCHAR*) {
    return plat::TRUE;
}
plat::HWND VELQProgressDialog::getWindow() {
    return m_hWnd;
}
