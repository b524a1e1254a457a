// velq: hands paths to VELQFileEncrypt as a file manager's extension does, through a named mapping and a
// named event of the runtime folder (docs/HANDOFF.md, docs/NAMED_OBJECTS.md).
//
//   velq encrypt PATH...    files to encrypt and folders to walk
//   velq decrypt PATH...    .lqvz files to decrypt and folders to walk
//   velq search PATH...     folders and mount points to search for .lqvz files
//   velq handoff --text FILE --type T [--bytes N]    a text handed over exactly as FILE holds it
//   velq collect VERB PATH...    Explorer's entries: the items of one selection as one request (collect.h)
//
// velq waits until the program signals that it holds the mapping (at most VELQ_HANDOFF_TIMEOUT seconds,
// default 30), gives the objects up, waits for the program to end and exits with its status. Exit status
// 2 for wrong use, 1 when the hand-off cannot be set up or the program cannot be started.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "collect.h"
#include "plat/child_process.h"
#include "plat/command_line.h"
#include "plat/errors.h"
#include "plat/files.h"
#include "plat/handle.h"
#include "plat/named.h"
#include "plat/streams.h"
#include "plat/strings.h"
#include "plat/system.h"

namespace {

constexpr int kWrongUse = 2;
constexpr int kFailed = 1;
constexpr unsigned kDefaultTimeoutSeconds = 30;

const char* const kUsage =
    "usage: velq encrypt PATH...\n"
    "       velq decrypt PATH...\n"
    "       velq search PATH...\n"
    "       velq handoff --text FILE --type T [--bytes N]\n"
    "       velq collect encrypt|decrypt|search PATH...\n"
    "       velq --help | --version\n";

struct HandOffLists {
    std::vector<std::string> encryptFiles;
    std::vector<std::string> decryptFiles;
    std::vector<std::string> folders;
    std::vector<std::string> media;
};

bool isLqvz(const std::string& path) {
    const std::string extension =
        plat::toUtf8(std::filesystem::path(plat::fromUtf8(path)).extension().u16string());
    if (extension.size() != 5) {
        return false;
    }
    for (std::size_t i = 0; i < extension.size(); ++i) {
        const char lower = extension[i] >= 'A' && extension[i] <= 'Z'
                               ? static_cast<char>(extension[i] - 'A' + 'a')
                               : extension[i];
        if (lower != ".lqvz"[i]) {
            return false;
        }
    }
    return true;
}

// Why a path cannot be looked at, from the last error of the failed look-up.
std::string lookUpFailure() {
    switch (plat::GetLastError()) {
        case plat::ERROR_FILE_NOT_FOUND:
        case plat::ERROR_PATH_NOT_FOUND:
            return "No such file or directory";
        case plat::ERROR_ACCESS_DENIED:
            return "Permission denied";
        default:
            return "error " + std::to_string(plat::GetLastError());
    }
}

// The absolute, normal form of a path as the program receives it: without a trailing separator, except
// for a root.
// Through UTF-16, so that no code page stands in between (a narrow path is ANSI on Windows).
std::string absolutePath(const std::string& given, std::error_code& error) {
    std::filesystem::path path =
        std::filesystem::absolute(std::filesystem::path(plat::fromUtf8(given)), error).lexically_normal();
    if (path.has_relative_path() && !path.has_filename()) {
        path = path.parent_path();
    }
    return plat::toUtf8(path.u16string());
}

// Sorts `paths` for `verb` as a file manager's extension offers them: what the verb cannot take is left
// out with a note. false (with a message) for a path that does not exist or cannot travel in a hand-off.
bool sortPaths(const std::string& verb, const std::vector<std::string>& paths, HandOffLists& lists) {
    for (const std::string& given : paths) {
        std::error_code error;
        const std::string clean = absolutePath(given, error);
        const plat::DWORD attributes =
            error ? plat::INVALID_FILE_ATTRIBUTES : plat::GetFileAttributesW(plat::fromUtf8(clean).c_str());
        if (attributes == plat::INVALID_FILE_ATTRIBUTES) {
            if (error) {
                plat::SetLastError(plat::ERROR_FILE_NOT_FOUND);
            }
            std::fprintf(stderr, "velq: %s: %s\n", given.c_str(), lookUpFailure().c_str());
            return false;
        }
        if (clean.find(';') != std::string::npos) {
            std::fprintf(stderr, "velq: %s: a path with \";\" cannot be handed to VELQFileEncrypt\n",
                         given.c_str());
            return false;
        }
        const bool bFolder = (attributes & plat::FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (verb == "search") {
            if (!bFolder) {
                std::fprintf(stderr, "velq: %s: not a folder, left out\n", given.c_str());
            } else if (plat::isVolumeRoot(plat::fromUtf8(clean))) {
                lists.media.push_back(clean);
            } else {
                lists.folders.push_back(clean);
            }
        } else if (bFolder) {
            lists.folders.push_back(clean);
        } else if (verb == "encrypt") {
            lists.encryptFiles.push_back(clean);
        } else if (isLqvz(clean)) {
            lists.decryptFiles.push_back(clean);
        } else {
            std::fprintf(stderr, "velq: %s: not a .lqvz file, left out\n", given.c_str());
        }
    }
    return true;
}

std::string handOffText(const HandOffLists& lists) {
    std::string text;
    const auto append = [&text](const char* mark, const std::vector<std::string>& items) {
        text += mark;
        for (const std::string& item : items) {
            text += item + ";";
        }
    };
    append("DropEncryptFilePath::", lists.encryptFiles);
    append("DropDecryptFilePath::", lists.decryptFiles);
    append("DropFolderPath::", lists.folders);
    append("DropLegalMedia::", lists.media);
    return text;
}

// The program beside this one (installed together), else the one of the build tree, else PATH's.
std::string programPath() {
    // UTF-8 on every system: a program under a folder such as "Jürgen" is started by its real name.
    if (std::string chosen = plat::environmentValue("VELQ_PROGRAM").value_or(std::string());
        !chosen.empty()) {
        return chosen;
    }
    const std::u16string name = plat::programFileName(u"VELQFileEncrypt");
    const std::u16string folder = plat::programFolder();
    if (!folder.empty()) {
        for (const char16_t* relative : {u"/", u"/../src/app/", u"/../../src/app/"}) {
            const std::u16string candidate = folder + relative + name;
            const plat::DWORD attributes = plat::GetFileAttributesW(candidate.c_str());
            if (attributes != plat::INVALID_FILE_ATTRIBUTES &&
                (attributes & plat::FILE_ATTRIBUTE_DIRECTORY) == 0) {
                return plat::toUtf8(std::filesystem::path(candidate).lexically_normal().u16string());
            }
        }
    }
    return plat::toUtf8(name);
}

unsigned timeoutSeconds() {
    return velq::numberFromEnvironment("VELQ_HANDOFF_TIMEOUT", kDefaultTimeoutSeconds, 86399);
}

// The named objects of one hand-off, given up by the destructor (or earlier, once the program holds them).
class HandOffObjects {
public:
    HandOffObjects() = default;
    ~HandOffObjects() { release(); }
    HandOffObjects(const HandOffObjects&) = delete;
    HandOffObjects& operator=(const HandOffObjects&) = delete;

    // Creates the mapping (`bytes` UTF-16LE bytes of `units` then zeros) and the unsignalled event.
    bool create(const std::u16string& units, std::size_t bytes) {
        const std::string stem = "velq-handoff-" + std::to_string(plat::currentProcessId());
        m_mapping = plat::fromUtf8(stem + "-map");
        m_event = plat::fromUtf8(stem + "-event");
        m_hMapping = plat::CreateFileMappingW(plat::INVALID_HANDLE_VALUE, nullptr, plat::PAGE_READWRITE, 0,
                                              static_cast<plat::DWORD>(bytes), m_mapping.c_str());
        if (m_hMapping == nullptr || plat::GetLastError() == plat::ERROR_ALREADY_EXISTS) {
            return fail("the mapping");
        }
        auto* view =
            static_cast<unsigned char*>(plat::MapViewOfFile(m_hMapping, plat::FILE_MAP_WRITE, 0, 0, 0));
        if (view == nullptr) {
            return fail("a view of the mapping");
        }
        for (std::size_t i = 0; i < units.size() && 2 * i + 1 < bytes; ++i) {
            view[2 * i] = static_cast<unsigned char>(units[i] & 0xFF);
            view[2 * i + 1] = static_cast<unsigned char>(units[i] >> 8);
        }
        plat::UnmapViewOfFile(view);
        m_hEvent = plat::CreateEventW(nullptr, plat::FALSE, plat::FALSE, m_event.c_str());
        if (m_hEvent == nullptr || plat::GetLastError() == plat::ERROR_ALREADY_EXISTS) {
            return fail("the event");
        }
        return true;
    }
    void release() {
        for (plat::HANDLE* pHandle : {&m_hMapping, &m_hEvent}) {
            if (*pHandle != nullptr) {
                plat::CloseHandle(*pHandle);
                *pHandle = nullptr;
            }
        }
    }
    bool signalled(plat::DWORD milliseconds) const {
        return plat::WaitForSingleObject(m_hEvent, milliseconds) == plat::WAIT_OBJECT_0;
    }
    std::string line(const std::string& bytes, const std::string& type) const {
        return plat::toUtf8(m_mapping) + "::" + plat::toUtf8(m_event) + "::" + bytes + "::" + type;
    }

private:
    bool fail(const char* what) {
        std::fprintf(stderr, "velq: cannot create %s of the hand-off (error %u)\n", what,
                     static_cast<unsigned>(plat::GetLastError()));
        return false;
    }
    std::u16string m_mapping;
    std::u16string m_event;
    plat::HANDLE m_hMapping = nullptr;
    plat::HANDLE m_hEvent = nullptr;
};

// Starts the program with `line`, waits for its signal (with the time limit) or its end, gives the
// objects up, then waits for the program's end and returns its exit status.
int runHandOff(HandOffObjects& objects, const std::string& line) {
    const std::string program = programPath();
    plat::ChildProcess child;
    std::string failure;
    if (!child.start(plat::fromUtf8(program), plat::fromUtf8(line), failure)) {
        std::fprintf(stderr, "velq: cannot start %s: %s\n", program.c_str(), failure.c_str());
        return kFailed;
    }
    const unsigned limitMs = timeoutSeconds() * 1000;
    int status = 0;
    bool bEnded = false;
    for (unsigned waitedMs = 0;; waitedMs += 50) {
        if (objects.signalled(50)) {
            break;
        }
        if (child.ended(0, status)) {
            bEnded = true;
            if (!objects.signalled(0)) {
                std::fputs("velq: VELQFileEncrypt ended without taking the hand-off\n", stderr);
            }
            break;
        }
        if (waitedMs >= limitMs) {
            std::fprintf(stderr, "velq: no signal from VELQFileEncrypt within %u s; giving the hand-off up\n",
                         limitMs / 1000);
            break;
        }
    }
    objects.release();
    if (!bEnded && !child.ended(plat::INFINITE, status)) {
        std::fputs("velq: cannot wait for VELQFileEncrypt\n", stderr);
        return kFailed;
    }
    if (child.endingSignal() != 0) {
        std::fprintf(stderr, "velq: VELQFileEncrypt ended by signal %d\n", child.endingSignal());
    }
    return status;
}

int handOffPaths(const std::string& verb, const std::vector<std::string>& paths) {
    if (paths.empty()) {
        std::fprintf(stderr, "velq: %s needs at least one PATH\n%s", verb.c_str(), kUsage);
        return kWrongUse;
    }
    HandOffLists lists;
    if (!sortPaths(verb, paths, lists)) {
        return kFailed;
    }
    if (lists.encryptFiles.empty() && lists.decryptFiles.empty() && lists.folders.empty() &&
        lists.media.empty()) {
        std::fprintf(stderr, "velq: nothing to %s\n", verb.c_str());
        return kFailed;
    }
    const std::u16string text = plat::fromUtf8(handOffText(lists));
    const std::size_t bytes = 2 * (text.size() + 1);
    HandOffObjects objects;
    if (!objects.create(text, bytes)) {
        return kFailed;
    }
    const char* type = verb == "encrypt" ? "1" : verb == "decrypt" ? "2" : "4";
    return runHandOff(objects, objects.line(std::to_string(bytes), type));
}

bool isDecimal(const std::string& text) {
    return !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// velq handoff: the FILE's UTF-8 text in UTF-16LE with a NUL behind it; BYTES defaults to all of that, and a
// smaller N cuts the text (and its NUL) off, a larger one asks for more than the mapping holds.
int handOffRaw(const std::vector<std::string>& args) {
    std::optional<std::string> file;
    std::optional<std::string> type;
    std::optional<std::string> bytes;
    for (std::size_t i = 0; i < args.size(); i += 2) {
        if (i + 1 >= args.size()) {
            std::fprintf(stderr, "velq: %s needs a value\n%s", args[i].c_str(), kUsage);
            return kWrongUse;
        }
        std::optional<std::string>* target = args[i] == "--text"    ? &file
                                             : args[i] == "--type"  ? &type
                                             : args[i] == "--bytes" ? &bytes
                                                                    : nullptr;
        if (target == nullptr) {
            std::fprintf(stderr, "velq: unknown option %s\n%s", args[i].c_str(), kUsage);
            return kWrongUse;
        }
        *target = args[i + 1];
    }
    if (!file || !type || !isDecimal(*type) || (bytes && !isDecimal(*bytes))) {
        std::fprintf(stderr, "velq: handoff needs --text FILE and a decimal --type T (and --bytes N)\n%s",
                     kUsage);
        return kWrongUse;
    }
    std::string utf8;
    if (!plat::readWhole(plat::fromUtf8(*file), utf8)) {
        std::fprintf(stderr, "velq: cannot read %s\n", file->c_str());
        return kFailed;
    }
    const std::u16string text = plat::fromUtf8(utf8);
    const std::size_t size = 2 * (text.size() + 1);
    HandOffObjects objects;
    if (!objects.create(text, size)) {
        return kFailed;
    }
    return runHandOff(objects, objects.line(bytes ? *bytes : std::to_string(size), *type));
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args = plat::commandLineArguments(argc, argv);
    if (args.empty()) {
        std::fputs(kUsage, stderr);
        return kWrongUse;
    }
    const std::string& verb = args[0];
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    if (verb == "--help" || verb == "-h") {
        std::fputs(kUsage, stdout);
        std::puts(
            "\nHands paths to VELQFileEncrypt as the file managers' menu entries do; the exit status is the\n"
            "program's. VELQ_PROGRAM names the program to start, VELQ_HANDOFF_TIMEOUT the seconds to wait\n"
            "for its signal (30).");
        return 0;
    }
    if (verb == "--version") {
        std::printf("velq %s\n", VELQ_VERSION);
        return 0;
    }
    if (verb == "encrypt" || verb == "decrypt" || verb == "search") {
        return handOffPaths(verb, rest);
    }
    if (verb == "handoff") {
        return handOffRaw(rest);
    }
    if (verb == "collect") {
        const velq::Collected collected = velq::collect(rest);
        return collected.paths.empty() ? collected.status : handOffPaths(collected.verb, collected.paths);
    }
    std::fprintf(stderr, "velq: unknown command %s\n%s", verb.c_str(), kUsage);
    return kWrongUse;
}
