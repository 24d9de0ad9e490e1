// MD5, RFC 1321. Every step waits for the one before it: what counts is the length of that chain,
// not the number of operations.
#include "lib/hash.h"
#include "lib/hash_block.h"
#include "lib/utils.h"

namespace {

using u32 = uint32_t;

// The integer part of 2^32 * abs(sin(i + 1)), section 3.4.
constexpr u32 sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

// Where a round begins in the block, how far it goes on, and by how much its steps rotate.
struct round_plan {
    u32 const* sines;
    int word;
    int stride;
    int rotation[4];
};

// A sum of what is known before `b`, the latest word. The compiler would order the additions in its
// own way and lengthen the chain.
inline u32 ready(u32 sum) {
    asm("" : "+r"(sum));
    return sum;
}

// Sixteen operations of the form a = b + ((a + mix(b, c, d) + word + sine) <<< rotation); `mix`
// adds its function to the sum that it is given.
template<class function>
[[gnu::always_inline]] inline void round(u32 (&chain)[4], hash_block const& block,
                                         round_plan const& plan, function mix) {
    auto const step = [&](u32 a, u32 b, u32 c, u32 d, int i) {
        u32 const word = block.words[(plan.word + i * plan.stride) & 15];
        return b + std::rotl(mix(ready(a + word + plan.sines[i]), b, c, d), plan.rotation[i & 3]);
    };
    auto [a, b, c, d] = chain;
    HASH_UNROLLED
    for (int i = 0; i < 16; i += 4) {
        a = step(a, b, c, d, i);
        d = step(d, a, b, c, i + 1);
        c = step(c, d, a, b, i + 2);
        b = step(b, c, d, a, i + 3);
    }
    chain[0] = a;
    chain[1] = b;
    chain[2] = c;
    chain[3] = d;
}

}  // namespace

void md5::transform(uint32_t* chain, unsigned char const* bytes) {
    hash_block const block(bytes, std::endian::little);
    u32 now[4] = {chain[0], chain[1], chain[2], chain[3]};
    round(now, block, {sines, 0, 1, {7, 12, 17, 22}},
          [](u32 sum, u32 b, u32 c, u32 d) { return sum + (d ^ (b & (c ^ d))); });
    // (b & d) | (c & ~d): no bit is in both, so they can be added one by one, `b` last.
    round(now, block, {sines + 16, 1, 5, {5, 9, 14, 20}},
          [](u32 sum, u32 b, u32 c, u32 d) { return ready(sum + (c & ~d)) + (b & d); });
    round(now, block, {sines + 32, 5, 3, {4, 11, 16, 23}},
          [](u32 sum, u32 b, u32 c, u32 d) { return sum + (b ^ (c ^ d)); });
    round(now, block, {sines + 48, 0, 7, {6, 10, 15, 21}},
          [](u32 sum, u32 b, u32 c, u32 d) { return sum + (c ^ (b | ~d)); });
    for (int i = 0; i < 4; ++i) {
        chain[i] += now[i];
    }
}

str md5::final() {
    return utils::bin2hex(final_bin(), false);
}

str auth_md5(str const& data) {
    md5 digest;
    digest.update(data);
    return digest.final();
}

str auth_md5_bin(str const& data) {
    md5 digest;
    digest.update(data);
    return digest.final_bin();
}
