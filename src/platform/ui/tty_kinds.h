// The progress dialog, the error list and the clipboard at a terminal (VELQ_UI=tty).
//
// Progress: on stderr the title, the three lines and a bar with its percent and the time left; redrawn in
// place while stderr is a terminal, otherwise written as plain lines (each changed text once, the bar at
// every tenth). Ctrl-C is the Cancel button while a dialog runs: the display then shows the cancel text.
// Error list: each row is written as it comes; once the batch is over (ListTurn) the person is asked on
// the terminal: [C]opy to clipboard / [O]K. Clipboard: the terminal's clipboard escape (OSC 52) and,
// where present, wl-copy (Wayland) or xclip (X11).
// Texts never drive the terminal: control characters are shown as U+FFFD. All calls may come from several
// threads; output is written under one lock.
#pragma once

#include <mutex>
#include <string>

#include "plat/ui.h"
#include "ui/list_turn.h"

namespace plat::ui {

// `text` shortened to `width` units by leaving out its middle for "...", as a path is shortened to fit.
std::u16string compactText(std::u16string_view text, std::size_t width);
// The bar line: "[#####-----]  50 %" and, when `secondsLeft` is set, "  0:42 left".
std::string barLine(DWORD completed, DWORD total, int secondsLeft, std::size_t barWidth);
// The terminal's clipboard escape for `text` (UTF-8, base64-encoded).
std::string clipboardEscape(std::u16string_view text);

class TtyKinds : public ProgressUi, public ErrorListUi, public ClipboardUi {
public:
    // `outFd`: where the display goes (stderr); `terminalFd`: where the person answers, -1 for none (the
    // list is then closed at its turn). Neither is owned.
    TtyKinds(int outFd, int terminalFd);
    ~TtyKinds() override;
    TtyKinds(const TtyKinds&) = delete;
    TtyKinds& operator=(const TtyKinds&) = delete;

    // Progress.
    void opened() override;
    void closed() override;
    void started() override;
    void stopped() override;
    void title(std::u16string_view text) override;
    void line(DWORD number, std::u16string_view text, bool compactPath) override;
    void cancelMessage(std::u16string_view text) override;
    void progress(DWORD completed, DWORD total) override;
    void timeLeft(DWORD seconds) override;
    bool cancelRequested() override;

    // Error list.
    void rowAdded(HWND dialog, std::u16string_view text, unsigned count) override;
    void shown(HWND dialog) override;
    void closed(HWND dialog) override;

    // Clipboard.
    void setText(std::u16string_view text) override;

private:
    // With the lock held.
    void _redraw();
    std::string _texts();
    void _write(const std::string& text);
    void _personTurn(HWND dialog);
    bool _readAnswer(std::string& line);

    int m_nOutFd;
    int m_nTerminalFd;
    bool m_bInPlace;
    std::mutex m_mutex;
    bool m_bRunning = false;
    std::u16string m_szTitle;
    std::u16string m_szLines[3];
    bool m_bCompact[3] = {false, false, false};
    std::u16string m_szCancelMsg;
    DWORD m_dwCompleted = 0;
    DWORD m_dwTotal = 0;
    int m_nSecondsLeft = -1;
    std::string m_szDrawn;          // the frame on the screen now
    std::size_t m_nDrawnLines = 0;  // its height, to go back over it
    int m_nPlainTenth = -1;         // plain output: the last tenth of the bar written
    std::string m_szPlainTexts;     // plain output: the texts last written
    ListTurn m_listTurn;
};

}  // namespace plat::ui
