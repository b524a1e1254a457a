#include "ui/list_turn.h"

#include <algorithm>

namespace plat::ui {

ListTurn::ListTurn(std::function<void(HWND)> act) : m_act(std::move(act)) {}

void ListTurn::progressOpened() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_nProgressOpen;
}

void ListTurn::progressClosed() {
    std::vector<HWND> due;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nProgressOpen > 0) {
            --m_nProgressOpen;
        }
        if (m_nProgressOpen == 0) {
            due.swap(m_vShown);
        }
    }
    _act(due);
}

void ListTurn::listShown(HWND dialog) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nProgressOpen > 0) {
            m_vShown.push_back(dialog);
            return;
        }
    }
    _act({dialog});
}

void ListTurn::listClosed(HWND dialog) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::erase(m_vShown, dialog);
}

void ListTurn::_act(const std::vector<HWND>& dialogs) {
    for (HWND dialog : dialogs) {
        m_act(dialog);
    }
}

}  // namespace plat::ui
