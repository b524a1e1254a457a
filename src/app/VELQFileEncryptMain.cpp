#include "app/VELQFileEncryptMain.h"

#include <clocale>
#include <vector>

#include "app/VELQAssistant.h"
#include "app/VELQShellExtProc.h"
#include "bio/VELQVerifyUser.h"
#include "diag/DbgLog.h"
#include "plat/foreground.h"
#include "plat/ui.h"
#include "ui/KelMsgBox.h"
#include "ui/Language.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr plat::UINT kMsgDecryptQuestion = 1064;
constexpr plat::UINT kMsgSensorFailed = 1059;
constexpr plat::UINT kCaptionInformation = 1017;
constexpr plat::UINT kCaptionError = 1018;

constexpr plat::UINT kMenuEncrypt = 1;
constexpr plat::UINT kMenuDecrypt = 2;
constexpr plat::UINT kMenuSearch = 4;

// The failure line of the house style, at the point of failure; a macro so that the site names its caller.
#define LOG_ERROR_CODE(tag, code) \
    VELQ_LOG(DBG_LEVEL_ERR, tag, u"Error Code: 0x%x", static_cast<unsigned>(code))

// The request processor's result as a road gives it: 0 from run is a failure.
plat::HRESULT runRequest(VELQShellExtProc& proc, const char16_t* what) {
    if (proc.run() == 0) {
        VELQ_LOG(DBG_LEVEL_ERR, u" (runRequest)", u"%s: the request failed", what);
        LOG_ERROR_CODE(u" (runRequest)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    return plat::S_OK;
}

}  // namespace

CmdLineRoad chooseCmdLineRoad(std::u16string_view cmdLine) {
    if (cmdLine.find(u"::") == std::u16string_view::npos) {
        return CmdLineRoad::ConfirmDecrypt;
    }
    return (cmdLine.front() == u'1' || cmdLine.front() == u':') ? CmdLineRoad::SingleFile
                                                                : CmdLineRoad::MultiFiles;
}

SingleFileRequest splitSingleFileCmdLine(std::u16string_view cmdLine) {
    SingleFileRequest request{std::u16string(), 0};
    const std::size_t start = cmdLine.find_first_not_of(u"1:");
    const std::size_t lastColon = cmdLine.rfind(u':');
    if (start != std::u16string_view::npos && lastColon != std::u16string_view::npos && lastColon >= 1 &&
        lastColon - 1 > start) {
        request.path = std::u16string(cmdLine.substr(start, lastColon - 1 - start));
    }
    if (!cmdLine.empty() && cmdLine.back() >= u'0' && cmdLine.back() <= u'9') {
        request.uMenuType = static_cast<plat::UINT>(cmdLine.back() - u'0');
    }
    return request;
}

plat::HRESULT _showFPVerifyDlg() {
    VELQVerifyUser verifyUser(nullptr, true);
    VELQAssistant assistant;
    if (!verifyUser.initBIODevice()) {
        plat::SetCursor(plat::LoadCursorW(nullptr, plat::IDC_ARROW));
        kelMsgBox(kMsgSensorFailed, kCaptionError, plat::MB_ICONERROR, plat::GetForegroundWindow(),
                  g_hInstance);
        LOG_ERROR_CODE(u" (_showFPVerifyDlg)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    const plat::BOOL bVerified = assistant.verifyUserInTurn(&verifyUser);
    verifyUser.stopBIODevice();
    if (!bVerified) {
        LOG_ERROR_CODE(u" (_showFPVerifyDlg)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    return plat::S_OK;
}

plat::HRESULT _doConfirmDecrypt(plat::LPCWSTR lpCmdLine) {
    if (lpCmdLine == nullptr) {
        LOG_ERROR_CODE(u" (_doConfirmDecrypt)", plat::E_INVALIDARG);
        return plat::E_INVALIDARG;
    }
    VELQAssistant assistant;
    const std::u16string path = assistant.getFilePathFromCmdLine(lpCmdLine);
    if (assistant.isExistInstance(path)) {
        LOG_ERROR_CODE(u" (_doConfirmDecrypt)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    const plat::HRESULT hrGate = _showFPVerifyDlg();
    if (hrGate < 0) {
        LOG_ERROR_CODE(u" (_doConfirmDecrypt)", hrGate);
        return hrGate;
    }
    const int answer =
        kelMsgBox(kMsgDecryptQuestion, kCaptionInformation, plat::MB_YESNO | plat::MB_ICONQUESTION,
                  plat::GetForegroundWindow(), g_hInstance);
    if (answer != plat::IDYES) {
        return plat::S_OK;
    }
    VELQShellExtProc proc(std::vector<std::u16string>{path});
    return runRequest(proc, u"_doConfirmDecrypt");
}

plat::HRESULT _doSingleFileProcess(plat::LPCWSTR lpCmdLine) {
    VELQ_TRACE(u"_doSingleFileProcess", u" (_doSingleFileProcess)");
    if (lpCmdLine == nullptr || *lpCmdLine == u'\0') {
        LOG_ERROR_CODE(u" (_doSingleFileProcess)", plat::E_INVALIDARG);
        return plat::E_INVALIDARG;
    }
    const SingleFileRequest request = splitSingleFileCmdLine(lpCmdLine);
    VELQAssistant assistant;
    if (assistant.isExistInstance(request.path)) {
        LOG_ERROR_CODE(u" (_doSingleFileProcess)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    const plat::HRESULT hrGate = _showFPVerifyDlg();
    if (hrGate < 0) {
        LOG_ERROR_CODE(u" (_doSingleFileProcess)", hrGate);
        return hrGate;
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (_doSingleFileProcess)", u"%s = %d", u"uMenuType",
             static_cast<int>(request.uMenuType));
    std::vector<std::u16string> encryptFiles;
    std::vector<std::u16string> decryptFiles;
    if (request.uMenuType == kMenuEncrypt) {
        encryptFiles.push_back(request.path);
    } else if (request.uMenuType == kMenuDecrypt) {
        decryptFiles.push_back(request.path);
    }
    VELQShellExtProc proc(encryptFiles, decryptFiles, request.uMenuType);
    return runRequest(proc, u"_doSingleFileProcess");
}

plat::HRESULT _doMultiFilesProcess(plat::LPCWSTR lpCmdLine) {
    VELQ_TRACE(u"_doMultiFilesProcess", u" (_doMultiFilesProcess)");
    if (lpCmdLine == nullptr) {
        LOG_ERROR_CODE(u" (_doMultiFilesProcess)", plat::E_INVALIDARG);
        return plat::E_INVALIDARG;
    }
    // The hand-off comes before the guard, so that the sender is released even when this start is a
    // second one of the same request.
    VELQAssistant assistant;
    std::vector<std::u16string> encryptFiles;
    std::vector<std::u16string> decryptFiles;
    std::vector<std::u16string> folders;
    std::vector<std::u16string> legalMedia;
    plat::UINT uMenuType = 0;
    if (assistant.initData(encryptFiles, decryptFiles, folders, legalMedia, &uMenuType, lpCmdLine) == 0) {
        LOG_ERROR_CODE(u" (_doMultiFilesProcess)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    if (assistant.isExistInstance(lpCmdLine)) {
        LOG_ERROR_CODE(u" (_doMultiFilesProcess)", plat::E_FAIL);
        return plat::E_FAIL;
    }
    if (uMenuType != kMenuSearch) {
        const plat::HRESULT hrGate = _showFPVerifyDlg();
        if (hrGate < 0) {
            LOG_ERROR_CODE(u" (_doMultiFilesProcess)", hrGate);
            return hrGate;
        }
    }
    VELQShellExtProc proc(encryptFiles, decryptFiles, folders, legalMedia, uMenuType);
    return runRequest(proc, u"_doMultiFilesProcess");
}

plat::HRESULT _parseCmdLine(plat::LPCWSTR lpCmdLine) {
    if (lpCmdLine == nullptr) {
        LOG_ERROR_CODE(u" (_parseCmdLine)", plat::E_INVALIDARG);
        return plat::E_INVALIDARG;
    }
    VELQ_LOG(DBG_LEVEL_TRC, u" (_parseCmdLine)", u"%s = %s", u"lpCmdLine", lpCmdLine);
    plat::HRESULT hr = plat::S_OK;
    switch (chooseCmdLineRoad(lpCmdLine)) {
        case CmdLineRoad::ConfirmDecrypt:
            hr = _doConfirmDecrypt(lpCmdLine);
            break;
        case CmdLineRoad::SingleFile:
            hr = _doSingleFileProcess(lpCmdLine);
            break;
        case CmdLineRoad::MultiFiles:
            hr = _doMultiFilesProcess(lpCmdLine);
            break;
    }
    if (hr < 0) {
        LOG_ERROR_CODE(u" (_parseCmdLine)", hr);
        return hr;
    }
    return plat::S_OK;
}

int wWinMain(plat::HINSTANCE hInstance, plat::HINSTANCE /*hPrevInstance*/, plat::LPWSTR lpCmdLine,
             int /*nShowCmd*/) {
    VELQ_TRACE(u"wWinMain", u" (wWinMain)");
    // The wait window draws with GDI+; its result is not looked at, as a failed start only costs pictures.
    plat::ULONG_PTR gdiplusToken = 0;
    const plat::GdiplusStartupInput gdiplusStartupInput;
    plat::GdiplusStartup(&gdiplusToken, &gdiplusStartupInput, nullptr);
    std::setlocale(LC_ALL, "");
    initThreadLanguage();
    g_hInstance = hInstance;
    const plat::HRESULT hr = _parseCmdLine(lpCmdLine);
    plat::GdiplusShutdown(gdiplusToken);
    return hr;
}
