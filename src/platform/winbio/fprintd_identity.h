// Identities for the fprintd backend: fprintd names users by account name, the framework by SID.
#pragma once

#include <string>

#include "plat/winbio.h"

namespace plat::winbio {

// The process owner's SID identity ("S-1-22-1-<uid>"), what a match reports. False when it cannot be
// formed (then `identity` is left null).
bool identityOfOwner(WINBIO_IDENTITY& identity);

// The account name of a SID identity of this machine's users ("S-1-22-1-<uid>"): false for another
// identity type, another SID form, or a uid without an account.
bool userNameOfIdentity(const WINBIO_IDENTITY& identity, std::string& name);

}  // namespace plat::winbio
