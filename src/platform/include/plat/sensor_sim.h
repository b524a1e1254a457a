// What the person does at the wait window, for the simulated sensor's timeline (VELQ_WINBIO=sim).
//
// The timeline of VELQ_WINBIO_SIM holds, beside the touches, the statements `close-window`,
// `session CODE` and `power CODE`. They are taken in the timeline's order, each once a wait window is
// shown, i.e. subscribed here: the wait window's backend subscribes when it shows the window and
// unsubscribes before it destroys it, and posts what it is told to its window as
//   close-window  -> WM_CLOSE                          (wParam 0)
//   session CODE  -> WM_WTSSESSION_CHANGE              (wParam CODE)
//   power CODE    -> WM_POWERBROADCAST                 (wParam CODE)
// A window statement at the head of the timeline waits (holding back all later statements) until a
// window is subscribed. With any other backend nothing is ever delivered.
#pragma once

#include <cstdint>

#include "plat/types.h"

namespace plat::sensor {

// Called on the simulated sensor's thread; it should only post the message to its window. It may call
// the WinBio calls and unsubscribeWindowEvents (its own registration included).
using WindowEventProc = void (*)(void* context, UINT message, WPARAM wParam);

// Registers `proc` (not null) for the window statements; every subscriber receives each statement.
// Gives the registration's id, 0 when the process's backend has no timeline (then `proc` is never
// called) or `proc` is null.
std::uint64_t subscribeWindowEvents(WindowEventProc proc, void* context);

// Ends a registration (an unknown id or 0 is ignored). When it returns, `proc` runs nowhere any more,
// except as the caller itself when called from inside `proc`.
void unsubscribeWindowEvents(std::uint64_t id);

}  // namespace plat::sensor
