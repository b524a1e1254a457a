#include "app/VELQCryptBatch.h"

#include "engine/VELQCryptFile.h"

int runCryptBatch(const std::vector<std::u16string>& paths, plat::BOOL bDeleteSource, int mode) {
    VELQCryptFile cryptFile(paths, bDeleteSource);
    return cryptFile.beginCryptFiles(mode);
}
