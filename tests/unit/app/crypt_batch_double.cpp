#include "crypt_batch_double.h"

#include "app/VELQCryptBatch.h"

CryptBatchDouble& cryptBatchDouble() {
    static CryptBatchDouble record;
    return record;
}

int runCryptBatch(const std::vector<std::u16string>& paths, plat::BOOL bDeleteSource, int mode) {
    cryptBatchDouble().calls.push_back(CryptBatchCall{paths, bDeleteSource, mode});
    return cryptBatchDouble().result;
}
