// The program's generated resources, read back through the Windows API: every text in every language,
// the error list's dialog 51, the wait window's pictures, the icons, the version and the manifest. This
// test program links the same resource script as VELQFileEncrypt.exe (velq_add_windows_resources).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

#include "plat/dialogs.h"
#include "plat/errors.h"
#include "plat/language.h"
#include "plat/resources.h"
#include "plat/strings.h"

// The wide forms of the resource types (RT_STRING ...).
#ifndef UNICODE
#define UNICODE
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// Windows' own headers after <windows.h>, in this order.
#include <commctrl.h>
#include <gdiplus.h>
#include <objidl.h>
#include <shlwapi.h>

namespace {

constexpr WORD kWaitWindowIcon = 12;
constexpr WORD kErrorListIcon = 13;
constexpr WORD kPictures[] = {504, 505, 509};
constexpr int kPictureSide = 142;

// The bytes of resource `id` of `type` in the program, empty when there is none.
std::string_view resourceBytes(const wchar_t* type, WORD id, WORD language = 0) {
    HMODULE module = ::GetModuleHandleW(nullptr);
    HRSRC found = language == 0 ? ::FindResourceW(module, MAKEINTRESOURCEW(id), type)
                                : ::FindResourceExW(module, type, MAKEINTRESOURCEW(id), language);
    if (found == nullptr) {
        return {};
    }
    HGLOBAL loaded = ::LoadResource(module, found);
    const void* data = loaded != nullptr ? ::LockResource(loaded) : nullptr;
    return data == nullptr
               ? std::string_view{}
               : std::string_view(static_cast<const char*>(data), ::SizeofResource(module, found));
}

std::uint32_t bigEndian32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

std::wstring className(HWND window) {
    wchar_t name[64] = {};
    ::GetClassNameW(window, name, 64);
    return name;
}

std::wstring windowText(HWND window) {
    wchar_t text[128] = {};
    ::GetWindowTextW(window, text, 128);
    return text;
}

// A control's rectangle in its dialog's client coordinates.
RECT rectInDialog(HWND dialog, HWND control) {
    RECT rect{};
    ::GetWindowRect(control, &rect);
    ::MapWindowPoints(HWND_DESKTOP, dialog, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

RECT dialogUnits(HWND dialog, int left, int top, int width, int height) {
    RECT rect{left, top, left + width, top + height};
    ::MapDialogRect(dialog, &rect);
    return rect;
}

INT_PTR CALLBACK quietDialogProc(HWND, UINT message, WPARAM, LPARAM) {
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

// Makes the calling thread prefer `language` (by its id: Wine names the neutral Portuguese "pt" and reads
// that name back as Brazil's), and goes back to no preference at the end of the scope.
class PreferredLanguage {
public:
    explicit PreferredLanguage(plat::LANGID language) {
        static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
        const plat::WCHAR list[] = {kDigits[(language >> 12) & 0xF],
                                    kDigits[(language >> 8) & 0xF],
                                    kDigits[(language >> 4) & 0xF],
                                    kDigits[language & 0xF],
                                    u'\0',
                                    u'\0'};
        m_set = plat::SetThreadPreferredUILanguages(MUI_LANGUAGE_ID, list, nullptr) == TRUE;
    }
    ~PreferredLanguage() { plat::SetThreadPreferredUILanguages(MUI_LANGUAGE_NAME, nullptr, nullptr); }
    PreferredLanguage(const PreferredLanguage&) = delete;
    PreferredLanguage& operator=(const PreferredLanguage&) = delete;
    bool isSet() const { return m_set; }

private:
    bool m_set = false;
};

std::u16string loadString(plat::UINT id) {
    plat::WCHAR buffer[1024] = {};
    const int count = plat::LoadStringW(nullptr, id, buffer, 1024);
    return std::u16string(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
}

TEST(ProgramStrings, EveryTextOfEveryLanguageComesBackFromTheResourcesAsTheTableHoldsIt) {
    std::vector<plat::LANGID> languages;
    for (const plat::StringTableEntry& entry : plat::stringTable()) {
        if (languages.empty() || languages.back() != entry.wLanguage) {
            languages.push_back(entry.wLanguage);
        }
    }
    ASSERT_EQ(languages.size(), 23u);
    for (const plat::LANGID language : languages) {
        // Each language's own block, found by its LANGID alone (no fallback hides a missing language).
        EXPECT_FALSE(resourceBytes(RT_STRING, 1005 / 16 + 1, language).empty()) << language;
    }
    std::size_t compared = 0;
    for (const plat::LANGID language : languages) {
        const PreferredLanguage preferred(language);
        ASSERT_TRUE(preferred.isSet()) << language;
        ASSERT_EQ(plat::threadTableLanguage(), language);
        for (const plat::StringTableEntry& entry : plat::stringTable()) {
            if (entry.wLanguage == language) {
                EXPECT_EQ(loadString(entry.uId), entry.text)
                    << "language " << language << ", id " << entry.uId;
                ++compared;
            }
        }
    }
    EXPECT_EQ(compared, plat::stringTable().size());
}

TEST(ProgramStrings, TheThreadsLanguageChoosesTheTextAndEnglishStandsForTheRest) {
    const std::u16string english = loadString(1005);
    EXPECT_EQ(english, u"Encrypt Files") << "a thread that set no language reads English";
    const struct {
        plat::LANGID wanted, table;
    } cases[] = {{3079, 7},      // German (Austria): the neutral German
                 {2070, 22},     // Portuguese (Portugal): the neutral Portuguese
                 {1046, 1046},   // Portuguese (Brazil) has texts of its own
                 {1028, 3076},   // Chinese (Taiwan): traditional characters
                 {4100, 2052},   // Chinese (Singapore): simplified characters
                 {1037, 1033}};  // Hebrew is not in the table
    for (const auto& languageCase : cases) {
        const PreferredLanguage preferred(languageCase.wanted);
        ASSERT_TRUE(preferred.isSet()) << languageCase.wanted;
        const plat::StringTableEntry* expected = plat::findTableText(languageCase.table, 1005);
        ASSERT_NE(expected, nullptr);
        EXPECT_EQ(loadString(1005), expected->text) << languageCase.wanted;
    }
}

TEST(ProgramStrings, BuffersAndMissingIdsKeepTheLoadersContract) {
    plat::WCHAR small[8];
    EXPECT_EQ(plat::LoadStringW(nullptr, 1005, small, 8), 7);
    EXPECT_EQ(std::u16string(small), u"Encrypt") << "cut to the capacity, with its NUL";
    const plat::WCHAR* pointer = nullptr;
    EXPECT_EQ(plat::LoadStringW(nullptr, 1005, reinterpret_cast<plat::LPWSTR>(&pointer), 0), 13);
    ASSERT_NE(pointer, nullptr);
    EXPECT_EQ(std::u16string_view(pointer, 13), u"Encrypt Files");
    plat::WCHAR buffer[16] = {u'x'};
    plat::SetLastError(0);
    EXPECT_EQ(plat::LoadStringW(nullptr, 1004, buffer, 16), 0) << "an id between texts";
    EXPECT_EQ(plat::GetLastError(), static_cast<plat::DWORD>(ERROR_RESOURCE_NAME_NOT_FOUND));
    EXPECT_EQ(buffer[0], u'\0');
    EXPECT_EQ(plat::LoadStringW(nullptr, 4000, buffer, 16), 0) << "an id of a block that does not exist";
    EXPECT_EQ(plat::LoadStringW(nullptr, 0x10000 + 1005, buffer, 16), 0) << "string ids have 16 bits";
    plat::SetLastError(0);
    EXPECT_EQ(plat::LoadStringW(nullptr, 1005, nullptr, 16), 0);
    EXPECT_EQ(plat::GetLastError(), static_cast<plat::DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(plat::LoadStringW(nullptr, 1005, buffer, -1), 0);
}

TEST(ProgramStrings, ATableSetByATestStandsInForTheResources) {
    static constexpr plat::StringTableEntry kTable[] = {{1033, 1005, u"replaced"}};
    plat::useStringTable(kTable);
    const std::u16string replaced = loadString(1005);
    const std::u16string missing = loadString(1006);
    plat::useStringTable({});
    EXPECT_EQ(replaced, u"replaced");
    EXPECT_EQ(missing, u"") << "the replacement is the whole table";
    EXPECT_EQ(loadString(1005), u"Encrypt Files") << "and the resources are back";
}

// Dialog 51, created hidden on a hidden parent as the error list's thread creates it.
class ErrorListTemplate : public ::testing::Test {
protected:
    void SetUp() override {
        INITCOMMONCONTROLSEX controls{sizeof controls, ICC_LISTVIEW_CLASSES};
        ASSERT_TRUE(::InitCommonControlsEx(&controls));
        m_parent = ::CreateWindowExW(0, L"Static", L"parent", WS_OVERLAPPED, 0, 0, 10, 10, nullptr, nullptr,
                                     ::GetModuleHandleW(nullptr), nullptr);
        ASSERT_NE(m_parent, nullptr);
        m_dialog = ::CreateDialogParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(plat::IDD_ERROR_LIST),
                                        m_parent, &quietDialogProc, 0);
        ASSERT_NE(m_dialog, nullptr) << "error " << ::GetLastError();
    }
    void TearDown() override {
        if (m_dialog != nullptr) {
            ::DestroyWindow(m_dialog);
        }
        if (m_parent != nullptr) {
            ::DestroyWindow(m_parent);
        }
    }
    HWND item(int id) const { return ::GetDlgItem(m_dialog, id); }
    LONG style(int id) const { return ::GetWindowLongW(item(id), GWL_STYLE); }

    HWND m_parent = nullptr;
    HWND m_dialog = nullptr;
};

TEST_F(ErrorListTemplate, HasItsFourControlsAtTheCoresIdsWithTheirClassesAndTexts) {
    ASSERT_NE(item(plat::IDC_ERROR_LIST), nullptr);
    ASSERT_NE(item(plat::IDC_ERROR_COUNT), nullptr);
    ASSERT_NE(item(plat::IDC_ERROR_OK), nullptr);
    ASSERT_NE(item(plat::IDC_ERROR_COPY), nullptr);
    EXPECT_EQ(::lstrcmpiW(className(item(plat::IDC_ERROR_LIST)).c_str(), WC_LISTVIEWW), 0);
    EXPECT_EQ(::lstrcmpiW(className(item(plat::IDC_ERROR_COUNT)).c_str(), L"Static"), 0);
    EXPECT_EQ(::lstrcmpiW(className(item(plat::IDC_ERROR_OK)).c_str(), L"Button"), 0);
    EXPECT_EQ(::lstrcmpiW(className(item(plat::IDC_ERROR_COPY)).c_str(), L"Button"), 0);
    EXPECT_EQ(windowText(m_dialog), L"Error List");
    EXPECT_EQ(windowText(item(plat::IDC_ERROR_OK)), L"OK");
    EXPECT_EQ(windowText(item(plat::IDC_ERROR_COPY)), L"Copy to clipboard");
    EXPECT_EQ(windowText(item(plat::IDC_ERROR_COUNT)), L"");
}

TEST_F(ErrorListTemplate, StylesAreTheTemplatesAndTheDialogStartsHidden) {
    const LONG dialog = ::GetWindowLongW(m_dialog, GWL_STYLE);
    EXPECT_FALSE(::IsWindowVisible(m_dialog));
    EXPECT_EQ(dialog & WS_POPUP, WS_POPUP);
    EXPECT_EQ(dialog & WS_CAPTION, WS_CAPTION);
    EXPECT_EQ(dialog & WS_SYSMENU, WS_SYSMENU);
    EXPECT_EQ(dialog & WS_MINIMIZEBOX, WS_MINIMIZEBOX);
    EXPECT_EQ(dialog & WS_MAXIMIZEBOX, 0);
    EXPECT_EQ(style(plat::IDC_ERROR_OK) & 0xF, BS_DEFPUSHBUTTON);
    EXPECT_EQ(style(plat::IDC_ERROR_COPY) & 0xF, BS_PUSHBUTTON);
    EXPECT_NE(style(plat::IDC_ERROR_OK) & WS_TABSTOP, 0);
    EXPECT_NE(style(plat::IDC_ERROR_COPY) & WS_TABSTOP, 0);
    EXPECT_EQ(style(plat::IDC_ERROR_LIST) & LVS_TYPEMASK, LVS_REPORT);
    EXPECT_EQ(style(plat::IDC_ERROR_LIST) & LVS_ALIGNMASK, LVS_ALIGNLEFT);
    // The list view turns its WS_BORDER into a client edge when it is created.
    const LONG listExtended = ::GetWindowLongW(item(plat::IDC_ERROR_LIST), GWL_EXSTYLE);
    EXPECT_TRUE((style(plat::IDC_ERROR_LIST) & WS_BORDER) != 0 || (listExtended & WS_EX_CLIENTEDGE) != 0);
    EXPECT_NE(style(plat::IDC_ERROR_COUNT) & WS_GROUP, 0);
    for (const int id :
         {plat::IDC_ERROR_LIST, plat::IDC_ERROR_COUNT, plat::IDC_ERROR_OK, plat::IDC_ERROR_COPY}) {
        EXPECT_NE(style(id) & WS_CHILD, 0) << id;
        EXPECT_NE(style(id) & WS_VISIBLE, 0) << id;
    }
}

TEST_F(ErrorListTemplate, ControlsStandWhereTheTemplatesDialogUnitsPutThem) {
    const struct {
        int id, left, top, width, height;
    } places[] = {{plat::IDC_ERROR_OK, 130, 109, 48, 16},
                  {plat::IDC_ERROR_COPY, 179, 109, 110, 16},
                  {plat::IDC_ERROR_LIST, 10, 12, 279, 90},
                  {plat::IDC_ERROR_COUNT, 10, 114, 120, 8}};
    for (const auto& place : places) {
        const RECT expected = dialogUnits(m_dialog, place.left, place.top, place.width, place.height);
        const RECT actual = rectInDialog(m_dialog, item(place.id));
        EXPECT_EQ(actual.left, expected.left) << place.id;
        EXPECT_EQ(actual.top, expected.top) << place.id;
        EXPECT_EQ(actual.right, expected.right) << place.id;
        EXPECT_EQ(actual.bottom, expected.bottom) << place.id;
    }
    RECT client{};
    ::GetClientRect(m_dialog, &client);
    const RECT whole = dialogUnits(m_dialog, 0, 0, 299, 131);
    EXPECT_EQ(client.right, whole.right);
    EXPECT_EQ(client.bottom, whole.bottom);
}

// The template's own header (DLGTEMPLATEEX): what a dialog made from it cannot show, such as its font.
TEST(ErrorListTemplateBytes, HeaderAndItemsAreTheTemplatesExactly) {
    const std::string_view bytes = resourceBytes(RT_DIALOG, plat::IDD_ERROR_LIST);
    ASSERT_GT(bytes.size(), 26u);
    auto word = [&](std::size_t at) {
        WORD value = 0;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    };
    EXPECT_EQ(word(0), 1) << "dlgVer";
    EXPECT_EQ(word(2), 0xFFFF) << "an extended template";
    DWORD style = 0;
    std::memcpy(&style, bytes.data() + 12, sizeof style);
    EXPECT_EQ(style, static_cast<DWORD>(WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | DS_MODALFRAME |
                                        DS_SETFONT));
    EXPECT_EQ(word(16), 4) << "items";
    EXPECT_EQ(word(18), 0) << "x";
    EXPECT_EQ(word(20), 0) << "y";
    EXPECT_EQ(word(22), 299) << "width";
    EXPECT_EQ(word(24), 131) << "height";
    // No menu, the default class, then the title; then size, weight, italic and charset, and the face.
    const auto* units = reinterpret_cast<const wchar_t*>(bytes.data() + 26);
    ASSERT_EQ(units[0], 0);
    ASSERT_EQ(units[1], 0);
    const std::wstring_view title(units + 2);
    EXPECT_EQ(title, L"Error List");
    const wchar_t* font = units + 2 + title.size() + 1;
    EXPECT_EQ(font[0], 8) << "points";
    EXPECT_EQ(font[1], 400) << "weight";
    const std::wstring_view face(font + 3);
    EXPECT_EQ(face, L"Microsoft Sans Serif");

    // The items (DLGITEMTEMPLATEEX, each on a 4-byte boundary): help id, extended style, style, place, id,
    // class (0xFFFF and an atom, or a name), text, and the size of extra data.
    const struct {
        DWORD style;
        short x, y, width, height;
        DWORD id;
        WORD atom;
        const wchar_t* className;
        const wchar_t* text;
    } items[] = {
        {WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON, 130, 109, 48, 16, 103, 0x80, L"Button",
         L"OK"},
        {WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON, 179, 109, 110, 16, 104, 0x80, L"Button",
         L"Copy to clipboard"},
        {WS_CHILD | WS_VISIBLE | WS_BORDER | LVS_REPORT | LVS_ALIGNLEFT, 10, 12, 279, 90, 101, 0,
         WC_LISTVIEWW, L"Message"},
        {WS_CHILD | WS_VISIBLE | WS_GROUP | SS_LEFT, 10, 114, 120, 8, 102, 0x82, L"Static", L""},
    };
    std::size_t at =
        static_cast<std::size_t>(reinterpret_cast<const char*>(face.data() + face.size() + 1) - bytes.data());
    for (const auto& expected : items) {
        at = (at + 3) & ~std::size_t{3};
        ASSERT_LE(at + 24, bytes.size());
        DWORD header[3];
        std::memcpy(header, bytes.data() + at, sizeof header);
        EXPECT_EQ(header[2], expected.style) << expected.id;
        EXPECT_EQ(word(at + 12), expected.x) << expected.id;
        EXPECT_EQ(word(at + 14), expected.y) << expected.id;
        EXPECT_EQ(word(at + 16), expected.width) << expected.id;
        EXPECT_EQ(word(at + 18), expected.height) << expected.id;
        DWORD id = 0;
        std::memcpy(&id, bytes.data() + at + 20, sizeof id);
        EXPECT_EQ(id, expected.id);
        const auto* cls = reinterpret_cast<const wchar_t*>(bytes.data() + at + 24);
        std::size_t next = at + 24;
        if (cls[0] == 0xFFFF) {
            EXPECT_EQ(cls[1], expected.atom) << expected.id;
            next += 4;
        } else {
            // windres writes class names in capitals; the system compares them without case.
            EXPECT_EQ(::lstrcmpiW(cls, expected.className), 0) << expected.id;
            next += (std::wcslen(cls) + 1) * 2;
        }
        const std::wstring_view text(reinterpret_cast<const wchar_t*>(bytes.data() + next));
        EXPECT_EQ(text, expected.text) << expected.id;
        next += (text.size() + 1) * 2;
        EXPECT_EQ(word(next), 0) << "no extra data";
        at = next + 2;
    }
    EXPECT_LE(at, bytes.size());
}

// GDI+ for the length of one test, as the program starts it at its entry.
class GdiPlus : public ::testing::Test {
protected:
    void SetUp() override {
        Gdiplus::GdiplusStartupInput input;
        ASSERT_EQ(Gdiplus::GdiplusStartup(&m_token, &input, nullptr), Gdiplus::Ok);
    }
    void TearDown() override { Gdiplus::GdiplusShutdown(m_token); }

    ULONG_PTR m_token = 0;
};

TEST_F(GdiPlus, EveryPictureOfTheWaitWindowIsAPngOfItsSizeAndDecodes) {
    for (const WORD id : kPictures) {
        const std::string_view png = resourceBytes(L"PNG", id);
        ASSERT_GT(png.size(), 24u) << id;
        EXPECT_EQ(png.substr(0, 8), std::string_view("\x89PNG\r\n\x1A\n", 8)) << id;
        EXPECT_EQ(bigEndian32(png, 16), static_cast<std::uint32_t>(kPictureSide)) << id;
        EXPECT_EQ(bigEndian32(png, 20), static_cast<std::uint32_t>(kPictureSide)) << id;
        // Decoded as the picture loader does: from a stream over a copy of the bytes.
        IStream* stream =
            ::SHCreateMemStream(reinterpret_cast<const BYTE*>(png.data()), static_cast<UINT>(png.size()));
        ASSERT_NE(stream, nullptr);
        auto* bitmap = Gdiplus::Bitmap::FromStream(stream, FALSE);
        ASSERT_NE(bitmap, nullptr);
        EXPECT_EQ(bitmap->GetLastStatus(), Gdiplus::Ok) << id;
        EXPECT_EQ(bitmap->GetWidth(), static_cast<UINT>(kPictureSide)) << id;
        EXPECT_EQ(bitmap->GetHeight(), static_cast<UINT>(kPictureSide)) << id;
        delete bitmap;
        stream->Release();
    }
    EXPECT_TRUE(resourceBytes(L"PNG", 506).empty()) << "no picture the wait window does not use";
}

TEST(ProgramIcons, BothIconsLoadAndCarryTheSmallAndTheLargeImages) {
    for (const WORD id : {kWaitWindowIcon, kErrorListIcon}) {
        EXPECT_NE(::LoadIconW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id)), nullptr) << id;
        for (const int side : {16, 32, 48}) {
            HANDLE icon =
                ::LoadImageW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id), IMAGE_ICON, side, side, 0);
            ASSERT_NE(icon, nullptr) << id << " at " << side;
            ::DestroyIcon(static_cast<HICON>(icon));
        }
        // The group's directory: reserved, type 1 (icon), count, then 14-byte entries (side 0 is 256).
        const std::string_view group = resourceBytes(RT_GROUP_ICON, id);
        ASSERT_GE(group.size(), 6u);
        WORD count = 0;
        std::memcpy(&count, group.data() + 4, sizeof count);
        ASSERT_EQ(group.size(), 6u + 14u * count);
        std::vector<int> sides;
        for (WORD i = 0; i < count; ++i) {
            const int side = static_cast<unsigned char>(group[6 + 14 * i]);
            sides.push_back(side == 0 ? 256 : side);
        }
        EXPECT_EQ(sides, (std::vector<int>{16, 24, 32, 48, 256})) << id;
    }
}

// A field of the version resource, read with the version API from a copy (VerQueryValueW may write to it).
std::wstring versionString(std::vector<char>& copy, const wchar_t* name) {
    void* value = nullptr;
    UINT length = 0;
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
    if (!::VerQueryValueW(copy.data(), path.c_str(), &value, &length) || length == 0) {
        return {};
    }
    return static_cast<const wchar_t*>(value);
}

TEST(ProgramVersion, TheVersionResourceCarriesTheProjectsVersion) {
    const std::string_view bytes = resourceBytes(RT_VERSION, 1);
    ASSERT_FALSE(bytes.empty());
    std::vector<char> copy(bytes.begin(), bytes.end());
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(::VerQueryValueW(copy.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    ASSERT_EQ(length, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
    const DWORD expectedHigh = (VELQ_VERSION_MAJOR << 16) | VELQ_VERSION_MINOR;
    const DWORD expectedLow = static_cast<DWORD>(VELQ_VERSION_PATCH) << 16;
    EXPECT_EQ(fixed->dwFileVersionMS, expectedHigh);
    EXPECT_EQ(fixed->dwFileVersionLS, expectedLow);
    EXPECT_EQ(fixed->dwProductVersionMS, expectedHigh);
    EXPECT_EQ(fixed->dwProductVersionLS, expectedLow);
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_APP));
    EXPECT_EQ(versionString(copy, L"ProductVersion"), VELQ_VERSION_TEXT);
    EXPECT_EQ(versionString(copy, L"FileVersion"), VELQ_VERSION_TEXT);
    EXPECT_EQ(versionString(copy, L"OriginalFilename"), L"VELQFileEncrypt.exe");
    EXPECT_EQ(versionString(copy, L"ProductName"), L"VELQ");
}

TEST(ProgramManifest, IsEmbeddedAndAsksForCommonControls6DpiAwarenessAndTheInvokersRights) {
    const std::string_view manifest = resourceBytes(RT_MANIFEST, 1);
    ASSERT_FALSE(manifest.empty());
    for (const std::string_view wanted :
         {std::string_view(R"(name="Microsoft.Windows.Common-Controls" version="6.0.0.0")"),
          std::string_view(R"(level="asInvoker")"), std::string_view("PerMonitorV2"),
          std::string_view(">true/pm<"),
          std::string_view("{35138b9a-5d96-4fbd-8e2d-a2440225f93a}"),     // Windows 7
          std::string_view("{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}")}) {  // Windows 10 and 11
        EXPECT_NE(manifest.find(wanted), std::string_view::npos) << wanted;
    }
}

TEST(ProgramManifest, TheProcessLoadsVersion6OfTheCommonControlsFromTheSideBySideStore) {
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_LISTVIEW_CLASSES};
    ASSERT_TRUE(::InitCommonControlsEx(&controls));
    HMODULE comctl = ::GetModuleHandleW(L"comctl32.dll");
    ASSERT_NE(comctl, nullptr);
    wchar_t path[MAX_PATH] = {};
    ASSERT_GT(::GetModuleFileNameW(comctl, path, MAX_PATH), 0u);
    // Without the manifest's dependency the system folder's version 5 is loaded.
    std::wstring lower(path);
    for (wchar_t& unit : lower) {
        unit = static_cast<wchar_t>(::towlower(unit));
    }
    EXPECT_NE(lower.find(L"\\winsxs\\"), std::wstring::npos) << path;
    EXPECT_NE(lower.find(L"common-controls_6595b64144ccf1df_6."), std::wstring::npos) << path;
}

}  // namespace
