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
};

namespace engine_test {
using ::VELQCryptFileTestAccess;
}  // namespace engine_test
