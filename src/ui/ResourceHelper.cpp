#include "ui/ResourceHelper.h"

#include <climits>
#include <memory>
#include <new>

#include "diag/DbgLog.h"
#include "plat/resources.h"

plat::HINSTANCE g_hInstance = nullptr;

namespace {
constexpr int kFirstCapacity = 100;
constexpr int kLoadResStringCapacity = 1024;

std::unique_ptr<plat::WCHAR[]> allocateZeroed(int capacity) {
    return std::unique_ptr<plat::WCHAR[]>(new (std::nothrow)
                                              plat::WCHAR[static_cast<std::size_t>(capacity)]());
}
}  // namespace

std::u16string ResourceHelper::getStrFromRes(plat::UINT id, plat::HINSTANCE hInstance) {
    int capacity = kFirstCapacity;
    std::unique_ptr<plat::WCHAR[]> buffer = allocateZeroed(capacity);
    if (!buffer) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (ResourceHelper::getStrFromRes)", u"ASSERT( %s )", u"nRet > 0");
        return {};
    }
    int nRet = plat::LoadStringW(hInstance, id, buffer.get(), capacity);
    if (nRet <= 0) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (ResourceHelper::getStrFromRes)", u"ASSERT( %s )", u"nRet > 0");
    }
    // A text that fills the buffer may have been cut: load it again into a bigger one until it does not.
    while (nRet >= capacity - 1 && capacity <= INT_MAX / 2) {
        capacity *= 2;
        buffer = allocateZeroed(capacity);
        if (!buffer) {
            return {};
        }
        nRet = plat::LoadStringW(hInstance, id, buffer.get(), capacity);
    }
    return nRet >= 1 ? std::u16string(buffer.get(), static_cast<std::size_t>(nRet)) : std::u16string();
}

std::u16string loadResString(plat::UINT id) {
    plat::WCHAR szText[kLoadResStringCapacity] = {};
    if (plat::LoadStringW(g_hInstance, id, szText, kLoadResStringCapacity) == 0) {
        szText[0] = u'\0';
    }
    return std::u16string(szText);
}
