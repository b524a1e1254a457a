// Security identifiers and the membership test: the API's own calls on the process's token.
#include "plat/security.h"
#include "wide.h"
// After wide.h: the SID text calls need <windows.h> first.
#include <sddl.h>

#include <vector>

namespace plat {

using win32::wide;

BOOL AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1,
                              DWORD sub2, DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7,
                              PSID* sid) {
    // The authority record has the API's layout (checked in type_checks.cpp); the API does not change it.
    auto* nativeAuthority = const_cast<::SID_IDENTIFIER_AUTHORITY*>(
        reinterpret_cast<const ::SID_IDENTIFIER_AUTHORITY*>(authority));
    return ::AllocateAndInitializeSid(nativeAuthority, count, sub0, sub1, sub2, sub3, sub4, sub5, sub6, sub7,
                                      sid);
}

PSID FreeSid(PSID sid) {
    return ::FreeSid(sid);
}

BOOL IsValidSid(PSID sid) {
    return sid != nullptr && ::IsValidSid(sid);
}

DWORD GetLengthSid(PSID sid) {
    return IsValidSid(sid) ? ::GetLengthSid(sid) : 0;
}

BOOL ConvertSidToStringSidW(PSID sid, LPWSTR* text) {
    return ::ConvertSidToStringSidW(sid, reinterpret_cast<wchar_t**>(text));
}

BOOL ConvertStringSidToSidW(LPCWSTR text, PSID* sid) {
    return ::ConvertStringSidToSidW(wide(text), sid);
}

HLOCAL LocalFree(HLOCAL memory) {
    return ::LocalFree(memory);
}

BOOL CheckTokenMembership(HANDLE token, PSID sid, BOOL* isMember) {
    return ::CheckTokenMembership(win32::native(token), sid, isMember);
}

// The SID text of the account that runs the process, read from its token; empty when the token cannot be
// read.
std::u16string processOwnerSidText() {
    ::HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return {};
    }
    ::DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    std::u16string result;
    wchar_t* text = nullptr;
    if (size != 0 && ::GetTokenInformation(token, TokenUser, buffer.data(), size, &size) &&
        ::ConvertSidToStringSidW(reinterpret_cast<::TOKEN_USER*>(buffer.data())->User.Sid, &text)) {
        result = win32::units(text);
        ::LocalFree(text);
    }
    ::CloseHandle(token);
    return result;
}

}  // namespace plat
