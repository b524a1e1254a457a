// The table is the system's own; the bytes go through zlib's crc32, the fast published implementation,
// which keeps its register complemented on entry and exit: our register `crc` is zlib's ~crc.
#include "engine/Crc32Table.h"

#include <zlib.h>

namespace {
constexpr std::uint32_t kPolynomial = 0xEDB88320U;
}  // namespace

Crc32Table::Crc32Table() : m_table{} {
    for (std::uint32_t value = 0; value < m_table.size(); ++value) {
        std::uint32_t reg = value;
        for (int bit = 0; bit < 8; ++bit) {
            reg = (reg & 1U) != 0 ? (reg >> 1) ^ kPolynomial : reg >> 1;
        }
        m_table[value] = reg;
    }
}

std::uint32_t Crc32Table::update(std::uint32_t crc, const unsigned char* data, std::size_t length) const {
    if (length == 0) {
        return ~crc;
    }
    return static_cast<std::uint32_t>(crc32_z(~crc & 0xFFFFFFFFUL, data, length));
}
