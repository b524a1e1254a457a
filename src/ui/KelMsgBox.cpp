#include "ui/KelMsgBox.h"

#include <string>

#include "diag/DbgLog.h"
#include "plat/errors.h"
#include "plat/ui.h"
#include "ui/ResourceHelper.h"

namespace {
// A failed box's last error as a result code. Values that already read as codes (negative) or as no
// error at all (0) pass unchanged, so that a caller comparing with IDYES never sees a Yes.
int codeFromLastError(plat::DWORD dwError) {
    const auto value = static_cast<plat::HRESULT>(dwError);
    return value <= 0 ? value : plat::HRESULT_FROM_WIN32(dwError);
}
}  // namespace

int kelMsgBox(const plat::WCHAR* text, plat::UINT captionId, plat::UINT flags, plat::HWND hWnd,
              plat::HINSTANCE hInstance) {
    if (text == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (kelMsgBox)", u"Error Code: 0x%x", 0u);
        return 0;
    }
    const std::u16string caption = ResourceHelper::getStrFromRes(captionId, hInstance);
    int nResult = plat::MessageBoxW(hWnd, text, caption.c_str(), flags);
    if (nResult == 0 && plat::GetLastError() == plat::ERROR_ACCESS_DENIED) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (kelMsgBox)", u"Try one more time because of ACCESS_DENIED error.");
        nResult = plat::MessageBoxW(nullptr, text, caption.c_str(), flags);
    }
    if (nResult > 0) {
        return nResult;
    }
    const int code = codeFromLastError(plat::GetLastError());
    VELQ_LOG(DBG_LEVEL_ERR, u" (kelMsgBox)", u"Error Code: 0x%x", static_cast<unsigned>(code));
    return code;
}

int kelMsgBox(plat::UINT textId, plat::UINT captionId, plat::UINT flags, plat::HWND hWnd,
              plat::HINSTANCE hInstance) {
    const std::u16string text = ResourceHelper::getStrFromRes(textId, hInstance);
    return kelMsgBox(text.c_str(), captionId, flags, hWnd, hInstance);
}
