// A double of runCryptBatch (the request processor's call into the crypt engine), linked into the front
// end's tests instead of the engine: it records each call and answers with a chosen result.
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

struct CryptBatchCall {
    std::vector<std::u16string> paths;
    plat::BOOL bDeleteSource;
    int mode;
};

struct CryptBatchDouble {
    std::vector<CryptBatchCall> calls;
    int result = 0;  // what beginCryptFiles answers
};

// The double's record; reset it at the start of each test.
CryptBatchDouble& cryptBatchDouble();
