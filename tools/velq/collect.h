// velq collect VERB PATH...: the menu entries' way of turning a multi-selection into one request.
//
// Explorer runs a static verb (a command line under HKCU\Software\Classes\...\shell\VERB\command) once per
// selected item: each item is its own process, started one after the other within a few milliseconds
// (MultiSelectModel only says up to how many items the verb is offered: Player, 100). A fingerprint gate
// per item is not what a person who selected three files wants, so the entries call `velq collect`, and
// the invocations of one verb that start in the same short moment meet through named objects of their
// own: the first becomes the collector, the others hand it their paths and end; once no path has arrived
// for a quiet moment, the collector hands all of them to VELQFileEncrypt as one request.
//
// The named objects, per verb V (in the session's or the runtime folder's namespace, so per user):
//   velq-collect-V-lock    a mutex: whoever holds it may look at or change the list
//   velq-collect-V-list    a mapping: the list while a collector gathers (it exists exactly as long)
//   velq-collect-V-arrived an auto-reset event: set by each invocation that added to the list
// The collector takes the list and closes the mapping while it holds the mutex, so that an invocation
// that comes later finds no list and becomes the next collector: no path is ever added to a list that
// nobody reads.
#pragma once

#include <string>
#include <vector>

namespace velq {

// What `velq collect` leaves to do. With paths: this process gathered them and hands them over as one
// request of `verb`. Without: nothing is left; exit with `status` (0: the paths went to a collector, 2:
// wrong use, with the message already written).
struct Collected {
    int status = 0;
    std::string verb;
    std::vector<std::string> paths;
};

// Runs `velq collect` with the arguments after "collect": VERB (encrypt, decrypt or search) and one or more
// paths, made absolute here (the collector may run in another folder). Where the named objects cannot be
// made, or the list is full, this process keeps its own paths and hands them over alone: a path is never
// lost, at worst it travels in a request of its own.
//
// Timing (environment, milliseconds): VELQ_COLLECT_QUIET_MS, the quiet moment after the last arrival
// that ends the gathering (default 700); gathering never lasts longer than 20 quiet moments.
Collected collect(const std::vector<std::string>& args);

// The decimal value of the environment variable `name` when it lies in 1..`limit`; else (unset, empty,
// not a number, out of range) `fallback`.
unsigned numberFromEnvironment(const char* name, unsigned fallback, unsigned limit);

}  // namespace velq
