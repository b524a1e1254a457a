// Everything the common component offers: cipher, keys, users and their folders.
#pragma once

#include "common/VELQCrypt.h"
#include "common/VELQKey.h"
#include "common/VELQUserDirectory.h"
#include "common/VELQUserInfo.h"
