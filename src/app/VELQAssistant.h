// The program's side of what passes between processes at the start of a request. For now: the guard
// that keeps two starts of the same request apart, and the path of a plain-path command line. The
// hand-off from the file manager and the turn of the fingerprint verification join this class later.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "plat/types.h"

class VELQVerifyUser;

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

    // --- The hand-off from a file manager or shell extension (VELQAssistantHandOff.cpp) ---

    // Takes over a hand-off line MAPPING::EVENT::BYTES::T: sets *puMenuType from T, opens the event and
    // the mapping, signals the event once the mapping is open (and on every later path that opened the
    // event, exactly once), reads the text and appends its four lists. 1 on success. 0 when the line does
    // not split, the event or mapping cannot be opened, the view fails, or the text is malformed (no NUL
    // inside the mapped bytes, a mark missing or out of order); then no list is touched.
    plat::BOOL initData(std::vector<std::u16string>& encryptFiles, std::vector<std::u16string>& decryptFiles,
                        std::vector<std::u16string>& folders, std::vector<std::u16string>& legalMedia,
                        plat::UINT* puMenuType, plat::LPCWSTR lpCmdLine);

    struct HandOffFields {
        std::u16string szMapping;
        std::u16string szEvent;
        int nBytes;
        plat::UINT uMenuType;
    };
    // Splits a hand-off line at its ":" as the program always has (first ":" ends MAPPING, the last one
    // starts T, BYTES lies between the closing "::" pairs). false when a field boundary is missing, so
    // that no index ever runs outside the line.
    static bool _parseHandOffCmdLine(std::u16string_view line, HandOffFields& fields);

    // Appends to `list` every ";"-closed item that starts at or before `limit`, beginning behind the
    // first ":" pair at or after `from`. Indexes are unsigned: a `limit` of npos - 1 (no ";" before the
    // media mark) lets the list run to the end of the text.
    static void _parseFilePathList(std::vector<std::u16string>& list, std::u16string_view text,
                                   std::size_t from, std::size_t limit);

    // The four lists of a hand-off text, appended in order; false (lists untouched) when a mark is
    // missing or the marks are out of order.
    static bool parseHandOffText(std::u16string_view text, std::vector<std::u16string>& encryptFiles,
                                 std::vector<std::u16string>& decryptFiles,
                                 std::vector<std::u16string>& folders,
                                 std::vector<std::u16string>& legalMedia);

    // The turn event "VELQAssistantEvent": created auto-reset and unsignalled, or opened when another
    // process made it first (then *pbOtherFirst is true and the caller waits for its turn). Null when
    // neither works; the verification then runs without a turn. The caller keeps the handle open.
    static plat::HANDLE _openAssistantEvent(bool* pbOtherFirst);

    // --- The turn of the fingerprint verification (VELQAssistantTurn.cpp) ---

    // One verification at a time across the processes of this program: waits, without a time-out, for
    // the turn on the event "VELQAssistantEvent" when another process made it first (a holder that dies
    // passes the turn on), runs verifyUser->verifyUser, then gives the turn on whatever the outcome.
    // Non-zero only when verifyUser gave TRUE, not cancelled and verified; 0 for a null argument. Without
    // the event the verification runs without a turn. The event stays open until the process ends.
    plat::BOOL verifyUserInTurn(VELQVerifyUser* verifyUser);

private:
    plat::HANDLE m_hInstanceMutex;
};
