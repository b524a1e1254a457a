// The progress dialog of a crypt batch: a thin wrapper of the platform's progress dialog object.
//
// This header is the contract that the crypt engine builds against; the operations are defined in
// src/ui/VELQProgressDialog.cpp (written with the progress work, against this header). Until then only
// the engine's unit tests define them, as recording test doubles.
//
// Every operation works without the platform object too: it then does nothing and gives the result named
// below, so that a batch runs without a visible dialog (and cannot be canceled).
#pragma once

#include <atomic>
#include <string>

#include "plat/types.h"

// The platform's progress dialog object (the shell's on Windows); declared by the platform layer.
struct IProgressDialog;

class VELQProgressDialog {
public:
    // Creates the platform object through initialize(); a failure leaves m_pProgressDialog null.
    VELQProgressDialog();
    // Releases the platform object through close().
    virtual ~VELQProgressDialog();
    VELQProgressDialog(const VELQProgressDialog&) = delete;
    VELQProgressDialog& operator=(const VELQProgressDialog&) = delete;

    // Virtual operations, in slot order.
    // Shows the dialog (on the progress thread) and, topmost, finds its window for getWindow(). TRUE when
    // the platform started it; FALSE without a platform object.
    virtual plat::BOOL start();
    // Closes the dialog. TRUE on success; FALSE without a platform object.
    virtual plat::BOOL stop();
    // Sets the bar; `completed` above `total` counts as `total`. TRUE on success; FALSE without object.
    virtual plat::BOOL setProgress(plat::DWORD completed, plat::DWORD total);
    // Nonzero once the person has pressed Cancel; 0 without a platform object. Polled from the worker
    // thread; needs nothing of the progress thread.
    virtual plat::BOOL hasUserCancelled();
    // Line 1, 2 or 3 of the dialog; a path is shortened to fit. TRUE on success and without object.
    virtual plat::BOOL setLine(plat::DWORD number, const plat::WCHAR* text);
    // Keeps `text` as the title; passes it on at once only when the dialog is not topmost (a topmost
    // dialog gets it in start()). TRUE unless a call to the platform failed.
    virtual plat::BOOL setTitle(const plat::WCHAR* text);
    // The text shown once the person has canceled. TRUE on success and without object.
    virtual plat::BOOL setCancelMessage(const plat::WCHAR* text);

    // The dialog's window as start() found it; null while it is not known.
    plat::HWND getWindow();

    // A fresh GUID as "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (upper-case, 38 characters); empty when no
    // GUID could be had. start() titles the window with it for a moment, to find the window.
    static std::u16string generateGuidText();

private:
    // Creates the platform object; TRUE when it exists. Nobody looks at the result.
    plat::BOOL initialize();
    // Releases the platform object and the window; called by the destructor only.
    void close();

    // Written by the thread that starts the dialog, read by others (a message box of the worker takes it
    // as its owner): atomic, so that the read is never torn or stale.
    std::atomic<plat::HWND> m_hWnd;
    std::u16string m_strTitle;
    plat::BOOL m_bTopMost;
    IProgressDialog* m_pProgressDialog;
};
