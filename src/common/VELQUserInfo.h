// The users of this machine: its accounts. The domain is the host name; the SID text is the system's
// (POSIX: "S-1-22-1-<uid>"; Windows: the account's SID).
// Each user has a small record in the application directory ("user.rec"): the number of fingerprints
// last seen enrolled.
#pragma once

#include <string>
#include <vector>

#include "plat/types.h"

class VELQUserInfo {
public:
    // `sidText` empty: the POSIX account of `uid` ("S-1-22-1-<uid>").
    VELQUserInfo(unsigned int uid, std::u16string userName, std::u16string domain,
                 std::u16string sidText = {});
    VELQUserInfo(const VELQUserInfo& other) = default;
    VELQUserInfo& operator=(const VELQUserInfo& other) = default;
    ~VELQUserInfo() = default;

    std::u16string getDomain() const { return m_strDomain; }
    std::u16string getUserName() const { return m_strUserName; }
    // "DOMAIN\user".
    std::u16string getDomainUserName() const { return m_strDomain + u"\\" + m_strUserName; }
    // The SID text: the one given, else "S-1-22-1-<uid>".
    std::u16string getVELQSID() const;

    // Reads the user record into the fingerprint count. 0 on success; S_FALSE (1) when the user has no
    // record yet (the count becomes 0); the errno of a record that cannot be read, or 0x8007000D for a
    // damaged one (the count stays). `flags` is reserved: pass 0.
    long load(long flags);
    // Writes the record (atomically, mode 0600), making the application directory when it is missing.
    // 0 on success, else the failing call's errno as an HRESULT. `flags` is reserved: pass 0.
    long save(long flags);

    // The account's numeric id (POSIX: the uid; Windows: the RID of its SID).
    unsigned int getUid() const { return m_uid; }

    void setFingerprintCount(plat::ULONG count) { m_nFingerprintCount = count; }
    plat::ULONG getFingerprintCount() const { return m_nFingerprintCount; }

private:
    unsigned int m_uid;
    std::u16string m_strUserName;
    std::u16string m_strDomain;
    std::u16string m_strSid;
    plat::ULONG m_nFingerprintCount;
};

// The user objects handed out by the manager. Every pointer it gives stays valid until releaseUsers(),
// which destroys them all; calls from several threads are serialised, but a thread must not release the
// users while another still uses them.
class VELQUserInfoManager {
public:
    // The effective user of this process; null when the account cannot be read. The same object on every
    // call until releaseUsers.
    static VELQUserInfo* getCurrentProcessOwner();

    // With a nonzero `what`, reads every account of the machine, ordered by id and then name, for
    // getAllUsers. 0 on success; S_FALSE when the list is there already (it stays, and so do its
    // pointers); E_INVALIDARG for 0.
    static long initUsers(int what);

    // The list read by initUsers (empty before it), owned by the manager, valid until releaseUsers.
    static std::vector<VELQUserInfo*>* getAllUsers();

    // Destroys the owner object and the list.
    static void releaseUsers();
};
