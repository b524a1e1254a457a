// The platform's progress dialog object (the shell's IProgressDialog on Windows) and the few COM calls
// that create it and a fresh GUID.
//
// On POSIX the object is ours: it keeps the title, the three lines, the cancel text and the bar, shows
// them through the process's UI backend (plat/ui.h, ProgressUi), and owns a top-level window whose title
// is the dialog's title, so that FindWindowW finds it. With PROGDLG_AUTOTIME it works out the time left
// from the series of SetProgress values and shows it on line 3, as the shell does. Every operation may
// be called from any thread, also from two at once; only the window belongs to the thread that called
// StartProgressDialog.
#pragma once

#include "plat/guid.h"
#include "plat/types.h"

// The interface stands in the global namespace, where the Windows headers have it.
struct IProgressDialog {
    // Gives up the caller's reference; the object goes with the last one. Returns the references left.
    virtual plat::ULONG Release() = 0;
    // Shows the dialog: a window of this thread with the title as its text. E_UNEXPECTED if it already
    // runs. `hwndParent`, `punkEnableModless` and `pvResevered` are ignored.
    virtual plat::HRESULT StartProgressDialog(plat::HWND hwndParent, void* punkEnableModless,
                                              plat::DWORD dwFlags, const void* pvResevered) = 0;
    // Closes the dialog and destroys its window (from the thread that started it; from another the window
    // goes with that thread). S_OK, also when it was not running.
    virtual plat::HRESULT StopProgressDialog() = 0;
    virtual plat::HRESULT SetTitle(plat::LPCWSTR pwzTitle) = 0;
    virtual plat::HRESULT SetAnimation(plat::HINSTANCE hInstAnimation, plat::UINT idAnimation) = 0;
    // Nonzero once the person has pressed Cancel (on POSIX: as the UI backend reports it).
    virtual plat::BOOL HasUserCancelled() = 0;
    virtual plat::HRESULT SetProgress(plat::DWORD dwCompleted, plat::DWORD dwTotal) = 0;
    virtual plat::HRESULT SetProgress64(plat::ULONGLONG ullCompleted, plat::ULONGLONG ullTotal) = 0;
    // Line 1, 2 or 3 (E_INVALIDARG otherwise); `fCompactPath`: shorten a path to fit.
    virtual plat::HRESULT SetLine(plat::DWORD dwLineNum, plat::LPCWSTR pwzString, plat::BOOL fCompactPath,
                                  const void* pvResevered) = 0;
    virtual plat::HRESULT SetCancelMsg(plat::LPCWSTR pwzCancelMsg, const void* pvResevered) = 0;

protected:
    virtual ~IProgressDialog() = default;
};

namespace plat {

using IID = GUID;
using CLSID = GUID;

inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_INPROC_HANDLER = 0x2;
inline constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;
inline constexpr DWORD CLSCTX_REMOTE_SERVER = 0x10;
inline constexpr DWORD CLSCTX_ALL = 0x17;

inline constexpr DWORD PROGDLG_NORMAL = 0x0;
inline constexpr DWORD PROGDLG_MODAL = 0x1;
inline constexpr DWORD PROGDLG_AUTOTIME = 0x2;

inline constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);

// {F8383852-FCD3-11d1-A6B9-006097DF5BD4} and {EBBC7C04-315E-11d2-B62F-006097DF5BD4}, as on Windows.
inline constexpr CLSID CLSID_ProgressDialog = {
    0xF8383852, 0xFCD3, 0x11D1, {0xA6, 0xB9, 0x00, 0x60, 0x97, 0xDF, 0x5B, 0xD4}};
inline constexpr IID IID_IProgressDialog = {
    0xEBBC7C04, 0x315E, 0x11D2, {0xB6, 0x2F, 0x00, 0x60, 0x97, 0xDF, 0x5B, 0xD4}};

bool operator==(const GUID& left, const GUID& right);

using ::IProgressDialog;

// COM's start and end on a thread: nothing to do on POSIX, always S_OK.
HRESULT CoInitialize(void* pvReserved);
void CoUninitialize();

// A fresh random GUID (version 4). S_OK, or E_FAIL when the system gives no random bytes; E_POINTER for
// a null `pguid`.
HRESULT CoCreateGuid(GUID* pguid);

// Creates the progress dialog object for CLSID_ProgressDialog and IID_IProgressDialog (any context);
// REGDB_E_CLASSNOTREG for another class, E_NOINTERFACE for another interface, E_POINTER for a null `ppv`
// (which is otherwise set to null on failure). `pUnkOuter` must be null.
HRESULT CoCreateInstance(const CLSID& rclsid, void* pUnkOuter, DWORD dwClsContext, const IID& riid,
                         void** ppv);

// The estimate of the time left that the object shows with PROGDLG_AUTOTIME, in seconds: after at least
// 2 seconds and 1 % of the work, the time so far scaled by the work still to do; nothing before that.
// Exposed for tests; `elapsedMs` counts from the first SetProgress of the running dialog.
bool estimateSecondsLeft(ULONGLONG elapsedMs, DWORD completed, DWORD total, DWORD& seconds);

}  // namespace plat
