// Stands for the crypt engine's batch in the program while the engine is still incomplete (its per-file
// operations, progress and error list land one by one). The batch never runs: every request that gets
// this far fails, and no file is touched. The real call is in VELQCryptBatch.cpp.
#include "app/VELQCryptBatch.h"
#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"

int runCryptBatch(const std::vector<std::u16string>& paths, plat::BOOL /*bDeleteSource*/, int mode) {
    VELQ_LOG(DBG_LEVEL_ERR, u" (runCryptBatch)",
             u"The crypt engine is not complete: %d files, mode %d not run", static_cast<int>(paths.size()),
             mode);
    VELQ_LOG(DBG_LEVEL_ERR, u" (runCryptBatch)", u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_GENERAL));
    return CRYPT_E_GENERAL;
}
