// The progress dialog of the Windows program: the shell's own (CLSID_ProgressDialog), behind the layer's
// IProgressDialog; under the scripted UI the backends' own (ui/backend_progress.cpp). The layer's interface
// is a plain C++ one of its own (no QueryInterface or AddRef), so one object here holds the shell's COM
// object and forwards each call as it stands. Like the shell's object it has no lock of its own: the core
// calls it from the worker and the progress thread at once, as it calls the shell's object on Windows, and
// the shell's object guards itself.
#include <atomic>
#include <cstring>

#include "plat/progress.h"
#include "plat/ui.h"
#include "ui/backend_progress.h"
#include "win32/wide.h"
// After wide.h: COM's header needs <windows.h> first.
#include <objbase.h>

namespace plat {

using win32::native;
using win32::wide;

// The shell's interface under a name of our own: its published name is the layer's interface here. The
// slots stand in the shell's order, IUnknown's three first. Outside an unnamed
// namespace: a class there that nothing in this file derives from would let the compiler take every call
// of it for a call of a pure virtual function.
struct ShellProgressDialog {
    virtual ::HRESULT STDMETHODCALLTYPE QueryInterface(const ::IID&, void**) = 0;
    virtual ::ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ::ULONG STDMETHODCALLTYPE Release() = 0;
    virtual ::HRESULT STDMETHODCALLTYPE StartProgressDialog(::HWND, ::IUnknown*, ::DWORD, ::LPCVOID) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE StopProgressDialog() = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetTitle(::PCWSTR) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetAnimation(::HINSTANCE, ::UINT) = 0;
    virtual ::BOOL STDMETHODCALLTYPE HasUserCancelled() = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetProgress(::DWORD, ::DWORD) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetProgress64(::ULONGLONG, ::ULONGLONG) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetLine(::DWORD, ::PCWSTR, ::BOOL, ::LPCVOID) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE SetCancelMsg(::PCWSTR, ::LPCVOID) = 0;
    virtual ::HRESULT STDMETHODCALLTYPE Timer(::DWORD, ::LPCVOID) = 0;

protected:
    ~ShellProgressDialog() = default;
};

namespace {

// The shell's interface id, {EBBC7C04-315E-11D2-B62F-006097DF5BD4}: the layer's constant in the API's type.
::GUID nativeGuid(const GUID& guid) {
    ::GUID result{};
    static_assert(sizeof(result) == sizeof(guid));
    std::memcpy(&result, &guid, sizeof(result));
    return result;
}

class ShellProgress final : public IProgressDialog {
public:
    explicit ShellProgress(ShellProgressDialog* shell) : m_pShell(shell) {}

    ULONG Release() override {
        const ULONG left = --m_nReferences;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT StartProgressDialog(HWND hwndParent, void*, DWORD dwFlags, const void*) override {
        return m_pShell->StartProgressDialog(native(hwndParent), nullptr, dwFlags, nullptr);
    }
    HRESULT StopProgressDialog() override { return m_pShell->StopProgressDialog(); }
    HRESULT SetTitle(LPCWSTR pwzTitle) override { return m_pShell->SetTitle(wide(pwzTitle)); }
    HRESULT SetAnimation(HINSTANCE hInstAnimation, UINT idAnimation) override {
        return m_pShell->SetAnimation(reinterpret_cast<::HINSTANCE>(hInstAnimation), idAnimation);
    }
    BOOL HasUserCancelled() override { return m_pShell->HasUserCancelled(); }
    HRESULT SetProgress(DWORD dwCompleted, DWORD dwTotal) override {
        return m_pShell->SetProgress(dwCompleted, dwTotal);
    }
    HRESULT SetProgress64(ULONGLONG ullCompleted, ULONGLONG ullTotal) override {
        return m_pShell->SetProgress64(ullCompleted, ullTotal);
    }
    HRESULT SetLine(DWORD dwLineNum, LPCWSTR pwzString, BOOL fCompactPath, const void*) override {
        return m_pShell->SetLine(dwLineNum, wide(pwzString), fCompactPath, nullptr);
    }
    HRESULT SetCancelMsg(LPCWSTR pwzCancelMsg, const void*) override {
        return m_pShell->SetCancelMsg(wide(pwzCancelMsg), nullptr);
    }

private:
    ~ShellProgress() override { m_pShell->Release(); }

    ShellProgressDialog* m_pShell;
    std::atomic<ULONG> m_nReferences{1};
};

}  // namespace

HRESULT CoCreateInstance(const CLSID& rclsid, void* pUnkOuter, DWORD dwClsContext, const IID& riid,
                         void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (!(rclsid == CLSID_ProgressDialog) || pUnkOuter != nullptr) {
        return REGDB_E_CLASSNOTREG;
    }
    if (!(riid == IID_IProgressDialog)) {
        return E_NOINTERFACE;
    }
    // Under another UI than the system's (the scripted one) the dialog is that UI's, as on every system.
    if (!ui::currentBackend().usesSystemWindows()) {
        *ppv = ui::newBackendProgressDialog();
        return *ppv != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    const ::GUID shellClass = nativeGuid(CLSID_ProgressDialog);
    const ::GUID shellInterface = nativeGuid(IID_IProgressDialog);
    void* shell = nullptr;
    const ::HRESULT created = ::CoCreateInstance(shellClass, nullptr, dwClsContext, shellInterface, &shell);
    if (FAILED(created) || shell == nullptr) {
        return created;
    }
    *ppv = new ShellProgress(static_cast<ShellProgressDialog*>(shell));
    return S_OK;
}

}  // namespace plat
