// The account that runs the process, the machine's accounts, and the folders where a user's own files
// live. These differ by system: POSIX reads the password database and the XDG variables; Windows reads the
// process's token, the local accounts and the user's known folders.
#pragma once

#include <string>
#include <vector>

namespace plat {

struct UserAccount {
    // An ordering number: the uid on POSIX; the last sub-authority (the RID) of the SID on Windows.
    unsigned long id = 0;
    std::u16string name;
    // The SID text: "S-1-22-1-<uid>" on POSIX, the account's real SID on Windows.
    std::u16string sidText;
};

// The account of the process's effective user. false when the system cannot say (the account is then
// untouched).
bool processOwnerAccount(UserAccount& account);

// Every account of the machine, in the system's own order (POSIX: the password database; Windows: the
// local accounts). Empty when the list cannot be read.
std::vector<UserAccount> machineAccounts();

// The effective user's home folder: $HOME when it is an absolute path, else the account's home; on
// Windows %USERPROFILE%'s folder. Without trailing separators; empty when unknown.
std::u16string userHomeFolder();

// The base folder of the user's data files: ${XDG_DATA_HOME:-~/.local/share} on POSIX (a relative
// XDG_DATA_HOME is ignored), the user's local application data folder on Windows. The files below it are
// the user's alone: on POSIX through the modes we give them, on Windows through the folder's own access
// list (the user's profile is private to the user). Without trailing separators; empty when unknown.
std::u16string userDataFolder();

// The debug log's file when its settings name none: per user on POSIX,
// ${XDG_STATE_HOME:-~/.local/state}/velq/log/log.txt (empty when the home is unknown); on Windows the
// system's documented "C:\Users\Public\Kelmora\VELQ\Log\log.txt".
std::u16string defaultLogFile();

// The machine's name (the users' domain). Empty when the system cannot say.
std::u16string hostName();

}  // namespace plat
