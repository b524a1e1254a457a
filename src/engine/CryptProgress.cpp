// Progress of a batch: the progress thread that drives the dialog from its own queue, its start-up
// hand-shake, the texts of each stage, and the percent arithmetic of the bar.
//
// The worker never sleeps and never waits for the screen: a post to a live thread's queue cannot fail
// here, so each message is posted once. Two waits are added where the thread could otherwise be lost:
// the start-up waits for the thread's ready event or for its end, and _stopProgressBar waits for the
// thread's end, so that it no longer uses the object when the object goes.
#include <string>

#include "diag/DbgLog.h"
#include "engine/VELQCryptFile.h"
#include "plat/handle.h"
#include "plat/messages.h"
#include "plat/sync.h"
#include "plat/threads.h"
#include "ui/ResourceHelper.h"

namespace {

constexpr plat::UINT WM_PROGRESS_START = plat::WM_USER + 1;
constexpr plat::UINT WM_PROGRESS_STOP = plat::WM_USER + 2;
constexpr plat::UINT WM_PROGRESS_UPDATE = plat::WM_USER + 3;
constexpr plat::UINT kTextCanceled = 1013;

std::u16string decimal(std::size_t value) {
    std::u16string text;
    do {
        text.insert(text.begin(), static_cast<char16_t>(u'0' + value % 10));
        value /= 10;
    } while (value != 0);
    return text;
}

constexpr const char16_t* kStartTag = u" (_startProgressBar)";

}  // namespace

int VELQCryptFile::_startProgressBar(int mode) {
    VELQ_TRACE(u"VELQCryptFile::_startProgressBar", u" (_startProgressBar)");
    g_hProgressReadyEvent = plat::CreateEventW(nullptr, plat::FALSE, plat::FALSE, nullptr);
    if (g_hProgressReadyEvent == nullptr) {
        g_hProgressReadyEvent = plat::INVALID_HANDLE_VALUE;
        VELQ_LOG(DBG_LEVEL_ERR, kStartTag, u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_GENERAL));
        return CRYPT_E_GENERAL;
    }
    if (m_dwProgressThreadId == 0) {
        unsigned threadId = 0;
        m_hProgressThread = plat::beginThread(&VELQCryptFile::_progressBarThreadProc, this, &threadId);
        m_dwProgressThreadId = m_hProgressThread != nullptr ? threadId : 0;
    }

    int nResult = CRYPT_S_OK;
    if (m_hProgressThread == nullptr) {
        VELQ_LOG(DBG_LEVEL_ERR, kStartTag, u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_GENERAL));
        nResult = CRYPT_E_GENERAL;
    } else {
        // A thread that ends before its hand-shake must not leave the worker waiting for ever.
        const plat::HANDLE readyOrEnded[] = {g_hProgressReadyEvent, m_hProgressThread};
        const plat::DWORD woken = plat::WaitForMultipleObjects(2, readyOrEnded, plat::FALSE, plat::INFINITE);
        if (woken != plat::WAIT_OBJECT_0 || !plat::PostThreadMessageW(m_dwProgressThreadId, WM_PROGRESS_START,
                                                                      static_cast<plat::WPARAM>(mode), 0)) {
            VELQ_LOG(DBG_LEVEL_ERR, kStartTag, u"Error Code: 0x%x", static_cast<unsigned>(CRYPT_E_GENERAL));
            m_dwProgressThreadId = 0;  // no thread to report to: _updateProgress returns at once
            nResult = CRYPT_E_GENERAL;
        }
    }
    plat::CloseHandle(g_hProgressReadyEvent);
    g_hProgressReadyEvent = plat::INVALID_HANDLE_VALUE;
    return nResult;
}

unsigned VELQCryptFile::_progressBarThreadProc(void* argument) {
    plat::MSG msg{};
    plat::PeekMessageW(&msg, nullptr, plat::WM_USER, plat::WM_USER, plat::PM_NOREMOVE);
    if (!plat::SetEvent(g_hProgressReadyEvent)) {
        return 1;
    }
    auto* self = static_cast<VELQCryptFile*>(argument);
    if (self == nullptr) {
        return 0;
    }
    unsigned exitCode = 0;
    while (plat::GetMessageW(&msg, nullptr, 0, 0) > 0) {
        switch (msg.message) {
            case WM_PROGRESS_START:
                self->_initProgressTexts(static_cast<int>(msg.wParam));
                self->m_progressDialog.start();
                break;
            case WM_PROGRESS_STOP:
                if (self->m_progressDialog.getWindow() == nullptr) {
                    exitCode = 1;
                } else {
                    self->m_progressDialog.stop();
                }
                break;
            case WM_PROGRESS_UPDATE:
                if (self->m_progressDialog.getWindow() == nullptr) {
                    exitCode = 1;
                } else {
                    self->m_progressDialog.setProgress(static_cast<plat::DWORD>(msg.wParam), 100);
                }
                break;
            default:
                break;  // nothing is dispatched: the thread has no window of its own
        }
    }
    return exitCode;
}

void VELQCryptFile::_initProgressTexts(int mode) {
    const bool bEncrypt = mode == CRYPT_MODE_ENCRYPT;
    m_progressDialog.setTitle((bEncrypt ? g_strEncryptTitle : g_strDecryptTitle).c_str());
    m_progressDialog.setLine(1, (bEncrypt ? g_strEncryptLine1 : g_strDecryptLine1).c_str());
    m_progressDialog.setLine(2, (bEncrypt ? g_strEncryptLine2 : g_strDecryptLine2).c_str());
    m_progressDialog.setLine(3, (bEncrypt ? g_strEncryptLine3 : g_strDecryptLine3).c_str());
    m_progressDialog.setCancelMessage(loadResString(kTextCanceled).c_str());
}

void VELQCryptFile::_updateFileCountLine(plat::DWORD index, int mode) {
    const std::u16string text = (mode == CRYPT_MODE_ENCRYPT ? g_strEncryptLine2 : g_strDecryptLine2) +
                                u"   " + decimal(index) + u" / " + decimal(m_vFileInfos.size());
    m_progressDialog.setLine(2, text.c_str());
}

// The bar value B weighs both passes of an encrypt batch (B moves evenly from 0 to 100 across them); the
// mean M that travels to the progress thread has no such weighting. Both are 32-bit floats summed in
// index order and cut toward zero, so that the bar shows the same numbers on every platform.
void VELQCryptFile::_updateProgress() {
    if (m_dwProgressThreadId == 0) {
        return;
    }
    const std::size_t n = m_vFileInfos.size();
    const plat::DWORD i = m_nCurrentFile;
    const float S = _percentSum(i);
    float B = 0.0F;
    float M = 0.0F;
    if (n != 0) {
        const auto twiceN = static_cast<float>(2 * n);
        const int mode = i < n ? m_vFileInfos[i]->m_nCryptMode : CRYPT_MODE_NONE;
        if (mode == CRYPT_MODE_ENCRYPT) {
            B = (static_cast<float>(i * 100) + S) / twiceN;
        } else if (mode == CRYPT_MODE_VERIFY) {
            B = (static_cast<float>((i + 1) * 100) + S) / twiceN;
        } else {
            B = S / static_cast<float>(n);
        }
        M = S / static_cast<float>(n);
    }
    m_progressDialog.setProgress(static_cast<plat::DWORD>(B), 100);
    // The thread would set the bar to the value it already shows: a batch of many small files changes
    // the whole percent once in dozens of posts, and each post costs a wake-up of the other thread.
    const auto dwPercent = static_cast<plat::DWORD>(M);
    if (dwPercent != m_dwPostedPercent) {
        m_dwPostedPercent = dwPercent;
        plat::PostThreadMessageW(m_dwProgressThreadId, WM_PROGRESS_UPDATE,
                                 static_cast<plat::WPARAM>(dwPercent), 0);
    }
}

// The sum of all records' percents in index order, as one walk over the batch would give it, without the
// walk (a batch of thousands of small files asked it twice per file). The records behind the current one
// have not been touched yet and hold 0, which leaves a float sum as it is; those before it are finished.
// So the sum of those before is kept and extended, in the same order, as the worker moves on.
float VELQCryptFile::_percentSum(plat::DWORD current) {
    const std::size_t n = m_vFileInfos.size();
    if (current < m_nSummedFiles) {
        m_nSummedFiles = 0;
        m_fSummedPercent = 0.0F;
    }
    for (; m_nSummedFiles < current && m_nSummedFiles < n; ++m_nSummedFiles) {
        m_fSummedPercent += m_vFileInfos[m_nSummedFiles]->m_fPercent;
    }
    return current < n ? m_fSummedPercent + m_vFileInfos[current]->m_fPercent : m_fSummedPercent;
}

void VELQCryptFile::_stopProgressBar() {
    VELQ_TRACE(u"VELQCryptFile::_stopProgressBar", u" (_stopProgressBar)");
    plat::PostThreadMessageW(m_dwProgressThreadId, WM_PROGRESS_STOP, 0, 0);
    plat::PostThreadMessageW(m_dwProgressThreadId, plat::WM_QUIT, 0, 0);
    if (m_hProgressThread != plat::INVALID_HANDLE_VALUE) {
        // The thread still uses the object until it has taken WM_QUIT; the object must outlive it.
        if (m_hProgressThread != nullptr) {
            plat::WaitForSingleObject(m_hProgressThread, plat::INFINITE);
            plat::CloseHandle(m_hProgressThread);
        }
        m_hProgressThread = plat::INVALID_HANDLE_VALUE;
    }
}
