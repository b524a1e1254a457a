#include <gtest/gtest.h>

#include "common/KeyFileFormat.h"

namespace {

using velqkeyfile::Fields;
using velqkeyfile::ScryptParams;

Fields sampleFields() {
    Fields fields;
    fields.sid = "S-1-22-1-1000";
    for (std::size_t i = 0; i < fields.keyId.size(); ++i) {
        fields.keyId[i] = static_cast<unsigned char>(i + 1);
    }
    fields.passwordSlot.salt.fill(0xA1);
    fields.passwordSlot.wrapped.fill(0xA2);
    fields.localSlot.salt.fill(0xB1);
    fields.localSlot.tag.fill(0xB4);
    fields.mac.fill(0xC0);
    return fields;
}

TEST(KeyFileFormat, EncodedFileParsesBackFieldForField) {
    const Fields fields = sampleFields();
    const std::vector<unsigned char> bytes = velqkeyfile::encodeFile(fields);
    ASSERT_EQ(bytes.size(), velqkeyfile::kFixedBytes + fields.sid.size());
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 12),
              (std::vector<unsigned char>{'V', 'E', 'L', 'Q', 'K', 'E', 'Y', 0, 1, 0, 13, 0}));
    Fields read;
    ASSERT_EQ(velqkeyfile::parseFile(bytes.data(), bytes.size(), read), 0);
    EXPECT_EQ(read.sid, fields.sid);
    EXPECT_EQ(read.keyId, fields.keyId);
    EXPECT_EQ(read.scrypt.log2N, 16);
    EXPECT_EQ(read.scrypt.r, 8);
    EXPECT_EQ(read.scrypt.p, 1);
    EXPECT_EQ(read.passwordSlot.salt, fields.passwordSlot.salt);
    EXPECT_EQ(read.passwordSlot.wrapped, fields.passwordSlot.wrapped);
    EXPECT_EQ(read.localSlot.salt, fields.localSlot.salt);
    EXPECT_EQ(read.localSlot.tag, fields.localSlot.tag);
    EXPECT_EQ(read.mac, fields.mac);
}

TEST(KeyFileFormat, SlotsAuthenticateTheHeaderAndTheirOwnClearFields) {
    Fields fields = sampleFields();
    const auto password = velqkeyfile::passwordSlotAad(fields);
    const auto local = velqkeyfile::localSlotAad(fields);
    fields.sid.back() = '1';
    EXPECT_NE(velqkeyfile::passwordSlotAad(fields), password);
    EXPECT_NE(velqkeyfile::localSlotAad(fields), local);
    fields = sampleFields();
    fields.scrypt.log2N = 17;
    EXPECT_NE(velqkeyfile::passwordSlotAad(fields), password);
    fields = sampleFields();
    fields.localSlot.salt[0] ^= 1;
    EXPECT_NE(velqkeyfile::localSlotAad(fields), local);
    EXPECT_EQ(velqkeyfile::passwordSlotAad(fields), password);
}

TEST(KeyFileFormat, ScryptBoundsRefuseAbsurdMemoryOrWork) {
    EXPECT_TRUE(velqkeyfile::isAcceptable(ScryptParams{}));
    EXPECT_TRUE(velqkeyfile::isAcceptable(ScryptParams{10, 8, 1}));
    EXPECT_TRUE(velqkeyfile::isAcceptable(ScryptParams{20, 1, 1}));
    for (const ScryptParams params :
         {ScryptParams{9, 8, 1}, ScryptParams{21, 1, 1}, ScryptParams{16, 0, 1}, ScryptParams{16, 8, 0},
          ScryptParams{20, 255, 1}, ScryptParams{16, 8, 255}, ScryptParams{255, 255, 255}}) {
        EXPECT_FALSE(velqkeyfile::isAcceptable(params))
            << int(params.log2N) << " " << int(params.r) << " " << int(params.p);
        Fields fields = sampleFields();
        fields.scrypt = params;
        const std::vector<unsigned char> bytes = velqkeyfile::encodeFile(fields);
        Fields read;
        EXPECT_EQ(velqkeyfile::parseFile(bytes.data(), bytes.size(), read), velqkeyfile::E_DAMAGED_FILE);
    }
}

TEST(KeyFileFormat, SidMustBePrintableAsciiOfBoundedLength) {
    for (const std::string& sid :
         {std::string(), std::string("S 1"), std::string("S-\x7f"), std::string(185, 'S')}) {
        Fields fields = sampleFields();
        fields.sid = sid;
        const std::vector<unsigned char> bytes = velqkeyfile::encodeFile(fields);
        Fields read;
        EXPECT_EQ(velqkeyfile::parseFile(bytes.data(), bytes.size(), read), velqkeyfile::E_DAMAGED_FILE)
            << sid;
    }
}

TEST(KeyFileFormat, EveryTruncationIsRefusedWithoutReadingPastTheEnd) {
    const std::vector<unsigned char> bytes = velqkeyfile::encodeFile(sampleFields());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        // A copy of exactly `size` bytes, so that the address sanitizer sees any read beyond it.
        std::vector<unsigned char> part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        Fields read;
        EXPECT_LT(velqkeyfile::parseFile(part.data(), part.size(), read), 0) << size;
    }
}

}  // namespace
