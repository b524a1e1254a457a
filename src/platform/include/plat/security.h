// Security identifiers (SIDs) and the membership test, for POSIX accounts.
//
// A SID has the binary layout of Windows (revision 1, sub-authority count, 6-byte big-endian identifier
// authority, then the sub-authorities as 32-bit words in host order). POSIX accounts map onto SIDs thus:
//   user  <uid>  ->  "S-1-22-1-<uid>"       group <gid>  ->  "S-1-22-2-<gid>"
// and the well-known group of administrators (S-1-5-32-544) holds root (uid 0) and the members of the
// groups "sudo" and "wheel".
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

namespace plat {

using PSID = void*;
using HLOCAL = void*;

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};

inline constexpr SID_IDENTIFIER_AUTHORITY SECURITY_WORLD_SID_AUTHORITY = {{0, 0, 0, 0, 0, 1}};
inline constexpr SID_IDENTIFIER_AUTHORITY SECURITY_NT_AUTHORITY = {{0, 0, 0, 0, 0, 5}};
inline constexpr SID_IDENTIFIER_AUTHORITY SECURITY_UNIX_AUTHORITY = {{0, 0, 0, 0, 0, 22}};
inline constexpr DWORD SECURITY_BUILTIN_DOMAIN_RID = 32;
inline constexpr DWORD DOMAIN_ALIAS_RID_ADMINS = 544;
inline constexpr DWORD SECURITY_UNIX_USER_RID = 1;
inline constexpr DWORD SECURITY_UNIX_GROUP_RID = 2;
inline constexpr BYTE SID_MAX_SUB_AUTHORITIES = 15;
inline constexpr DWORD SECURITY_MAX_SID_SIZE = 68;

inline constexpr DWORD ERROR_INVALID_SID = 1337;
inline constexpr DWORD ERROR_NO_TOKEN = 1008;

// Builds a SID of `count` (1 to 8) sub-authorities, the first `count` of sub0..sub7. TRUE and the new SID
// in *sid (release it with FreeSid); FALSE with ERROR_INVALID_PARAMETER for a null argument or a count
// out of range.
BOOL AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1,
                              DWORD sub2, DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7,
                              PSID* sid);
// Releases a SID of AllocateAndInitializeSid. Always gives null.
PSID FreeSid(PSID sid);

// TRUE when `sid` has a known revision (1) and at most 15 sub-authorities. Null gives FALSE.
BOOL IsValidSid(PSID sid);
// Length in bytes of a valid SID (8 + 4 per sub-authority); 0 for an invalid one.
DWORD GetLengthSid(PSID sid);

// The text form "S-1-<authority>-<sub>..." (authority in decimal below 2^32, else "0x" and 12 upper-case
// hex digits). TRUE and the text in *text, to be released with LocalFree. FALSE with
// ERROR_INVALID_PARAMETER for a null argument, ERROR_INVALID_SID for a SID that is not valid.
BOOL ConvertSidToStringSidW(PSID sid, LPWSTR* text);
// The reverse: TRUE and the SID in *sid (release with LocalFree); FALSE with ERROR_INVALID_SID for a text
// that is not exactly of the form above (upper-case "S", decimal numbers that fit, at most 15
// sub-authorities), ERROR_INVALID_PARAMETER for a null argument.
BOOL ConvertStringSidToSidW(LPCWSTR text, PSID* sid);

// Releases memory that a call of this layer allocated for the caller. Null is fine. Always gives null.
HLOCAL LocalFree(HLOCAL memory);

// Whether the current process's account belongs to `sid`. Only the current process's own token is
// known: `token` must be null (otherwise FALSE with ERROR_NO_TOKEN). Null `sid` or `isMember`: FALSE with
// ERROR_INVALID_PARAMETER; a SID that is not valid: FALSE with ERROR_INVALID_SID. Otherwise TRUE, and
// *isMember is TRUE for: the administrators' SID when isAdministratorAccount holds for the effective
// user; "S-1-22-1-<uid>" of the effective user; "S-1-22-2-<gid>" of one of the process's groups;
// everyone (S-1-1-0). Any other SID gives *isMember FALSE.
BOOL CheckTokenMembership(HANDLE token, PSID sid, BOOL* isMember);

// The administrators rule: uid 0, or a member of a group named "sudo" or "wheel" (`groupNames` are the
// names of all groups of the account).
bool isAdministratorAccount(unsigned long uid, const std::vector<std::string>& groupNames);

// "S-1-22-1-<uid>" of the process's effective user.
std::u16string processOwnerSidText();

}  // namespace plat
