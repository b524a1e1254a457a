// A progress dialog that shows nothing, for the engine's tests and fuzz targets. Whether Cancel was
// pressed (hasUserCancelled) is each test's own.
#include "ui/VELQProgressDialog.h"

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
