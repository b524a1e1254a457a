// The engine's unit tests reach the internal operations and fields of VELQCryptFile through this class.
#pragma once

#include "engine/VELQCryptFile.h"

class VELQCryptFileTestAccess {
public:
    static std::u16string buildResultMessage(VELQCryptFile& engine, int nResult, const std::u16string& path) {
        return engine._buildResultMessage(nResult, path);
    }
    static void closeFileHandles(VELQCryptFile& engine, FileInfo* info) { engine._closeFileHandles(info); }
    static const std::vector<FileInfo*>& fileInfos(VELQCryptFile& engine) { return engine.m_vFileInfos; }
    static VELQCrypt* crypt(VELQCryptFile& engine) { return engine.m_pCrypt; }
    static plat::DWORD allocationGranularity(VELQCryptFile& engine) {
        return engine.m_dwAllocationGranularity;
    }
    static const CryptBuffer& headerBuffer(VELQCryptFile& engine) { return engine.m_headerBuffer; }
    static const CryptBuffer& dataBuffer(VELQCryptFile& engine) { return engine.m_dataBuffer; }

    // File format and crypt scene (CryptFileFormat.cpp, CryptScene.cpp).
    static plat::DWORD identityHeaderSize(VELQCryptFile& engine) { return engine._getIdentityHeaderSize(); }
    static plat::DWORD encryptedHeaderSize(VELQCryptFile& engine) { return engine._getEncryptedHeaderSize(); }
    static int initCryptHeader(VELQCryptFile& engine, FileInfo* info) {
        return engine._initCryptHeader(info);
    }
    static int writeCryptHeader(VELQCryptFile& engine, FileInfo* info) {
        return engine._writeCryptHeader(info);
    }
    static int writeIdentityHeader(VELQCryptFile& engine, plat::HANDLE file) {
        return engine._writeIdentityHeader(file);
    }
    static int readIdentityHeader(VELQCryptFile& engine, plat::HANDLE file) {
        return engine._readIdentityHeader(file);
    }
    static int readCryptHeader(VELQCryptFile& engine, FileInfo* info) {
        return engine._readCryptHeader(info);
    }
    static int checkCryptHeader(VELQCryptFile& engine, DestFileHeader* header) {
        return engine._checkCryptHeader(header);
    }
    static int initCryptScene(VELQCryptFile& engine) { return engine._initCryptScene(); }
    static IdentityHeader& identityHeader(VELQCryptFile& engine) { return engine.m_identityHeader; }
    static plat::DWORD& crc32Key(VELQCryptFile& engine) { return engine.m_crc32Key; }
    static VELQUserInfo*& userInfo(VELQCryptFile& engine) { return engine.m_pUserInfo; }
};

namespace engine_test {
using ::VELQCryptFileTestAccess;
}  // namespace engine_test
