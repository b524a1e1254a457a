// Silent stand-ins for the batch's screen: the progress thread and the error list thread are not started
// (so a VELQCryptFile's destructor has nothing to wait for), rows are only kept for the test to read
// (silentRows); the progress dialog is silent_progress_dialog.cpp. Shared by the engine's tests and fuzz
// targets that exercise a file's work, not the screen. What varies between them stays with each:
// _updateProgress and recoverKeyGuide.
#include "silent_stand_ins.h"

#include "engine/VELQCryptFile.h"

std::vector<std::u16string>& silentRows() {
    static std::vector<std::u16string> rows;
    return rows;
}

int VELQCryptFile::_startProgressBar(int) {
    return 0;
}
void VELQCryptFile::_stopProgressBar() {}
void VELQCryptFile::_updateFileCountLine(plat::DWORD, int) {}
plat::HRESULT VELQCryptFile::_showMessageDialog(const std::u16string& text) {
    silentRows().push_back(text);
    return 0;
}
plat::BOOL VELQCryptFile::_isErrorDialogVisible() {
    return plat::FALSE;
}
unsigned VELQCryptFile::_ThreadProcShowMessage(void*) {
    return 0;
}
