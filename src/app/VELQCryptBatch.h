// The request processor's one call into the crypt engine. It lives in a unit of its own, linked into the
// program beside the engine, so that the processor can be built and tested without the whole engine:
// its tests link a double of this call instead.
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

// Constructs one VELQCryptFile on `paths` with `bDeleteSource`, runs beginCryptFiles(mode) and destroys
// the object before returning. The result is beginCryptFiles': 0 when the batch ran (failures of single
// files included), anything else when it did not.
int runCryptBatch(const std::vector<std::u16string>& paths, plat::BOOL bDeleteSource, int mode);
