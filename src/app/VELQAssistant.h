// The program's side of what passes between processes at the start of a request. For now: the guard
// that keeps two starts of the same request apart, and the path of a plain-path command line. The
// hand-off from the file manager and the turn of the fingerprint verification join this class later.
#pragma once

#include <string>
#include <string_view>

#include "plat/types.h"

class VELQAssistant {
public:
    VELQAssistant();
    // Closes the guard mutex, which frees the request's name for the next start.
    ~VELQAssistant();
    VELQAssistant(const VELQAssistant&) = delete;
    VELQAssistant& operator=(const VELQAssistant&) = delete;

    // The guard: true when another live process already holds the request `name` (a path, or a whole
    // hand-off line). Creates the named mutex of guardName(name) and keeps it open for the life of this
    // object, so a second start with the same request sees it until this object is gone or its process
    // dies. A mutex that cannot be created counts as no other instance (false): the request goes on.
    // A second call closes the first guard and guards the new name.
    bool isExistInstance(const std::u16string& name);

    // The path of a plain-path command line: every double quote left out, at most 259 characters kept.
    // Null gives an empty path.
    std::u16string getFilePathFromCmdLine(plat::LPCWSTR lpCmdLine);

    // The mutex name of a request: ":", "\" and "/" become "-", nothing else changes. A name that does
    // not fit the 259 characters of the name buffer keeps its first characters and ends in "-" and 16
    // hexadecimal digits of a hash of the whole (already replaced) text, so two long requests stay apart
    // and two spellings that are equal after the replacement stay equal.
    static std::u16string guardName(std::u16string_view name);

private:
    plat::HANDLE m_hInstanceMutex;
};
