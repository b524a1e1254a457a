#include "ui/Language.h"

#include "plat/language.h"

namespace {
constexpr int kLocaleNameCapacity = 90;
}

void initThreadLanguage() {
    const plat::LANGID wLanguage = plat::GetUserDefaultUILanguage();
    // Zeroed, so that the name is followed by the empty entry that ends a language list.
    plat::WCHAR szLocaleName[kLocaleNameCapacity] = {};
    plat::LCIDToLocaleName(wLanguage, szLocaleName, kLocaleNameCapacity, 0);
    plat::SetThreadLocale(wLanguage);
    plat::ULONG ulNumLanguages = 0;
    plat::SetThreadPreferredUILanguages(plat::MUI_LANGUAGE_NAME, szLocaleName, &ulNumLanguages);
}
