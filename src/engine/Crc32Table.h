// The published CRC-32 (IEEE 802.3: reflected polynomial 0xEDB88320, register starting at all ones,
// result complemented) that the .lqvz format stores as crc32File.
//
// A data pass builds one table and carries its value across blocks by complementing the last result
// before each update:  crc = table.update(~crc, block, length), starting from crc = 0. That gives the same
// value as one update over all bytes, and 0 for no bytes at all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

class Crc32Table {
public:
    // The 256-entry table of the polynomial, filled once per process (a data pass of a small file is
    // shorter than filling it). Cannot fail.
    Crc32Table();

    // Runs the register, given in `crc`, over `length` bytes at `data` and returns the complemented
    // register. `data` may be null when `length` is 0. Computed by a fast published implementation
    // (Crc32Table.cpp), which gives the same values as the table.
    std::uint32_t update(std::uint32_t crc, const unsigned char* data, std::size_t length) const;

    // The table entry for one byte value: the register after shifting that byte through a zero register.
    std::uint32_t operator[](std::size_t index) const { return (*m_pTable)[index]; }

private:
    const std::array<std::uint32_t, 256>* m_pTable;
};
