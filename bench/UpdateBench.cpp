#include <string>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include "update/Sha256.h"

// The download hashes piece by piece; the reference is the library's own call over the same bytes.
namespace {
constexpr std::size_t pieceBytes = 16 * 1024;
const std::string image(32 * 1024 * 1024, 'i');

void hashingPieces(benchmark::State& state) {
    for (auto _ : state) {
        snipwren::Sha256 hash;
        for (std::size_t at = 0; at < image.size(); at += pieceBytes)
            hash.update(std::string_view(image).substr(at, pieceBytes));
        benchmark::DoNotOptimize(hash.hexDigest());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(image.size()));
}
BENCHMARK(hashingPieces)->Unit(benchmark::kMillisecond);

void bareLibrary(benchmark::State& state) {
    for (auto _ : state) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned length = 0;
        EVP_Digest(image.data(), image.size(), digest, &length, EVP_sha256(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(image.size()));
    state.SetLabel("reference: hashingPieces should stay within 10 %");
}
BENCHMARK(bareLibrary)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
