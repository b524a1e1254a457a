// Silent stand-ins for the batch's screen: the progress dialog shows nothing, the progress thread and the
// error list thread are not started (so a VELQCryptFile's destructor has nothing to wait for), rows go
// nowhere. Shared by the engine's tests and fuzz targets that exercise a file's work, not the screen.
// What varies between them stays with each: hasUserCancelled, _updateProgress and recoverKeyGuide.
#include "engine/VELQCryptFile.h"
#include "ui/VELQProgressDialog.h"

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
