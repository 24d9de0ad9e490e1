// The block functions of OpenSSL have no current name.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "benchmarks/measure.h"
#include "lib/hash.h"

#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>

namespace {

str input(benchmark::State const& state) {
    return str('x', int(state.range(0)));
}

template<str (*digest)(str const&)>
void digest_own(benchmark::State& state) {
    str const data = input(state);
    allocation_meter const meter(state);
    for (auto _ : state) {
        str result = digest(data);
        benchmark::DoNotOptimize(result);
    }
}

template<EVP_MD const* (*algorithm)()>
void digest_evp(benchmark::State& state) {
    str const data = input(state);
    EVP_MD const* const type = algorithm();
    unsigned char result[EVP_MAX_MD_SIZE];
    allocation_meter const meter(state);
    for (auto _ : state) {
        if (!EVP_Digest(data.buffer(), size_t(data.length()), result, nullptr, type, nullptr)) {
            state.SkipWithError("no such digest");
        }
        benchmark::DoNotOptimize(result);
    }
}

// Whole blocks into a ready context: little more than the function of one block.
void blocks_own(benchmark::State& state) {
    str const data = input(state);
    md5 context;
    allocation_meter const meter(state);
    for (auto _ : state) {
        context.update(data);
        benchmark::DoNotOptimize(context);
    }
}

template<class context_type, int (*init)(context_type*),
         int (*update)(context_type*, void const*, size_t)>
void blocks_openssl(benchmark::State& state) {
    str const data = input(state);
    context_type context;
    init(&context);
    allocation_meter const meter(state);
    for (auto _ : state) {
        update(&context, data.buffer(), size_t(data.length()));
        benchmark::DoNotOptimize(context);
    }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(64)->Arg(1024)->Arg(65536);
}

constexpr auto& md5_blocks = blocks_openssl<MD5_CTX, MD5_Init, MD5_Update>;
constexpr auto& sha1_blocks = blocks_openssl<SHA_CTX, SHA1_Init, SHA1_Update>;

BENCHMARK(digest_own<auth_md5_bin>)->Name("MD5/auth_md5_bin")->Apply(sizes);
BENCHMARK(digest_evp<EVP_md5>)->Name("MD5/EVP_Digest")->Apply(sizes);
BENCHMARK(blocks_own)->Name("MD5, whole blocks/md5::update")->Apply(sizes);
BENCHMARK(md5_blocks)->Name("MD5, whole blocks/MD5_Update")->Apply(sizes);
BENCHMARK(digest_own<auth_sha1>)->Name("SHA-1/auth_sha1")->Apply(sizes);
BENCHMARK(digest_evp<EVP_sha1>)->Name("SHA-1/EVP_Digest")->Apply(sizes);
BENCHMARK(sha1_blocks)->Name("SHA-1/SHA1_Update")->Apply(sizes);

}  // namespace
