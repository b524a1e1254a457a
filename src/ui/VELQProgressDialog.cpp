// The progress dialog of a crypt batch over the platform's progress object. It adds one thing to that
// object: it puts the dialog above other windows, finding its window under a title nobody else can have.
#include "ui/VELQProgressDialog.h"

#include <cstdio>

#include "diag/DbgLog.h"
#include "plat/dialogs.h"
#include "plat/progress.h"
#include "plat/strings.h"
#include "plat/windows.h"

namespace {
constexpr plat::UINT kTopmostFlags = plat::SWP_NOSIZE | plat::SWP_NOMOVE | plat::SWP_SHOWWINDOW;
}  // namespace

VELQProgressDialog::VELQProgressDialog()
    : m_hWnd(nullptr), m_bTopMost(plat::TRUE), m_pProgressDialog(nullptr) {
    initialize();
}

VELQProgressDialog::~VELQProgressDialog() {
    close();
}

plat::BOOL VELQProgressDialog::initialize() {
    plat::CoInitialize(nullptr);
    void* object = nullptr;
    plat::CoCreateInstance(plat::CLSID_ProgressDialog, nullptr, plat::CLSCTX_ALL, plat::IID_IProgressDialog,
                           &object);
    m_pProgressDialog = static_cast<IProgressDialog*>(object);
    return m_pProgressDialog != nullptr ? plat::TRUE : plat::FALSE;
}

void VELQProgressDialog::close() {
    if (m_pProgressDialog != nullptr) {
        m_pProgressDialog->Release();
        m_pProgressDialog = nullptr;
    }
    // The window belongs to the thread that started the dialog; from here this only fails.
    plat::DestroyWindow(m_hWnd);
    plat::CoUninitialize();
}

plat::BOOL VELQProgressDialog::start() {
    if (m_pProgressDialog == nullptr) {
        return plat::FALSE;
    }
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQProgressDialog::start)", u"Show progress bar");
    const plat::HRESULT hr =
        m_pProgressDialog->StartProgressDialog(nullptr, nullptr, plat::PROGDLG_AUTOTIME, nullptr);
    if (!m_bTopMost) {
        return hr == plat::S_OK ? plat::TRUE : plat::FALSE;
    }
    VELQ_LOG(DBG_LEVEL_INF, u" (VELQProgressDialog::start)", u"Show progress bar in topmost");
    // The GUID stands in the title only until the search is done; then the person's title is back.
    const std::u16string guidText = generateGuidText();
    m_pProgressDialog->SetTitle(guidText.c_str());
    const plat::HWND hWnd = plat::FindWindowW(nullptr, guidText.c_str());
    m_hWnd = hWnd;
    m_pProgressDialog->SetTitle(m_strTitle.c_str());
    if (plat::IsWindow(hWnd)) {
        VELQ_LOG(DBG_LEVEL_INF, u" (VELQProgressDialog::start)",
                 u"Found progress bar window, window name: %s", guidText.c_str());
        plat::SetWindowPos(hWnd, plat::HWND_TOPMOST, 0, 0, 0, 0, kTopmostFlags);
        plat::BringWindowToTop(hWnd);
        plat::SetForegroundWindow(hWnd);
    }
    return hr == plat::S_OK ? plat::TRUE : plat::FALSE;
}

plat::BOOL VELQProgressDialog::stop() {
    if (m_pProgressDialog == nullptr) {
        return plat::FALSE;
    }
    return m_pProgressDialog->StopProgressDialog() == plat::S_OK ? plat::TRUE : plat::FALSE;
}

plat::BOOL VELQProgressDialog::setProgress(plat::DWORD completed, plat::DWORD total) {
    if (m_pProgressDialog == nullptr) {
        return plat::FALSE;
    }
    if (completed > total) {
        completed = total;
    }
    return m_pProgressDialog->SetProgress(completed, total) == plat::S_OK ? plat::TRUE : plat::FALSE;
}

plat::BOOL VELQProgressDialog::hasUserCancelled() {
    if (m_pProgressDialog == nullptr) {
        return plat::FALSE;
    }
    return m_pProgressDialog->HasUserCancelled();
}

plat::BOOL VELQProgressDialog::setLine(plat::DWORD number, const plat::WCHAR* text) {
    if (m_pProgressDialog == nullptr) {
        return plat::TRUE;
    }
    return m_pProgressDialog->SetLine(number, text, plat::TRUE, nullptr) == plat::S_OK ? plat::TRUE
                                                                                       : plat::FALSE;
}

plat::BOOL VELQProgressDialog::setTitle(const plat::WCHAR* text) {
    m_strTitle.assign(text != nullptr ? text : u"");
    // A topmost dialog gets its title in start(), after the search under the GUID.
    if (m_pProgressDialog == nullptr || m_bTopMost) {
        return plat::TRUE;
    }
    return m_pProgressDialog->SetTitle(text) == plat::S_OK ? plat::TRUE : plat::FALSE;
}

plat::BOOL VELQProgressDialog::setCancelMessage(const plat::WCHAR* text) {
    if (m_pProgressDialog == nullptr) {
        return plat::TRUE;
    }
    return m_pProgressDialog->SetCancelMsg(text, nullptr) == plat::S_OK ? plat::TRUE : plat::FALSE;
}

plat::HWND VELQProgressDialog::getWindow() {
    return m_hWnd;
}

std::u16string VELQProgressDialog::generateGuidText() {
    plat::CoInitialize(nullptr);
    plat::GUID guid{};
    std::u16string text;
    if (plat::CoCreateGuid(&guid) == plat::S_OK) {
        char buffer[40];
        std::snprintf(buffer, sizeof(buffer), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                      static_cast<unsigned>(guid.Data1), static_cast<unsigned>(guid.Data2),
                      static_cast<unsigned>(guid.Data3), guid.Data4[0], guid.Data4[1], guid.Data4[2],
                      guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
        text = plat::fromUtf8(buffer);
    }
    plat::CoUninitialize();
    return text;
}
