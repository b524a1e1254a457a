// The interaction kinds of a backend that does not show them: nothing is shown, nobody cancels.
#include "plat/ui.h"

namespace plat::ui {

namespace {

class SilentProgress : public ProgressUi {
public:
    void started() override {}
    void stopped() override {}
    void title(std::u16string_view) override {}
    void line(DWORD, std::u16string_view, bool) override {}
    void cancelMessage(std::u16string_view) override {}
    void progress(DWORD, DWORD) override {}
    void timeLeft(DWORD) override {}
    bool cancelRequested() override { return false; }
};

class SilentErrorList : public ErrorListUi {
public:
    void rowAdded(HWND, std::u16string_view, unsigned) override {}
    void shown(HWND) override {}
    void closed(HWND) override {}
};

class SilentClipboard : public ClipboardUi {
public:
    void setText(std::u16string_view) override {}
};

}  // namespace

ProgressUi& silentProgress() {
    static auto* kind = new SilentProgress;  // immortal, as the backends are
    return *kind;
}

ErrorListUi& silentErrorList() {
    static auto* kind = new SilentErrorList;
    return *kind;
}

ClipboardUi& silentClipboard() {
    static auto* kind = new SilentClipboard;
    return *kind;
}

}  // namespace plat::ui
