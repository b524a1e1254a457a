// The error list: each failed file becomes a row of a modeless list dialog (template 51) that runs on a
// thread of its own, stays hidden until its first row and comes to the front with each new one. The
// person can copy the rows to the clipboard; closing the list ends its thread, and the next failure
// starts a new, empty one.
#include <cerrno>
#include <cstring>
#include <string>

#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/clipboard.h"
#include "plat/dialogs.h"
#include "plat/handle.h"
#include "plat/messages.h"
#include "plat/sync.h"
#include "plat/threads.h"
#include "plat/windows.h"
#include "ui/Language.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr plat::UINT WM_ERROR_LIST_ADD = 90001;
constexpr plat::UINT kTextMessageCaption = 1069;
constexpr plat::UINT kTextOk = 1067;
constexpr plat::UINT kTextCopy = 1068;
constexpr plat::UINT kTextTotalErrors = 1046;
constexpr plat::UINT kTextColumn = 1045;
constexpr plat::UINT kIconDialog = 13;
constexpr int kRowBufferChars = 1040;
constexpr int kColumnWidth = 600;
constexpr int kColumnTextLimit = 520;
constexpr plat::DWORD kListStyles =
    plat::LVS_EX_GRIDLINES | plat::LVS_EX_FULLROWSELECT | plat::LVS_EX_LABELTIP;

constexpr const char16_t* kShowTag = u" (_showMessageDialog)";
constexpr const char16_t* kThreadTag = u" (_ThreadProcShowMessage)";

std::u16string decimal(plat::LRESULT value) {
    std::u16string text;
    auto rest = static_cast<unsigned long long>(value < 0 ? 0 : value);
    do {
        text.insert(text.begin(), static_cast<char16_t>(u'0' + rest % 10));
        rest /= 10;
    } while (rest != 0);
    return text;
}

void updateErrorCount(plat::HWND dialog, plat::HWND list) {
    const plat::LRESULT count = plat::SendMessageW(list, plat::LVM_GETITEMCOUNT, 0, 0);
    plat::SetDlgItemTextW(dialog, plat::IDC_ERROR_COUNT, (g_strTotalErrors + decimal(count)).c_str());
}

void addErrorRow(plat::HWND dialog, plat::HWND list, const std::u16string& text) {
    std::u16string row(text);
    plat::LVITEMW item{};
    item.mask = plat::LVIF_TEXT;
    item.iItem = static_cast<int>(plat::SendMessageW(list, plat::LVM_GETITEMCOUNT, 0, 0));
    item.pszText = row.data();
    plat::SendMessageW(list, plat::LVM_INSERTITEMW, 0, reinterpret_cast<plat::LPARAM>(&item));
    updateErrorCount(dialog, list);
}

void initErrorList(plat::HWND list) {
    plat::SendMessageW(list, plat::LVM_SETEXTENDEDLISTVIEWSTYLE, kListStyles, kListStyles);
    std::u16string header = loadResString(kTextColumn);
    plat::LVCOLUMNW column{};
    column.mask = plat::LVCF_FMT | plat::LVCF_WIDTH | plat::LVCF_TEXT;
    column.fmt = plat::LVCFMT_CENTER;
    column.cx = kColumnWidth;
    column.pszText = header.data();
    column.cchTextMax = kColumnTextLimit;
    plat::SendMessageW(list, plat::LVM_INSERTCOLUMNW, 0, reinterpret_cast<plat::LPARAM>(&column));
}

void initErrorDialog(plat::HWND dialog) {
    plat::SetWindowTextW(dialog, loadResString(kTextMessageCaption).c_str());
    plat::SetDlgItemTextW(dialog, plat::IDC_ERROR_OK, loadResString(kTextOk).c_str());
    plat::SetDlgItemTextW(dialog, plat::IDC_ERROR_COPY, loadResString(kTextCopy).c_str());
    plat::HICON icon = plat::LoadIconW(g_hInstance, kIconDialog);
    plat::SendMessageW(dialog, plat::WM_SETICON, plat::ICON_BIG, reinterpret_cast<plat::LPARAM>(icon));
    // At 40, 40 with the size the template gives in dialog units: 299 by 131 taken as pixels would cut its
    // list and buttons off on Windows.
    plat::SetWindowPos(dialog, nullptr, 40, 40, 0, 0, plat::SWP_NOSIZE | plat::SWP_NOZORDER);
    g_strTotalErrors = loadResString(kTextTotalErrors) + u": ";
    initErrorList(plat::GetDlgItem(dialog, plat::IDC_ERROR_LIST));
}

// Every row, in order, each ended by one line feed (the last one too).
std::u16string getErrorListText(plat::HWND list) {
    std::u16string text;
    const plat::LRESULT count = plat::SendMessageW(list, plat::LVM_GETITEMCOUNT, 0, 0);
    for (plat::LRESULT row = 0; row < count; ++row) {
        plat::WCHAR buffer[kRowBufferChars] = {};
        plat::LVITEMW item{};
        item.iSubItem = 0;
        item.pszText = buffer;
        item.cchTextMax = kRowBufferChars;
        plat::SendMessageW(list, plat::LVM_GETITEMTEXTW, static_cast<plat::WPARAM>(row),
                           reinterpret_cast<plat::LPARAM>(&item));
        text += buffer;
        text += u'\n';
    }
    return text;
}

// No message tells the person of the result.
void copyTextToClipboard(plat::HWND dialog, const std::u16string& text) {
    if (!plat::OpenClipboard(dialog)) {
        return;
    }
    if (plat::EmptyClipboard()) {
        const std::size_t bytes = (text.size() + 1) * sizeof(plat::WCHAR);
        plat::HGLOBAL memory = plat::GlobalAlloc(plat::GMEM_MOVEABLE, bytes);
        void* locked = memory != nullptr ? plat::GlobalLock(memory) : nullptr;
        if (locked != nullptr) {
            std::memcpy(locked, text.c_str(), bytes);
            plat::GlobalUnlock(memory);
            plat::SetClipboardData(plat::CF_UNICODETEXT, memory);
        } else {
            plat::GlobalFree(memory);
        }
    }
    plat::CloseClipboard();
}

void onErrorDialogCommand(plat::HWND dialog, plat::WORD id) {
    if (id == plat::IDC_ERROR_OK) {
        plat::PostQuitMessage(0);
    } else if (id == plat::IDC_ERROR_COPY) {
        copyTextToClipboard(dialog, getErrorListText(plat::GetDlgItem(dialog, plat::IDC_ERROR_LIST)));
    }
}

plat::LRESULT errorDialogProc(plat::HWND dialog, plat::UINT message, plat::WPARAM wParam, plat::LPARAM) {
    switch (message) {
        case plat::WM_INITDIALOG:
            initErrorDialog(dialog);
            return plat::TRUE;
        case plat::WM_COMMAND:
            onErrorDialogCommand(dialog, plat::LOWORD(wParam));
            return plat::TRUE;
        case plat::WM_CLOSE:
            plat::PostQuitMessage(0);
            return plat::TRUE;
        case WM_ERROR_LIST_ADD: {
            const std::u16string text(reinterpret_cast<const plat::WCHAR*>(wParam));
            addErrorRow(dialog, plat::GetDlgItem(dialog, plat::IDC_ERROR_LIST), text);
            plat::ShowWindow(dialog, plat::SW_RESTORE);
            plat::SetForegroundWindow(dialog);
            return plat::TRUE;
        }
        default:
            return plat::FALSE;
    }
}

}  // namespace

plat::HRESULT VELQCryptFile::_showMessageDialog(const std::u16string& text) {
    VELQ_TRACE(u"VELQCryptFile::_showMessageDialog", u" (_showMessageDialog)");
    plat::DWORD dwErrDlgThreadExitCode = 0;
    const plat::BOOL bAsked = plat::GetExitCodeThread(m_hErrorDialogThread, &dwErrDlgThreadExitCode);
    VELQ_LOG(DBG_LEVEL_TRC, u" (_showMessageDialog)", u"%s = %u", u"dwErrDlgThreadExitCode",
             dwErrDlgThreadExitCode);

    // The person closed the list, or its thread could not start: a new, empty list.
    if (!bAsked || dwErrDlgThreadExitCode != plat::STILL_ACTIVE) {
        plat::ResetEvent(g_hErrorDialogReadyEvent);
        if (plat::isUsableHandle(m_hErrorDialogThread)) {
            plat::CloseHandle(m_hErrorDialogThread);
        }
        m_hErrorDialogThread = plat::beginThread(&VELQCryptFile::_ThreadProcShowMessage, this);
        if (m_hErrorDialogThread == nullptr) {
            const int v = errno;
            const plat::HRESULT hr =
                v > 0 ? static_cast<plat::HRESULT>(0x80070000U | (static_cast<unsigned>(v) & 0xFFFFU)) : v;
            VELQ_LOG(DBG_LEVEL_ERR, kShowTag, u"Error Code: 0x%x", static_cast<unsigned>(hr));
            return hr;
        }
    }

    const plat::HANDLE readyOrEnded[] = {g_hErrorDialogReadyEvent, m_hErrorDialogThread};
    plat::WaitForMultipleObjects(2, readyOrEnded, plat::FALSE, plat::INFINITE);
    // The event's name is shared by every VELQ process of the person: another process's list may have set
    // it. Only this thread's own window, or its end, says that this list is ready.
    _waitForErrorDialogOrItsEnd();

    plat::SendMessageW(m_hErrorDialog.load(), WM_ERROR_LIST_ADD, reinterpret_cast<plat::WPARAM>(text.c_str()),
                       0);
    return plat::S_OK;
}

unsigned VELQCryptFile::_ThreadProcShowMessage(void* object) {
    plat::MSG msg{};
    plat::PeekMessageW(&msg, nullptr, plat::WM_USER, plat::WM_USER, plat::PM_NOREMOVE);
    initThreadLanguage();
    auto* self = static_cast<VELQCryptFile*>(object);
    if (self == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, kThreadTag, u"Error Code: 0x%x", static_cast<unsigned>(plat::E_POINTER));
        return 0;
    }
    plat::HWND dialog =
        plat::CreateDialogParamW(g_hInstance, plat::IDD_ERROR_LIST, nullptr, errorDialogProc, 0);
    self->m_hErrorDialog = dialog;
    if (!plat::IsWindow(dialog)) {
        VELQ_LOG(DBG_LEVEL_ERR, kThreadTag, u"Error Code: 0x%x", static_cast<unsigned>(plat::E_FAIL));
    } else {
        plat::ShowWindow(dialog, plat::SW_HIDE);
        if (!plat::SetEvent(g_hErrorDialogReadyEvent)) {
            VELQ_LOG(DBG_LEVEL_ERR, kThreadTag, u"Error Code: 0x%x", static_cast<unsigned>(plat::E_FAIL));
        } else {
            while (plat::GetMessageW(&msg, nullptr, 0, 0) > 0) {
                plat::TranslateMessage(&msg);
                plat::DispatchMessageW(&msg);
            }
        }
    }
    plat::DestroyWindow(dialog);
    self->m_hErrorDialog = nullptr;
    return 0;
}

plat::BOOL VELQCryptFile::_isErrorDialogVisible() {
    return plat::IsWindowVisible(m_hErrorDialog.load());
}
