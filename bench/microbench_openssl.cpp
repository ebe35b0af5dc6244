// OpenSSL's SHA-256, to measure ours against.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <openssl/evp.h>
#include <vector>

static void DigestOpenssl(benchmark::State &state) {
    const std::vector<uint8_t> message(static_cast<size_t>(state.range(0)), 'k');
    EVP_MD *algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    for (auto _ : state) {
        uint8_t digest[EVP_MAX_MD_SIZE];
        EVP_DigestInit_ex2(ctx, algorithm, nullptr);
        EVP_DigestUpdate(ctx, message.data(), message.size());
        EVP_DigestFinal_ex(ctx, digest, nullptr);
        benchmark::DoNotOptimize(digest);
    }
    EVP_MD_CTX_free(ctx);
    EVP_MD_free(algorithm);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DigestOpenssl)->Arg(1 << 10)->Arg(1 << 14)->Arg(1 << 20);
