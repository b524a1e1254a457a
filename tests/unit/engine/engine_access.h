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

    // File access and the work on one file (CryptFileAccess.cpp, CryptEncrypt.cpp, CryptDecrypt.cpp).
    static void initData(VELQCryptFile& engine, int mode) { engine._initData(mode); }
    static void setCurrentFile(VELQCryptFile& engine, plat::DWORD index) { engine.m_nCurrentFile = index; }
    static int openFile(VELQCryptFile& engine, FileInfo* info) { return engine._openFile(info); }
    static int getDestFilePath(VELQCryptFile& engine, FileInfo* info, plat::BOOL bEncrypt) {
        return engine._getDestFilePath(info, bEncrypt);
    }
    static int createFile(VELQCryptFile& engine, FileInfo* info, plat::BOOL bUnattended) {
        return engine._createFile(info, bUnattended);
    }
    static void deleteFiles(VELQCryptFile& engine, FileInfo* info, plat::BOOL bSource) {
        engine._deleteFiles(info, bSource);
    }
    static int encryptFile(VELQCryptFile& engine, FileInfo* info) { return engine._encryptFile(info); }
    static int decryptFile(VELQCryptFile& engine, FileInfo* info) { return engine._decryptFile(info); }
    static int processAllFiles(VELQCryptFile& engine, int mode) { return engine._processAllFiles(mode); }
    static FileRemover& fileRemover(VELQCryptFile& engine) { return engine.m_fileRemover; }
};

namespace engine_test {
using ::VELQCryptFileTestAccess;
}  // namespace engine_test
