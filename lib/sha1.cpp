// SHA-1, FIPS 180-4, 6.1.
#include "lib/hash.h"
#include "lib/hash_block.h"

namespace {

using u32 = uint32_t;

constexpr u32 initial_chain[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};

// Twenty of the eighty steps. The message schedule needs the last sixteen words only.
template<class function>
[[gnu::always_inline]] inline void round(u32 (&chain)[5], u32 (&words)[16], int first, u32 constant,
                                         function mix) {
    auto [a, b, c, d, e] = chain;
    HASH_UNROLLED
    for (int t = first; t < first + 20; ++t) {
        u32& word = words[t & 15];
        if (t >= 16) {
            word ^= words[(t - 3) & 15] ^ words[(t - 8) & 15] ^ words[(t - 14) & 15];
            word = std::rotl(word, 1);
        }
        u32 const next = std::rotl(a, 5) + mix(b, c, d) + e + word + constant;
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    u32 const result[] = {a, b, c, d, e};
    memcpy(chain, result, sizeof chain);
}

void transform(u32 (&chain)[5], unsigned char const* bytes) {
    hash_block block(bytes, std::endian::big);
    u32 now[5];
    memcpy(now, chain, sizeof now);
    auto const parity = [](u32 b, u32 c, u32 d) { return b ^ c ^ d; };
    round(now, block.words, 0, 0x5a827999, [](u32 b, u32 c, u32 d) { return d ^ (b & (c ^ d)); });
    round(now, block.words, 20, 0x6ed9eba1, parity);
    round(now, block.words, 40, 0x8f1bbcdc,
          [](u32 b, u32 c, u32 d) { return (b & c) + (d & (b ^ c)); });
    round(now, block.words, 60, 0xca62c1d6, parity);
    for (int i = 0; i < 5; ++i) {
        chain[i] += now[i];
    }
}

void transform_all(u32 (&chain)[5], unsigned char const* bytes, int size) {
    for (int i = 0; i < size; i += hash_block_size) {
        transform(chain, bytes + i);
    }
}

}  // namespace

str auth_sha1(str const& data) {
    u32 const length = u32(data.length());
    u32 const bit_count[2] = {length >> 29, length << 3};
    int const rest = data.length() % hash_block_size;
    str const end =
        data.rightstr(rest) + hash_padding(rest) + hash_words(std::endian::big, bit_count, 2);

    u32 chain[5];
    memcpy(chain, initial_chain, sizeof chain);
    transform_all(chain, data.cbuffer(), data.length() - rest);
    transform_all(chain, end.cbuffer(), end.length());
    return hash_words(std::endian::big, chain, 5);
}
