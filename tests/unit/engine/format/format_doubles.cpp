// Stand-ins for the concerns that the format and scene tests do not exercise but that a VELQCryptFile
// object needs to exist: the per-file work and the key recovery guide; the screen is silent
// (silent_stand_ins.cpp). The cipher, keys and users are the real ones.
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
plat::BOOL VELQProgressDialog::hasUserCancelled() {
    return plat::FALSE;
}
