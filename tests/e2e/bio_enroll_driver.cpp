// Runs one of the biometric engine's further operations (AsynBioOperation) in a process of its own on the
// backend the environment chooses (VELQ_WINBIO), for the end-to-end tests: no road of the program starts
// an enrollment or the event monitor, yet both must work on a real reader.
//
//   bio_enroll_driver enroll SUBFACTOR   enrolls finger position SUBFACTOR (1..10) of the process owner
//   bio_enroll_driver monitor            identifies through the event monitor until the owner's finger
//
// Every line goes to stdout at once, so that a test can feed the reader one sample per line:
//   ready                                       the session is open; the operation starts now
//   enroll result=0xHHHHHHHH feedback=N done=D  each OP_TYPE_ENROLL notification (feedback "-" before
//                                               any sample)
//   event result=0xHHHHHHHH                     each OP_TYPE_VERIFYUSER_END of the event monitor
//   end result=0xHHHHHHHH                       OP_TYPE_ENROLL_END, or the monitor's worker ending
//   open result=0xHHHHHHHH                      the session could not be opened (exit status 1)
// Exit status 0 once the operation has ended, 1 when no session opened, 2 on a wrong command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bio/AsynBioOperation.h"
#include "common/VELQUserInfo.h"
#include "plat/sync.h"

namespace {

unsigned hex(plat::HRESULT hr) {
    return static_cast<unsigned>(hr);
}

plat::HRESULT onEnrollNotification(int type, AsynBioOperation* op, void*) {
    if (type == OP_TYPE_ENROLL) {
        const BioNotifyData* data = op->getNotifyData();
        if (data == nullptr) {
            std::printf("enroll result=0x%08x feedback=- done=0\n", hex(op->getResult()));
        } else {
            std::printf("enroll result=0x%08x feedback=%u done=%u\n", hex(op->getResult()),
                        static_cast<unsigned>(data->m_feedBack), static_cast<unsigned>(data->m_enrollDone));
        }
    } else if (type == OP_TYPE_ENROLL_END) {
        std::printf("end result=0x%08x\n", hex(op->getResult()));
    }
    std::fflush(stdout);
    return 0;
}

// The owner's finger ends the monitor, as a verification would end after its match.
plat::HRESULT onMonitorNotification(int type, AsynBioOperation* op, void*) {
    if (type == OP_TYPE_VERIFYUSER_END) {
        const plat::HRESULT result = op->getResult();
        std::printf("event result=0x%08x\n", hex(result));
        std::fflush(stdout);
        if (result == 0) {
            op->setThreadAutoEnd();
        }
    }
    return 0;
}

// Runs the started operation to its end and closes the session, as the wait for a verification does.
void finish(AsynBioOperation& op) {
    const plat::HANDLE worker = op.getThreadHandle();
    if (worker != nullptr) {
        plat::WaitForSingleObject(worker, plat::INFINITE);
    }
    op.setClient(nullptr, nullptr);
    op.cancelOperation();
    op.closeSession();
}

int usage() {
    std::fprintf(stderr, "usage: bio_enroll_driver enroll SUBFACTOR | monitor\n");
    return 2;
}

int run(bool enroll, unsigned char subFactor) {
    VELQUserInfo* owner = VELQUserInfoManager::getCurrentProcessOwner();
    AsynBioOperation op;
    const plat::HRESULT opened = op.openSession(BIO_APP_TYPE_VERIFY);
    if (opened != 0 || owner == nullptr) {
        std::printf("open result=0x%08x\n", hex(opened));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    if (enroll) {
        op.setClient(onEnrollNotification, nullptr);
        op.enrollFinger(owner, subFactor);
    } else {
        op.setClient(onMonitorNotification, nullptr);
        op.identifyByEvent();
    }
    finish(op);
    if (!enroll) {
        std::printf("end result=0x%08x\n", hex(op.getResult()));
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 2;
    if (argc == 3 && std::strcmp(argv[1], "enroll") == 0) {
        const long subFactor = std::strtol(argv[2], nullptr, 10);
        status =
            subFactor >= 1 && subFactor <= 10 ? run(true, static_cast<unsigned char>(subFactor)) : usage();
    } else if (argc == 2 && std::strcmp(argv[1], "monitor") == 0) {
        status = run(false, 0);
    } else {
        status = usage();
    }
    VELQUserInfoManager::releaseUsers();
    return status;
}
