// The process owner's user id, read from the system once.
#pragma once

#include <sys/types.h>
#include <unistd.h>

namespace plat::detail {

// The program never changes its identity (no set*uid anywhere), so the first answer stays true; the file
// paths ask for it several times per file, and each ask would be a system call.
inline uid_t processOwnerUid() {
    static const uid_t uid = ::geteuid();
    return uid;
}

}  // namespace plat::detail
