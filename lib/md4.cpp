// MD4, RFC 1320.
#include "lib/hash.h"

#include <bit>

namespace {

// What section 3.4 lists for each of the three rounds: a constant, by how many bits the four steps
// that it repeats rotate, and which word of the block each step takes.
struct round_plan {
    uint32_t constant;
    int rotations[4];
    int words[16];
};
constexpr round_plan plans[3] = {
    {0, {3, 7, 11, 19}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
    {0x5a827999, {3, 5, 9, 13}, {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15}},
    {0x6ed9eba1, {3, 9, 11, 15}, {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15}},
};

// F, G and H of section 3.4.
uint32_t mix(int round, uint32_t x, uint32_t y, uint32_t z) {
    switch (round) {
    case 0:
        return (x & y) | (~x & z);
    case 1:
        return (x & y) | (x & z) | (y & z);
    default:
        return x ^ y ^ z;
    }
}

}  // namespace

void md4::transform(uint32_t* chain, unsigned char const* block) {
    uint32_t words[16];
    decode_little_endian(words, block);
    uint32_t a = chain[0];
    uint32_t b = chain[1];
    uint32_t c = chain[2];
    uint32_t d = chain[3];
    for (int step = 0; step < 48; ++step) {
        int const round = step / 16;
        round_plan const& plan = plans[round];
        uint32_t const sum = a + mix(round, b, c, d) + words[plan.words[step % 16]] + plan.constant;
        a = d;
        d = c;
        c = b;
        b = std::rotl(sum, plan.rotations[step % 4]);
    }
    chain[0] += a;
    chain[1] += b;
    chain[2] += c;
    chain[3] += d;
}

str auth_md4_bin(str const& data) {
    md4 digest;
    digest.update(data);
    return digest.final_bin();
}
