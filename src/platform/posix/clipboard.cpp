// The clipboard: one holder at a time, the text handed to the UI backend when it is set.
#include "plat/clipboard.h"

#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "plat/errors.h"
#include "plat/threads.h"
#include "plat/ui.h"

namespace plat {

struct GlobalMemory {
    std::vector<BYTE> bytes;
};

namespace {

struct ClipboardState {
    std::mutex mutex;
    DWORD holderThread = 0;  // 0: nobody holds the clipboard
    HGLOBAL data = nullptr;
};

ClipboardState& clipboard() {
    static auto* shared = new ClipboardState;  // immortal, like the backend it feeds
    return *shared;
}

bool callerHolds(ClipboardState& board) {
    return board.holderThread != 0 && board.holderThread == GetCurrentThreadId();
}

std::u16string unicodeTextOf(const GlobalMemory& memory) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < memory.bytes.size(); i += 2) {
        const auto unit = static_cast<char16_t>(memory.bytes[i] | memory.bytes[i + 1] << 8);
        if (unit == 0) {
            break;
        }
        text.push_back(unit);
    }
    return text;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT, std::size_t dwBytes) {
    auto* memory = new (std::nothrow) GlobalMemory;
    if (memory == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    memory->bytes.resize(dwBytes);
    return memory;
}

void* GlobalLock(HGLOBAL hMem) {
    return hMem != nullptr ? static_cast<void*>(hMem->bytes.data()) : nullptr;
}

BOOL GlobalUnlock(HGLOBAL) {
    return FALSE;  // as on Windows once the lock count reaches 0
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
    delete hMem;
    return nullptr;
}

BOOL OpenClipboard(HWND) {
    ClipboardState& board = clipboard();
    std::lock_guard<std::mutex> lock(board.mutex);
    if (board.holderThread != 0 && !callerHolds(board)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    board.holderThread = GetCurrentThreadId();
    return TRUE;
}

BOOL EmptyClipboard() {
    ClipboardState& board = clipboard();
    std::lock_guard<std::mutex> lock(board.mutex);
    if (!callerHolds(board)) {
        SetLastError(ERROR_CLIPBOARD_NOT_OPEN);
        return FALSE;
    }
    GlobalFree(board.data);
    board.data = nullptr;
    return TRUE;
}

HGLOBAL SetClipboardData(UINT uFormat, HGLOBAL hMem) {
    std::u16string text;
    {
        ClipboardState& board = clipboard();
        std::lock_guard<std::mutex> lock(board.mutex);
        if (!callerHolds(board)) {
            SetLastError(ERROR_CLIPBOARD_NOT_OPEN);
            return nullptr;
        }
        if (uFormat != CF_UNICODETEXT || hMem == nullptr) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        if (board.data != hMem) {
            GlobalFree(board.data);
        }
        board.data = hMem;
        text = unicodeTextOf(*hMem);
    }
    ui::currentBackend().clipboard().setText(text);
    return hMem;
}

BOOL CloseClipboard() {
    ClipboardState& board = clipboard();
    std::lock_guard<std::mutex> lock(board.mutex);
    if (!callerHolds(board)) {
        SetLastError(ERROR_CLIPBOARD_NOT_OPEN);
        return FALSE;
    }
    board.holderThread = 0;
    return TRUE;
}

}  // namespace plat
