#include <gtest/gtest.h>

#include <vector>

#include "engine/Crc32Table.h"

namespace {

// The register run bit by bit, from the polynomial alone: an independent reference for any length.
std::uint32_t bitwiseCrc(const std::vector<unsigned char>& bytes) {
    std::uint32_t reg = 0xFFFFFFFFU;
    for (unsigned char byte : bytes) {
        reg ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            reg = (reg & 1U) != 0 ? (reg >> 1) ^ 0xEDB88320U : reg >> 1;
        }
    }
    return ~reg;
}

std::vector<unsigned char> patterned(std::size_t length) {
    std::vector<unsigned char> bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<unsigned char>((i * 131 + 7) ^ (i >> 8));
    }
    return bytes;
}

TEST(Crc32Table, TableHoldsThePublishedEntries) {
    const Crc32Table table;
    EXPECT_EQ(table[0], 0x00000000U);
    EXPECT_EQ(table[1], 0x77073096U);
    EXPECT_EQ(table[128], 0xEDB88320U);
    EXPECT_EQ(table[255], 0x2D02EF8DU);
}

TEST(Crc32Table, GivesThePublishedCheckValueAndZeroForNothing) {
    const Crc32Table table;
    const unsigned char check[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(table.update(~0U, check, sizeof(check)), 0xCBF43926U);
    std::uint32_t crc32File = 0;
    crc32File = table.update(~crc32File, nullptr, 0);
    EXPECT_EQ(crc32File, 0U) << "an empty file's crc32File is 0";
}

TEST(Crc32Table, CarriedAcrossBlocksEqualsOnePassOverAllBytes) {
    const Crc32Table table;
    const std::vector<unsigned char> bytes = patterned(3 * 65536 + 33);
    for (std::size_t block : {std::size_t{1}, std::size_t{32}, std::size_t{65536}, std::size_t{100000}}) {
        std::uint32_t crc = 0;
        for (std::size_t offset = 0; offset < bytes.size(); offset += block) {
            const std::size_t length = std::min(block, bytes.size() - offset);
            crc = table.update(~crc, bytes.data() + offset, length);
        }
        EXPECT_EQ(crc, bitwiseCrc(bytes)) << "blocks of " << block;
    }
}

}  // namespace
