// The string table's language matching and lookup (plat/resources.h), and the loader pieces that both
// platforms' LoadStringW share (posix/string_table.h).
#include "posix/string_table.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "plat/errors.h"
#include "plat/language.h"
#include "plat/resources.h"
#include "plat/strings.h"

namespace plat {

namespace {

constexpr LANGID kSimplifiedChinese = 2052;
constexpr LANGID kTraditionalChinese = 3076;
constexpr LANGID kChinese = 0x04;

std::mutex g_tableMutex;
std::span<const StringTableEntry> g_replacementTable;

std::span<const StringTableEntry> activeTable() {
    const std::lock_guard<std::mutex> lock(g_tableMutex);
    return g_replacementTable.empty() ? stringTable() : g_replacementTable;
}

bool tableHolds(LANGID language) {
    const auto table = activeTable();
    const auto it = std::lower_bound(
        table.begin(), table.end(), language,
        [](const StringTableEntry& entry, LANGID wanted) { return entry.wLanguage < wanted; });
    return it != table.end() && it->wLanguage == language;
}

// Chinese is told apart by script, not by country: Singapore writes simplified, Taiwan, Hong Kong and
// Macao traditional characters.
LANGID chineseTableLanguage(LANGID wanted) {
    switch (wanted) {
        case 0x0004:  // zh, zh-Hans
        case 0x0804:  // zh-CN
        case 0x1004:  // zh-SG
            return kSimplifiedChinese;
        case 0x0404:  // zh-TW
        case 0x0C04:  // zh-HK
        case 0x1404:  // zh-MO
        case 0x7C04:  // zh-Hant
            return kTraditionalChinese;
        default:
            return kSimplifiedChinese;
    }
}

}  // namespace

void useStringTable(std::span<const StringTableEntry> table) {
    const std::lock_guard<std::mutex> lock(g_tableMutex);
    g_replacementTable = table;
}

const StringTableEntry* findTableText(LANGID language, UINT id) {
    const auto table = activeTable();
    const auto it = std::lower_bound(table.begin(), table.end(), std::pair{language, id},
                                     [](const StringTableEntry& entry, const std::pair<LANGID, UINT>& key) {
                                         return std::pair{entry.wLanguage, entry.uId} < key;
                                     });
    if (it == table.end() || it->wLanguage != language || it->uId != id) {
        return nullptr;
    }
    return &*it;
}

LANGID tableLanguageFor(LANGID wanted) {
    if (wanted == 0) {
        return 0;
    }
    if (tableHolds(wanted)) {
        return wanted;
    }
    if (PRIMARYLANGID(wanted) == kChinese) {
        const LANGID chinese = chineseTableLanguage(wanted);
        return tableHolds(chinese) ? chinese : LANGID{0};
    }
    const LANGID neutral = PRIMARYLANGID(wanted);
    return tableHolds(neutral) ? neutral : LANGID{0};
}

LANGID threadTableLanguage() {
    for (const LANGID wanted : threadPreferredUILanguages()) {
        if (const LANGID language = tableLanguageFor(wanted); language != 0) {
            return language;
        }
    }
    return LANG_ENGLISH_US;
}

bool stringTableReplaced() {
    const std::lock_guard<std::mutex> lock(g_tableMutex);
    return !g_replacementTable.empty();
}

int deliverLoadedString(const WCHAR* text, std::size_t length, LPWSTR lpBuffer, int cchBufferMax) {
    if (cchBufferMax == 0) {
        // The Windows contract of capacity 0: the buffer is really a place for a pointer to the text.
        // Copied bytewise, since nothing promises that the caller's place is aligned for a pointer.
        const LPCWSTR pointer = text;
        std::memcpy(lpBuffer, &pointer, sizeof pointer);
    } else if (text == nullptr) {
        lpBuffer[0] = u'\0';
    }
    if (text == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    if (cchBufferMax == 0) {
        return static_cast<int>(length);
    }
    return static_cast<int>(
        copyTruncated(std::u16string_view(text, length), lpBuffer, static_cast<std::size_t>(cchBufferMax)));
}

int loadStringFromTable(UINT uID, LPWSTR lpBuffer, int cchBufferMax) {
    if (lpBuffer == nullptr || cchBufferMax < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const StringTableEntry* entry = findTableText(threadTableLanguage(), uID);
    if (entry == nullptr) {
        // Every language holds every id; this only guards a table built from an incomplete language.
        entry = findTableText(LANG_ENGLISH_US, uID);
    }
    return entry == nullptr
               ? deliverLoadedString(nullptr, 0, lpBuffer, cchBufferMax)
               : deliverLoadedString(entry->text.data(), entry->text.size(), lpBuffer, cchBufferMax);
}

}  // namespace plat
