// Support for the front end's tests: a private environment (runtime folder for named objects, data home
// for keys), temporary folders, and a UI backend that records every box and cursor and answers boxes
// from a queue.
#pragma once

#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "plat/strings.h"
#include "plat/ui.h"
#include "temp_folder.h"
#include "test_environment.h"

namespace app_test {

// Sets an environment variable for the life of the object and puts back what was there.
class ScopedEnv : public ::ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : ::ScopedEnv(name, value.c_str()) {}
};

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir() : m_path(velq_test::utf8Of(velq_test::makeTempFolder("velq-app-").make_preferred())) {}
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(velq_test::pathOfUtf8(m_path), ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    // Creates `relative` (and its folders) holding `content`; returns its full path.
    std::string file(const std::string& relative, const std::string& content = "x") const {
        const std::filesystem::path full = velq_test::pathOfUtf8(m_path) / velq_test::pathOfUtf8(relative);
        std::filesystem::create_directories(full.parent_path());
        std::ofstream(full, std::ios::binary) << content;
        return velq_test::utf8Of(
            std::filesystem::path(full).make_preferred());  // as the system's calls give it
    }
    std::string folder(const std::string& relative) const {
        const std::filesystem::path full = velq_test::pathOfUtf8(m_path) / velq_test::pathOfUtf8(relative);
        std::filesystem::create_directories(full);
        return velq_test::utf8Of(std::filesystem::path(full).make_preferred());
    }

private:
    std::string m_path;
};

inline std::u16string u16(const std::string& text) {
    return plat::fromUtf8(text);
}

struct ShownBox {
    bool bOwned;
    std::u16string text;
    std::u16string caption;
    plat::UINT flags;
    plat::HWND owner;
};

// Records interactions and answers boxes from `answers` (IDNO when the queue is empty; 0 answers as a
// box that could not be shown).
class RecordingBackend : public plat::ui::Backend, plat::ui::MessageBoxUi, plat::ui::CursorUi {
public:
    std::string_view name() const override { return "recording"; }
    plat::ui::MessageBoxUi& messageBox() override { return *this; }
    plat::ui::CursorUi& cursor() override { return *this; }

    int show(plat::HWND owner, std::u16string_view text, std::u16string_view caption,
             plat::UINT flags) override {
        boxes.push_back(
            ShownBox{owner != nullptr, std::u16string(text), std::u16string(caption), flags, owner});
        if (answers.empty()) {
            return plat::IDNO;
        }
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }
    void show(plat::DWORD cursorId) override { cursors.push_back(cursorId); }

    std::deque<int> answers;
    std::vector<ShownBox> boxes;
    std::vector<plat::DWORD> cursors;
};

// Installs a RecordingBackend for the life of the object.
class ScopedRecordingBackend {
public:
    ScopedRecordingBackend() {
        auto backend = std::make_unique<RecordingBackend>();
        m_pBackend = backend.get();
        m_previous = plat::ui::installBackend(std::move(backend));
    }
    // Puts the previous backend back (none: the next use chooses afresh) and destroys ours.
    ~ScopedRecordingBackend() { plat::ui::installBackend(std::move(m_previous)); }
    ScopedRecordingBackend(const ScopedRecordingBackend&) = delete;
    ScopedRecordingBackend& operator=(const ScopedRecordingBackend&) = delete;

    RecordingBackend& operator*() { return *m_pBackend; }
    RecordingBackend* operator->() { return m_pBackend; }

private:
    RecordingBackend* m_pBackend = nullptr;
    std::unique_ptr<plat::ui::Backend> m_previous;
};

}  // namespace app_test
