// Languages, the account's SID and the system's information through the Win32 forwards.
#include <gtest/gtest.h>

#include <string>

#include "plat/errors.h"
#include "plat/language.h"
#include "plat/progress.h"
#include "plat/resources.h"
#include "plat/security.h"
#include "plat/strings.h"
#include "plat/sync.h"
#include "plat/sysinfo.h"
#include "plat/threads.h"

namespace plat {
namespace {

unsigned languagesOfANewThread(void* count) {
    *static_cast<std::size_t*>(count) = threadPreferredUILanguages().size();
    return 0;
}

TEST(Win32Languages, TheThreadsPreferredLanguagesChooseTheStringTableLanguage) {
    ULONG count = 0;
    ASSERT_EQ(SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, u"de-DE\0fr-FR\0", &count), TRUE);
    EXPECT_EQ(count, 2u);
    const auto languages = threadPreferredUILanguages();
    ASSERT_EQ(languages.size(), 2u);
    EXPECT_EQ(languages[0], 1031);
    EXPECT_EQ(languages[1], 1036);
    EXPECT_EQ(threadTableLanguage(), tableLanguageFor(1031));
    std::size_t otherThread = 99;
    HANDLE thread = beginThread(&languagesOfANewThread, &otherThread);
    ASSERT_NE(thread, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    EXPECT_EQ(otherThread, 0u);  // a list belongs to its thread
    ASSERT_EQ(SetThreadPreferredUILanguages(MUI_LANGUAGE_ID, u"0411\0", nullptr), TRUE);
    ASSERT_EQ(threadPreferredUILanguages().size(), 1u);
    EXPECT_EQ(threadPreferredUILanguages()[0], 1041);
    EXPECT_EQ(SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, nullptr, nullptr), TRUE);
    EXPECT_TRUE(threadPreferredUILanguages().empty());
}

TEST(Win32Security, TheOwnersSidTextNamesAnAccountTheTokenBelongsTo) {
    const std::u16string text = processOwnerSidText();
    ASSERT_EQ(text.rfind(u"S-1-5-", 0), 0u) << toUtf8(text);
    PSID sid = nullptr;
    ASSERT_EQ(ConvertStringSidToSidW(text.c_str(), &sid), TRUE);
    LPWSTR back = nullptr;
    ASSERT_EQ(ConvertSidToStringSidW(sid, &back), TRUE);
    EXPECT_EQ(std::u16string(back), text);
    LocalFree(back);
    LocalFree(sid);
    // Everyone holds every token; a SID that no account has (S-1-22-...) none.
    PSID everyone = nullptr;
    ASSERT_EQ(AllocateAndInitializeSid(&SECURITY_WORLD_SID_AUTHORITY, 1, 0, 0, 0, 0, 0, 0, 0, 0, &everyone),
              TRUE);
    BOOL member = FALSE;
    EXPECT_EQ(CheckTokenMembership(nullptr, everyone, &member), TRUE);
    EXPECT_EQ(member, TRUE);
    FreeSid(everyone);
    PSID nobody = nullptr;
    ASSERT_EQ(ConvertStringSidToSidW(u"S-1-22-1-4242", &nobody), TRUE);
    EXPECT_EQ(CheckTokenMembership(nullptr, nobody, &member), TRUE);
    EXPECT_EQ(member, FALSE);
    LocalFree(nobody);
    EXPECT_EQ(IsValidSid(nullptr), FALSE);
    EXPECT_EQ(GetLengthSid(nullptr), 0u);
}

TEST(Win32SystemInfo, TheGranularityIsTheOneEveryLqvzFileIsLaidOutFor) {
    SYSTEM_INFO info{};
    GetSystemInfo(&info);
    EXPECT_EQ(info.dwAllocationGranularity, VELQ_ALLOCATION_GRANULARITY);
    EXPECT_GE(info.dwNumberOfProcessors, 1u);
    EXPECT_EQ(info.dwPageSize % 4096, 0u);
    GetSystemInfo(nullptr);
}

TEST(Win32Com, FreshGuidsAreRandomVersionFourAndANullTargetIsRefused) {
    GUID first{};
    GUID second{};
    ASSERT_EQ(CoCreateGuid(&first), S_OK);
    ASSERT_EQ(CoCreateGuid(&second), S_OK);
    EXPECT_FALSE(first == second);
    EXPECT_EQ(first.Data3 >> 12, 4);
    EXPECT_EQ(CoCreateGuid(nullptr), E_POINTER);
    EXPECT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
    CoUninitialize();
}

}  // namespace
}  // namespace plat
