// A UI backend that records what the progress object, the error list dialog and the clipboard tell it,
// for the tests of those platform calls. Installed for one test and taken out again at its end.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "plat/strings.h"
#include "plat/ui.h"

namespace velq_test {

class RecordingKinds : public plat::ui::Backend,
                       public plat::ui::ProgressUi,
                       public plat::ui::ErrorListUi,
                       public plat::ui::ClipboardUi {
public:
    std::string_view name() const override { return "recording"; }
    plat::ui::MessageBoxUi& messageBox() override { return pForward->messageBox(); }
    plat::ui::CursorUi& cursor() override { return pForward->cursor(); }
    plat::ui::ProgressUi& progress() override { return *this; }
    plat::ui::ErrorListUi& errorList() override { return *this; }
    plat::ui::ClipboardUi& clipboard() override { return *this; }

    void opened() override { record("opened"); }
    void closed() override { record("closed"); }
    void started() override { record("started"); }
    void stopped() override { record("stopped"); }
    void title(std::u16string_view text) override { record("title " + plat::toUtf8(text)); }
    void line(plat::DWORD number, std::u16string_view text, bool compact) override {
        record("line " + std::to_string(number) + (compact ? " compact " : " ") + plat::toUtf8(text));
    }
    void cancelMessage(std::u16string_view text) override { record("cancelmsg " + plat::toUtf8(text)); }
    void progress(plat::DWORD completed, plat::DWORD total) override {
        record("progress " + std::to_string(completed) + "/" + std::to_string(total));
    }
    void timeLeft(plat::DWORD seconds) override { record("timeleft " + std::to_string(seconds)); }
    bool cancelRequested() override { return bCancel; }

    void rowAdded(plat::HWND, std::u16string_view text, unsigned count) override {
        record("row " + plat::toUtf8(text) + " #" + std::to_string(count));
    }
    void shown(plat::HWND) override { record("shown"); }
    void closed(plat::HWND) override { record("list closed"); }

    void setText(std::u16string_view text) override { record("clipboard " + plat::toUtf8(text)); }

    std::vector<std::string> events() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    std::atomic<bool> bCancel{false};
    plat::ui::Backend* pForward = nullptr;  // message boxes and the cursor go on to the replaced backend

private:
    void record(std::string what) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(what));
    }

    std::mutex m_mutex;
    std::vector<std::string> m_events;
};

// Installs a RecordingKinds for the life of the object; the previous backend comes back at its end.
class RecordingScope {
public:
    RecordingScope() {
        plat::ui::Backend& previous = plat::ui::currentBackend();  // chosen now, so that it comes back
        auto made = std::make_unique<RecordingKinds>();
        made->pForward = &previous;
        m_pKinds = made.get();
        m_pPrevious = plat::ui::installBackend(std::move(made));
    }
    ~RecordingScope() { plat::ui::installBackend(std::move(m_pPrevious)); }
    RecordingScope(const RecordingScope&) = delete;
    RecordingScope& operator=(const RecordingScope&) = delete;

    RecordingKinds& kinds() { return *m_pKinds; }

private:
    RecordingKinds* m_pKinds = nullptr;
    std::unique_ptr<plat::ui::Backend> m_pPrevious;
};

}  // namespace velq_test
