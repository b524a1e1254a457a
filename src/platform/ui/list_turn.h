// When the person gets to act on the error list. The list of a batch takes rows while the batch runs; a
// person who is not watching a screen (a script, a terminal that shows the progress) acts on it once the
// batch is over, which is when no progress dialog is open any more: the batch's progress object exists
// from the batch's start until its progress has stopped. A list shown while no progress dialog is open
// gets the person's turn at once. Each list gets one turn.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <vector>

#include "plat/types.h"

namespace plat::ui {

class ListTurn {
public:
    // `act` runs the person's turn on a shown list, on the thread that reported the event, with no lock
    // held; it ends with the list closed.
    explicit ListTurn(std::function<void(HWND)> act);

    void progressOpened();
    void progressClosed();
    void listShown(HWND dialog);
    void listClosed(HWND dialog);

private:
    void _act(const std::vector<HWND>& dialogs);

    std::function<void(HWND)> m_act;
    std::mutex m_mutex;
    int m_nProgressOpen = 0;
    std::vector<HWND> m_vShown;  // shown lists still waiting for their turn
};

}  // namespace plat::ui
