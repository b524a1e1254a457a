// The two headers of .lqvz files, written and read by the engine's own operations on files made here.
#include <algorithm>
#include <cstring>

#include "common/VELQUserInfo.h"
#include "format_fixture.h"
#include "plat/file_mapping.h"

namespace {

using format_test::Bytes;
using format_test::ScopedHandle;
using Access = VELQCryptFileTestAccess;

constexpr plat::DWORD kAttributes =
    plat::FILE_ATTRIBUTE_NORMAL | plat::FILE_ATTRIBUTE_UNIX_EXTENSION | 0x81A40000;

plat::DWORD le32(const Bytes& bytes, std::size_t offset) {
    return static_cast<plat::DWORD>(bytes[offset]) | static_cast<plat::DWORD>(bytes[offset + 1]) << 8 |
           static_cast<plat::DWORD>(bytes[offset + 2]) << 16 |
           static_cast<plat::DWORD>(bytes[offset + 3]) << 24;
}

bool allZero(const Bytes& bytes, std::size_t from, std::size_t to) {
    return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                       bytes.begin() + static_cast<std::ptrdiff_t>(to),
                       [](unsigned char b) { return b == 0; });
}

class FileFormatTest : public format_test::KeyedTest {
protected:
    // Writes both headers of a source named `sourceName` of `size` bytes into `file`, the identity header
    // last with `crc32File`, as an encryption does around its data pass (which is not run here).
    int writeHeaders(const std::string& file, const std::u16string& sourceName, std::uint64_t size, bool big,
                     plat::DWORD crc32File) {
        std::unique_ptr<VELQCryptFile> engine = keyedEngine();
        FileInfo info;
        info.m_szFilePath = plat::fromUtf8(m_folder) + u"/" + sourceName;
        info.m_nFileSize = size;
        info.m_bBigFile = big ? plat::TRUE : plat::FALSE;
        info.m_sDestFileInfo.m_DestFileHeader.m_dwAttributes = kAttributes;
        ScopedHandle dest(format_test::openForWriting(file));
        ScopedHandle mapping;
        if (big) {
            const std::uint64_t length = 65536 + (size + 31) / 32 * 32 + 16;
            mapping.reset(plat::CreateFileMappingW(dest.get(), nullptr, plat::PAGE_READWRITE,
                                                   static_cast<plat::DWORD>(length >> 32),
                                                   static_cast<plat::DWORD>(length), nullptr));
            EXPECT_NE(mapping.get(), nullptr);
        }
        info.m_sDestFileInfo.m_hDestFile = dest.get();
        info.m_sDestFileInfo.m_hDestMapFile = mapping.get();
        int result = Access::initCryptHeader(*engine, &info);
        if (result == 0) {
            result = Access::writeCryptHeader(*engine, &info);
        }
        m_cutFile = Bytes{};
        if (result == 0) {
            m_cutFile = readThrough(dest.get());  // the file is held without sharing
            Access::identityHeader(*engine).crc32File = crc32File;
            result = Access::writeIdentityHeader(*engine, dest.get());
        }
        Access::crypt(*engine)->endCryptProcess(true);
        info.m_sDestFileInfo.m_hDestFile = plat::INVALID_HANDLE_VALUE;
        info.m_sDestFileInfo.m_hDestMapFile = nullptr;
        return result;
    }

    // The bytes of the file behind `handle`, read through it from its start.
    static Bytes readThrough(plat::HANDLE handle) {
        plat::LARGE_INTEGER size{};
        Bytes bytes;
        if (plat::GetFileSizeEx(handle, &size) &&
            plat::SetFilePointerEx(handle, plat::LARGE_INTEGER{}, nullptr, plat::FILE_BEGIN)) {
            bytes.resize(static_cast<std::size_t>(size.QuadPart));
            plat::DWORD dwRead = 0;
            if (!plat::ReadFile(handle, bytes.data(), static_cast<plat::DWORD>(bytes.size()), &dwRead,
                                nullptr)) {
                dwRead = 0;
            }
            bytes.resize(dwRead);
        }
        return bytes;
    }

    // Reads both headers of `file` as a decryption does; the header lands in m_read.
    int readHeaders(VELQCryptFile& engine, const std::string& file) {
        ScopedHandle source(format_test::openForReading(file));
        m_read = FileInfo{};
        m_read.m_hFile = source.get();
        m_read.m_bEncrypted = plat::TRUE;
        m_read.m_nFileSize = std::filesystem::file_size(file);
        Access::readIdentityHeader(engine, source.get());
        const int result = Access::readCryptHeader(engine, &m_read);
        Access::crypt(engine)->endCryptProcess(false);
        m_read.m_hFile = plat::INVALID_HANDLE_VALUE;
        return result;
    }

    Bytes m_cutFile;  // the file as it was before its identity header was written
    FileInfo m_read;
};

TEST_F(FileFormatTest, HeaderSizesAreRoundedToThirtyTwoAndFillTheHeaderBuffer) {
    VELQCryptFile engine({}, plat::FALSE);
    EXPECT_EQ(Access::identityHeaderSize(engine), 32U);
    EXPECT_EQ(Access::encryptedHeaderSize(engine), 1088U);
    EXPECT_EQ(Access::headerBuffer(engine).m_dwSize, 1120U);
}

TEST_F(FileFormatTest, SmallFileHeadersAreLaidOutByteForByteAndReadBack) {
    const std::string file = path("small.lqvz");
    ASSERT_EQ(writeHeaders(file, u"report.txt", 33, false, 0xA1B2C3D4), 0);
    const Bytes bytes = format_test::readAll(file);
    ASSERT_EQ(bytes.size(), 1120U) << "headers only: the data pass would follow at 1120";
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "VQE2");
    EXPECT_EQ(le32(bytes, 4), 0xA1B2C3D4U);
    EXPECT_EQ(le32(bytes, 8), m_nKeyCrc);
    EXPECT_TRUE(allZero(bytes, 12, 32));
    EXPECT_FALSE(allZero(bytes, 32, 1120));
    const std::u16string name = u"report.txt";
    const auto* nameBytes = reinterpret_cast<const unsigned char*>(name.data());
    EXPECT_EQ(std::search(bytes.begin(), bytes.end(), nameBytes, nameBytes + name.size() * 2), bytes.end())
        << "the stored name must not lie in clear";

    std::unique_ptr<VELQCryptFile> reader = keyedEngine();
    ASSERT_EQ(readHeaders(*reader, file), 0);
    const IdentityHeader& identity = Access::identityHeader(*reader);
    EXPECT_EQ(identity.crc32File, 0xA1B2C3D4U);
    EXPECT_EQ(identity.crc32Key, m_nKeyCrc);
    DestFileHeader& header = m_read.m_sDestFileInfo.m_DestFileHeader;
    EXPECT_EQ(std::string(header.m_encryptId, 4), "VQE2");
    EXPECT_EQ(std::u16string(header.m_szFileName), name);
    EXPECT_EQ(std::u16string(header.m_szOwner),
              VELQUserInfoManager::getCurrentProcessOwner()->getDomainUserName());
    EXPECT_EQ(header.m_dwAttributes, kAttributes);
    EXPECT_EQ(m_read.m_sDestFileInfo.m_dwDestFileAttributes, kAttributes);
    EXPECT_EQ(header.m_nDataOffset, 1120U);
    EXPECT_EQ(header.m_nDataLength, 33U);
    EXPECT_EQ(Access::checkCryptHeader(*reader, &header), 0);
}

TEST_F(FileFormatTest, BigFileHeaderGoesThroughAViewAndLeavesTheGapZero) {
    const std::string file = path("big.lqvz");
    ASSERT_EQ(writeHeaders(file, u"movie.bin", 10485760, true, 7), 0);
    const Bytes bytes = format_test::readAll(file);
    ASSERT_EQ(bytes.size(), 65536U + 10485760U + 16U) << "the mapping reserved the whole file";
    EXPECT_TRUE(allZero(bytes, 1120, bytes.size())) << "gap and data area stay zero until the data pass";

    std::unique_ptr<VELQCryptFile> reader = keyedEngine();
    ASSERT_EQ(readHeaders(*reader, file), 0);
    EXPECT_EQ(m_read.m_sDestFileInfo.m_DestFileHeader.m_nDataOffset, 65536U);
    EXPECT_EQ(m_read.m_sDestFileInfo.m_DestFileHeader.m_nDataLength, 10485760U);
}

TEST_F(FileFormatTest, FileCutBeforeItsIdentityHeaderReadsAsLegacyAndFails) {
    const std::string file = path("cut.lqvz");
    ASSERT_EQ(writeHeaders(file, u"a.txt", 5, false, 0), 0);
    ASSERT_EQ(m_cutFile.size(), 1120U);
    EXPECT_TRUE(allZero(m_cutFile, 0, 32)) << "the identity area is written last of all";
    format_test::writeAll(file, m_cutFile);

    std::unique_ptr<VELQCryptFile> reader = keyedEngine();
    const int result = readHeaders(*reader, file);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&Access::identityHeader(*reader).encryptId), 4),
              "VELQ");
    EXPECT_EQ(Access::identityHeader(*reader).crc32Key, 0U);
    if (result == 0) {
        EXPECT_EQ(Access::checkCryptHeader(*reader, &m_read.m_sDestFileInfo.m_DestFileHeader),
                  CRYPT_E_INVALID_FILE);
    } else {
        EXPECT_EQ(result, CRYPT_E_DECRYPT);
    }
}

TEST_F(FileFormatTest, LegacyLayoutHasItsHeaderAtOffsetZero) {
    std::unique_ptr<VELQCryptFile> writer = keyedEngine();
    DestFileHeader header{};
    std::memcpy(header.m_encryptId, "VQE2", 4);
    const std::u16string owner = VELQUserInfoManager::getCurrentProcessOwner()->getDomainUserName();
    owner.copy(header.m_szOwner, owner.size());
    std::u16string(u"old.doc").copy(header.m_szFileName, 7);
    header.m_nDataOffset = 1088;
    header.m_nDataLength = 64;
    Bytes bytes(1088 + 64, 0);
    std::memcpy(bytes.data(), &header, sizeof(header));
    ASSERT_GE(Access::crypt(*writer)->encryptStream(bytes.data(), 1088, 0), 0);
    Access::crypt(*writer)->endCryptProcess(true);
    writer.reset();  // one engine at a time, as in a process: they share the error list's event
    const std::string file = path("old.lqvz");
    format_test::writeAll(file, bytes);

    std::unique_ptr<VELQCryptFile> reader = keyedEngine();
    ASSERT_EQ(readHeaders(*reader, file), 0);
    EXPECT_EQ(std::u16string(m_read.m_sDestFileInfo.m_DestFileHeader.m_szFileName), u"old.doc");
    EXPECT_EQ(m_read.m_sDestFileInfo.m_DestFileHeader.m_nDataOffset, 1088U);
    EXPECT_EQ(Access::checkCryptHeader(*reader, &m_read.m_sDestFileInfo.m_DestFileHeader), 0);
}

TEST_F(FileFormatTest, IdentityHeaderTakesAnyFourthByteAfterVQE) {
    std::unique_ptr<VELQCryptFile> engine = keyedEngine();
    const std::string file = path("id.lqvz");
    format_test::writeAll(file, Bytes{'V', 'Q', 'E', '9', 1, 0, 0, 0, 2, 0, 0, 0});
    ScopedHandle handle(format_test::openForReading(file));
    ASSERT_EQ(Access::readIdentityHeader(*engine, handle.get()), 0);
    EXPECT_EQ(Access::identityHeader(*engine).crc32File, 1U);
    EXPECT_EQ(Access::identityHeader(*engine).crc32Key, 2U);

    handle.reset();
    format_test::writeAll(file, Bytes{'V', 'Q'});
    handle.reset(format_test::openForReading(file));
    ASSERT_EQ(Access::readIdentityHeader(*engine, handle.get()), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&Access::identityHeader(*engine).encryptId), 4),
              "VELQ");
    EXPECT_EQ(Access::identityHeader(*engine).crc32File, 0U);

    Access::identityHeader(*engine).crc32File = 99;
    EXPECT_EQ(Access::readIdentityHeader(*engine, plat::INVALID_HANDLE_VALUE), plat::E_INVALIDARG);
    EXPECT_EQ(Access::identityHeader(*engine).crc32File, 99U) << "a failed read leaves the header alone";
}

TEST_F(FileFormatTest, ReaderRefusesWhatIsNoEncryptedFileOrTooShort) {
    std::unique_ptr<VELQCryptFile> engine = keyedEngine();
    struct Case {
        Bytes content;
        int expected;
    };
    const Bytes current(1119, 0);
    Bytes currentMagic = current;
    std::memcpy(currentMagic.data(), "VQE2", 4);
    for (const Case& c : {Case{Bytes{}, CRYPT_E_INVALID_FILE}, Case{Bytes(1087, 7), CRYPT_E_INVALID_FILE},
                          Case{currentMagic, CRYPT_E_INVALID_FILE}}) {
        const std::string file = path("short.lqvz");
        format_test::writeAll(file, c.content);
        EXPECT_EQ(readHeaders(*engine, file), c.expected) << c.content.size() << " bytes";
    }

    FileInfo plain;
    plain.m_hFile = format_test::openForReading(path("short.lqvz"));
    plain.m_nFileSize = 5000;
    EXPECT_EQ(Access::readCryptHeader(*engine, &plain), CRYPT_E_INVALID_FILE) << "another extension";
    plat::CloseHandle(plain.m_hFile);
    plain.m_hFile = plat::INVALID_HANDLE_VALUE;
    plain.m_bEncrypted = plat::TRUE;
    EXPECT_EQ(Access::readCryptHeader(*engine, &plain), CRYPT_E_GENERAL);
    EXPECT_EQ(Access::readCryptHeader(*engine, nullptr), CRYPT_E_GENERAL);
}

TEST_F(FileFormatTest, WithoutACipherNothingIsEnciphered) {
    VELQCryptFile engine({}, plat::FALSE);
    FileInfo info;
    EXPECT_EQ(Access::writeCryptHeader(engine, &info), CRYPT_E_GENERAL);
    info.m_hFile = format_test::openForWriting(path("x.lqvz"));
    info.m_bEncrypted = plat::TRUE;
    info.m_nFileSize = 2000;
    EXPECT_EQ(Access::readCryptHeader(engine, &info), CRYPT_E_GENERAL);
    plat::CloseHandle(info.m_hFile);
    info.m_hFile = plat::INVALID_HANDLE_VALUE;
    EXPECT_EQ(Access::writeIdentityHeader(engine, plat::INVALID_HANDLE_VALUE), CRYPT_E_GENERAL);
}

class StoredTextTest : public FileFormatTest {
protected:
    int initWithName(const std::u16string& name) {
        m_info = FileInfo{};
        m_info.m_szFilePath = u"/some/folder/" + name;
        return Access::initCryptHeader(*m_engine, &m_info);
    }
    int checkWithName(const std::u16string& name) {
        DestFileHeader header{};
        const std::u16string owner = Access::userInfo(*m_engine)->getDomainUserName();
        owner.copy(header.m_szOwner, owner.size());
        name.copy(header.m_szFileName, std::min<std::size_t>(name.size(), 260));
        return Access::checkCryptHeader(*m_engine, &header);
    }

    std::unique_ptr<VELQCryptFile> m_engine =
        std::make_unique<VELQCryptFile>(std::vector<std::u16string>{}, 0);
    FileInfo m_info;
};

TEST_F(StoredTextTest, NameAndOwnerTakeAtMost259Units) {
    ASSERT_EQ(initWithName(std::u16string(259, u'n')), 0);
    EXPECT_EQ(std::u16string(m_info.m_sDestFileInfo.m_DestFileHeader.m_szFileName),
              std::u16string(259, u'n'));
    EXPECT_EQ(initWithName(std::u16string(260, u'n')), CRYPT_E_GENERAL);
#ifndef _WIN32  // on Windows the backslash ends the folder: the name is "slash"
    EXPECT_EQ(initWithName(u"back\\slash"), CRYPT_E_GENERAL) << "no reader would take this name back";
#endif
    EXPECT_EQ(Access::initCryptHeader(*m_engine, nullptr), CRYPT_E_GENERAL);

    VELQUserInfo*& user = Access::userInfo(*m_engine);
    const VELQUserInfo original = *user;
    delete user;
    user = new VELQUserInfo(original.getUid(), std::u16string(260 - 1 - original.getDomain().size(), u'u'),
                            original.getDomain());
    EXPECT_EQ(initWithName(u"a"), CRYPT_E_GENERAL) << "DOMAIN\\user of 260 units";
    delete user;
    user = nullptr;
    EXPECT_EQ(initWithName(u"a"), CRYPT_E_GENERAL);
    DestFileHeader header{};
    EXPECT_EQ(Access::checkCryptHeader(*m_engine, &header), CRYPT_E_GENERAL);
}

TEST_F(StoredTextTest, OwnerMatchesIgnoringCaseAndNoOtherUser) {
    DestFileHeader header{};
    std::u16string owner = Access::userInfo(*m_engine)->getDomainUserName();
    std::transform(owner.begin(), owner.end(), owner.begin(),
                   [](char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; });
    owner.copy(header.m_szOwner, owner.size());
    std::u16string(u"f.txt").copy(header.m_szFileName, 5);
    EXPECT_EQ(Access::checkCryptHeader(*m_engine, &header), 0);
    header.m_szOwner[0] = u'#';
    EXPECT_EQ(Access::checkCryptHeader(*m_engine, &header), CRYPT_E_INVALID_FILE);
}

TEST_F(StoredTextTest, StoredNameThatLeavesOrNamesTheFolderIsRefused) {
    EXPECT_EQ(checkWithName(u"plain name.txt"), 0);
    for (const std::u16string& name :
         {std::u16string(), std::u16string(u"."), std::u16string(u".."), std::u16string(u"../evil"),
          std::u16string(u"sub/x"), std::u16string(u"..\\evil"), std::u16string(260, u'n')}) {
        EXPECT_EQ(checkWithName(name), CRYPT_E_INVALID_FILE) << plat::toUtf8(name).substr(0, 20);
    }
}

}  // namespace
