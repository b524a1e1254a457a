// VELQCrypt in its batch's call pattern with 1 MiB block calls: one run per iteration (header, 1 MiB
// blocks, a final call of 1 MiB + 16 with the tag), in each direction. Compare bytes_per_second with
// `openssl speed -evp aes-256-gcm -bytes 1048576` on the same machine; both count CPU time, so that other
// load on a shared machine does not skew the comparison. See RESULTS.md.
#include <benchmark/benchmark.h>

#include <vector>

#include "common/VELQCrypt.h"

namespace {

constexpr unsigned long kHeader = 1088;
constexpr unsigned long kBlock = 1UL << 20;
constexpr int kBlocksPerRun = 16;

struct Cipher {
    VELQCrypt* crypt = nullptr;
    Cipher() {
        VELQKey* key = nullptr;
        long result = VELQCrypt::createVELQKey(&key);
        if (result == 0) {
            crypt = new VELQCrypt(*key, result);
        }
        VELQKey::freeVELQKey(&key);
    }
    ~Cipher() { delete crypt; }
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;
};

// One run over `blocks`: header, the blocks but the last, then the last as the final call with its tag.
bool runOnce(VELQCrypt& crypt, bool encrypt, std::vector<unsigned char>& header,
             std::vector<std::vector<unsigned char>>& blocks) {
    auto call = [&](unsigned char* data, unsigned long length, int final) {
        return encrypt ? crypt.encryptStream(data, length, final) : crypt.decryptStream(data, length, final);
    };
    if (call(header.data(), kHeader, 0) != 0) {
        return false;
    }
    for (std::size_t i = 0; i + 1 < blocks.size(); ++i) {
        if (call(blocks[i].data(), kBlock, 0) != 0) {
            return false;
        }
    }
    return call(blocks.back().data(), kBlock + 16, 1) == 0;
}

void prepare(std::vector<unsigned char>& header, std::vector<std::vector<unsigned char>>& blocks) {
    header.assign(kHeader, 0x5a);
    blocks.assign(kBlocksPerRun, std::vector<unsigned char>(kBlock, 0xa5));
    blocks.back().resize(kBlock + 16, 0);
}

void BM_EncryptStream1MiB(benchmark::State& state) {
    Cipher cipher;
    std::vector<unsigned char> header;
    std::vector<std::vector<unsigned char>> blocks;
    prepare(header, blocks);
    for (auto _ : state) {
        if (cipher.crypt == nullptr || !runOnce(*cipher.crypt, true, header, blocks)) {
            state.SkipWithError("encryptStream failed");
            break;
        }
        benchmark::DoNotOptimize(blocks.back().data());
    }
    state.SetBytesProcessed(state.iterations() * kBlocksPerRun * static_cast<std::int64_t>(kBlock));
}
BENCHMARK(BM_EncryptStream1MiB);

void BM_DecryptStream1MiB(benchmark::State& state) {
    Cipher cipher;
    std::vector<unsigned char> header;
    std::vector<std::vector<unsigned char>> blocks;
    prepare(header, blocks);
    for (auto _ : state) {
        // Each iteration decrypts a fresh encryption, so that the tag check runs and passes.
        state.PauseTiming();
        const bool encrypted = cipher.crypt != nullptr && runOnce(*cipher.crypt, true, header, blocks);
        state.ResumeTiming();
        if (!encrypted || !runOnce(*cipher.crypt, false, header, blocks)) {
            state.SkipWithError("decryptStream failed");
            break;
        }
        benchmark::DoNotOptimize(blocks.back().data());
    }
    state.SetBytesProcessed(state.iterations() * kBlocksPerRun * static_cast<std::int64_t>(kBlock));
}
BENCHMARK(BM_DecryptStream1MiB);

}  // namespace

BENCHMARK_MAIN();
