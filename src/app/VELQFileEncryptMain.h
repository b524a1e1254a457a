// The program's entry: start-up, the command line and its three roads, and the fingerprint gate.
//
// Command-line forms ("::" separates fields):
//   plain path   any text without "::" (one quoted or unquoted path)  -> _doConfirmDecrypt
//   single file  "1::" PATH "::" T, T one digit at the very end        -> _doSingleFileProcess
//   hand-off     MAPPING "::" EVENT "::" BYTES "::" T                  -> _doMultiFilesProcess
// Results are signed 32-bit codes: 0 (also a refused question or a cancelled operation), E_INVALIDARG
// for a null command line (or an empty one given to the single-file road), E_FAIL when the guard, the
// hand-off, the gate or the request failed, or any other negative code of the gate, unchanged.
#pragma once

#include <string>
#include <string_view>

#include "plat/types.h"

// Starts up (GDI+, the locale, the thread's language, g_hInstance), runs _parseCmdLine and shuts down.
// Returns the road's result, which is the process's exit code. Only `hInstance` and `lpCmdLine` are used.
int wWinMain(plat::HINSTANCE hInstance, plat::HINSTANCE hPrevInstance, plat::LPWSTR lpCmdLine, int nShowCmd);

// Chooses the road and runs it. E_INVALIDARG for null; a road's negative result unchanged; else 0.
plat::HRESULT _parseCmdLine(plat::LPCWSTR lpCmdLine);

// The plain-path road: guard, gate, the question "decrypt?" (message 1064), then the decrypt.
plat::HRESULT _doConfirmDecrypt(plat::LPCWSTR lpCmdLine);
// The single-file road: guard on the path, gate (for every menu type), then the request.
plat::HRESULT _doSingleFileProcess(plat::LPCWSTR lpCmdLine);
// The hand-off road: the hand-off, guard on the whole line, gate (not for the search), the request.
plat::HRESULT _doMultiFilesProcess(plat::LPCWSTR lpCmdLine);

// The fingerprint gate: 0 when a finger has proved the process owner, else a negative code. A sensor
// that cannot be opened shows message 1059 and gives E_FAIL.
plat::HRESULT _showFPVerifyDlg();

// The road a command line takes; string logic only, for the roads and their tests.
enum class CmdLineRoad { ConfirmDecrypt, SingleFile, MultiFiles };
// No "::" anywhere: the plain path. Otherwise a first character of "1" or ":" (one character tested
// against the set, not the prefix "1::") gives the single file, anything else the hand-off.
CmdLineRoad chooseCmdLineRoad(std::u16string_view cmdLine);

// The single-file form cut apart. PATH runs from the first character that is neither "1" nor ":" to
// just before the "::" that ends at the last ":" of the line (empty when these cross); the menu type is
// the value of the last character when that is a decimal digit, else 0.
struct SingleFileRequest {
    std::u16string path;
    plat::UINT uMenuType;
};
SingleFileRequest splitSingleFileCmdLine(std::u16string_view cmdLine);
