// Where the common component keeps a user's data on this machine.
//
// Every path lies under the data home: $VELQ_DATA_HOME, else <the user's data folder>/velq (POSIX:
// ${XDG_DATA_HOME:-$HOME/.local/share}; Windows: the local application data folder, see
// plat/user_account.h).
// A user's application directory is <data home>/users/<user name>; in it live the root key file
// "root.key", the machine secret "machine.secret" that binds key files to this machine, and the user
// record "user.rec". They are the user's alone (POSIX: folders 0700, files 0600; Windows: the profile's
// access list).
//
// The domain given to these calls must be empty or this machine's domain (its host name, compared
// ignoring case): users of other domains have no folder here. The third text names an item inside the
// application directory (a sub-folder for getVELQAppUserDirectory, a file name instead of "root.key" for
// getUserRootKeyFilePath); it is normally empty. A user name or item that is empty where required, "." or
// "..", or that holds "/", "\" or NUL gives an empty result: the only failure these calls report.
#pragma once

#include <string>

namespace velqdir {
// The item names inside a user's application directory.
inline constexpr char16_t kRootKeyFileName[] = u"root.key";
inline constexpr char16_t kMachineSecretFileName[] = u"machine.secret";
inline constexpr char16_t kUserRecordFileName[] = u"user.rec";

// The data home, without a trailing "/"; empty when neither the variables nor the account say where the
// home folder is.
std::u16string dataHome();

// This machine's domain: its host name; empty when it cannot be read.
std::u16string hostDomain();

// Name of the account that runs this process (the effective user); empty when it has none.
std::u16string currentAccountName();
}  // namespace velqdir

// The user's application directory (no trailing "/"), or a folder `subItem` inside it; empty on failure.
std::u16string getVELQAppUserDirectory(const std::u16string& userName, const std::u16string& domain,
                                       const std::u16string& subItem);

// Path of the user's root key file ("root.key" in the application directory, or `fileName` there when it
// is not empty); empty on failure.
std::u16string getUserRootKeyFilePath(const std::u16string& userName, const std::u16string& domain,
                                      const std::u16string& fileName);

// Makes the application directory of the process owner, and any missing folder above it, with mode 0700;
// an existing one of this user is brought back to 0700. Returns 0 on success, else a negative HRESULT
// (the errno of the failing call, or 0x80004005 when there is no data home or account).
long createVELQAppUserDirectory();
