// Test vectors are written as the documents that define them print them: hexadecimal text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velqcryptotest {

inline std::vector<unsigned char> fromHex(std::string_view hex) {
    std::vector<unsigned char> bytes;
    const auto nibble = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(nibble(hex[i]) * 16 + nibble(hex[i + 1])));
    }
    return bytes;
}

inline std::string toHex(const unsigned char* data, std::size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
}

inline std::vector<unsigned char> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace velqcryptotest
