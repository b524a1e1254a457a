// Two key backups, one written by each crypto implementation (OpenSSL on Linux; libgcrypt, as on
// Windows, with a block size other than 8: r = 3, p = 2), both with scrypt costs cheap enough for tests
// and the password kBackupPassword. Each must open under whichever implementation a test is built with:
// not a byte of the key file format depends on the library.
#pragma once

#include <string>
#include <vector>

#include "crypto/hex.h"

namespace velqcryptotest {

inline constexpr char kBackupPassword[] = "correct horse battery staple";

struct Backup {
    const char* writtenBy;
    const char* hex;
    unsigned int crc32;  // getCRC32Value of the key when it was written
};

inline const Backup kBackups[] = {
    {"openssl",
     "56454c514b45590001000a00532d312d32322d312d3001d10bd0c876af32a16c495efc1c8ea50c0801005892861b8eaf"
     "11d253ce4c3b59d5248c911a18e1346477475e4dd2b4add7e0965effece085ea8f77cdecaea20f561dd53b4159a10fc4"
     "af7eb125bcd41894f41f5359d7067f882ab0ea17cd02df1b93aea6a8ca1811cf1362e82dc0137823bbcb8d070359be01"
     "f9921bc1cf66579657db14439ea08796a34798907ac64eb8da7234aee5f3b1718717f6ced311d2ec2cb5fb886a7bd595"
     "bbbb8e665f70547c56b85d164778eaff91f024012de61bcd06c73902785bef0125c0ca97591acfce93127e35053c9b05"
     "c0320d79c1d7c89d292139825f77cd5cf8a3",
     2599438684u},
    {"gcrypt",
     "56454c514b45590001000a00532d312d32322d312d3035cc6a38003cb0c4653e6833886cc0ac0c0302009f4c99169d12"
     "ab911563cf12b7907f64d6455106b0554c91132bb4f5a4c49e02c135484cb347af95187d822d199f14246716258140aa"
     "3c468b21df7de3f545fb1d5a58a321ffde9a764189241a48186c1ed19b708ddca393284308e9318972d3fd83eeee6264"
     "91b572d251558490f6fde5d58ce04c5037b3ae577738a6472bc21db44f0b41962a731f9757423f45bf045747255a85f9"
     "ff10d359f033ac7ff57df86ea6780080f9f75d03f38a2f3d144edeb16397d01cb1320f3bfa60c501e52a761d2968b5b1"
     "dc03a45e161cce944f673d2afcf113540d03",
     4085592440u},
};

inline std::string bytesOfBackup(const Backup& backup) {
    const std::vector<unsigned char> bytes = fromHex(backup.hex);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace velqcryptotest
