#include "common/KeyFileFormat.h"

#include <cstring>

#include "common/crypto/Crypto.h"

using plat::HRESULT;

namespace velqkeyfile {
namespace {

constexpr std::uint8_t kReserved = 0;

void putBytes(std::vector<unsigned char>& out, const unsigned char* data, std::size_t size) {
    // resize + memcpy rather than insert: GCC 12 at -O3 reports a false -Wstringop-overflow inside
    // vector::insert of a byte range (GCC bug 106199).
    const std::size_t at = out.size();
    out.resize(at + size);
    if (size != 0) {
        std::memcpy(out.data() + at, data, size);
    }
}

template <std::size_t N>
void putArray(std::vector<unsigned char>& out, const std::array<unsigned char, N>& data) {
    putBytes(out, data.data(), N);
}

void putU16(std::vector<unsigned char>& out, std::uint16_t value) {
    out.push_back(static_cast<unsigned char>(value & 0xff));
    out.push_back(static_cast<unsigned char>(value >> 8));
}

// Magic, version, SID length, SID, key id.
std::vector<unsigned char> encodeHeader(const Fields& fields) {
    std::vector<unsigned char> out;
    putBytes(out, kMagic, sizeof(kMagic));
    putU16(out, kVersion);
    putU16(out, static_cast<std::uint16_t>(fields.sid.size()));
    putBytes(out, reinterpret_cast<const unsigned char*>(fields.sid.data()), fields.sid.size());
    putArray(out, fields.keyId);
    return out;
}

void putScrypt(std::vector<unsigned char>& out, const ScryptParams& params) {
    out.push_back(params.log2N);
    out.push_back(params.r);
    out.push_back(params.p);
    out.push_back(kReserved);
}

void putSealed(std::vector<unsigned char>& out, const Slot& slot) {
    putArray(out, slot.nonce);
    putArray(out, slot.wrapped);
    putArray(out, slot.tag);
}

// Reads fields in order from a buffer whose length has been checked already.
class Reader {
public:
    explicit Reader(const unsigned char* data) : m_pData(data) {}
    std::uint8_t u8() { return *m_pData++; }
    std::uint16_t u16() {
        const std::uint16_t value = static_cast<std::uint16_t>(m_pData[0] | (m_pData[1] << 8));
        m_pData += 2;
        return value;
    }
    template <std::size_t N>
    void array(std::array<unsigned char, N>& out) {
        std::memcpy(out.data(), m_pData, N);
        m_pData += N;
    }
    void slotSealed(Slot& slot) {
        array(slot.nonce);
        array(slot.wrapped);
        array(slot.tag);
    }
    const unsigned char* position() const { return m_pData; }
    void skip(std::size_t size) { m_pData += size; }

private:
    const unsigned char* m_pData;
};

bool isSidText(const unsigned char* text, std::size_t size) {
    if (size == 0 || size > kMaxSidBytes) {
        return false;
    }
    for (std::size_t i = 0; i < size; ++i) {
        if (text[i] < 0x21 || text[i] > 0x7e) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool isAcceptable(const ScryptParams& params) {
    if (params.log2N < kMinLog2N || params.log2N > kMaxLog2N || params.r == 0 || params.p == 0) {
        return false;
    }
    const std::uint64_t n = std::uint64_t{1} << params.log2N;
    return 128 * n * params.r <= kMaxScryptMemory && n * params.r * params.p <= kMaxScryptWork;
}

std::vector<unsigned char> passwordSlotAad(const Fields& fields) {
    std::vector<unsigned char> out = encodeHeader(fields);
    putScrypt(out, fields.scrypt);
    putArray(out, fields.passwordSlot.salt);
    return out;
}

std::vector<unsigned char> localSlotAad(const Fields& fields) {
    std::vector<unsigned char> out = encodeHeader(fields);
    putArray(out, fields.localSlot.salt);
    return out;
}

std::vector<unsigned char> encodeBody(const Fields& fields) {
    std::vector<unsigned char> out = passwordSlotAad(fields);
    putSealed(out, fields.passwordSlot);
    putArray(out, fields.localSlot.salt);
    putSealed(out, fields.localSlot);
    return out;
}

std::vector<unsigned char> encodeFile(const Fields& fields) {
    std::vector<unsigned char> out = encodeBody(fields);
    putArray(out, fields.mac);
    unsigned char digest[kDigestBytes] = {};
    if (!velqcrypto::sha256(out.data(), out.size(), digest)) {
        return {};
    }
    putBytes(out, digest, sizeof(digest));
    return out;
}

HRESULT parseFile(const unsigned char* data, std::size_t size, Fields& fields) {
    if (size < sizeof(kMagic) + 2 || std::memcmp(data, kMagic, sizeof(kMagic)) != 0) {
        return E_FOREIGN_FILE;
    }
    Reader reader(data + sizeof(kMagic));
    if (reader.u16() != kVersion) {
        return E_FOREIGN_FILE;
    }
    if (size < kFixedBytes) {
        return E_DAMAGED_FILE;
    }
    const std::uint16_t sidBytes = reader.u16();
    if (size != kFixedBytes + sidBytes || !isSidText(reader.position(), sidBytes)) {
        return E_DAMAGED_FILE;
    }
    fields.sid.assign(reinterpret_cast<const char*>(reader.position()), sidBytes);
    reader.skip(sidBytes);
    reader.array(fields.keyId);
    fields.scrypt.log2N = reader.u8();
    fields.scrypt.r = reader.u8();
    fields.scrypt.p = reader.u8();
    if (reader.u8() != kReserved || !isAcceptable(fields.scrypt)) {
        return E_DAMAGED_FILE;
    }
    reader.array(fields.passwordSlot.salt);
    reader.slotSealed(fields.passwordSlot);
    reader.array(fields.localSlot.salt);
    reader.slotSealed(fields.localSlot);
    reader.array(fields.mac);
    unsigned char digest[kDigestBytes] = {};
    const std::size_t covered = size - kDigestBytes;
    if (!velqcrypto::sha256(data, covered, digest) ||
        !velqcrypto::equalConstantTime(digest, data + covered, kDigestBytes)) {
        return E_DAMAGED_FILE;
    }
    return plat::S_OK;
}

}  // namespace velqkeyfile
