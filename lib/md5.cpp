// MD5, RFC 1321.
#include "lib/hash.h"
#include "lib/utils.h"

#include <bit>

namespace {

// T of section 3.4: the integer part of 2^32 * abs(sin(i + 1)).
constexpr uint32_t sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

// By how many bits the four steps that each round repeats rotate.
constexpr int rotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// F, G, H and I of section 3.4.
uint32_t mix(int round, uint32_t x, uint32_t y, uint32_t z) {
    switch (round) {
    case 0:
        return (x & y) | (~x & z);
    case 1:
        return (x & z) | (y & ~z);
    case 2:
        return x ^ y ^ z;
    default:
        return y ^ (x | ~z);
    }
}

// Which word of the block each step takes: k in the tables of section 3.4.
int word_index(int round, int step) {
    constexpr int first[] = {0, 1, 5, 0};
    constexpr int stride[] = {1, 5, 3, 7};
    return (first[round] + step % 16 * stride[round]) % 16;
}

}  // namespace

void md5::transform(uint32_t* chain, unsigned char const* block) {
    uint32_t words[16];
    decode_little_endian(words, block);
    uint32_t a = chain[0];
    uint32_t b = chain[1];
    uint32_t c = chain[2];
    uint32_t d = chain[3];
    for (int step = 0; step < 64; ++step) {
        int const round = step / 16;
        uint32_t const sum = a + mix(round, b, c, d) + words[word_index(round, step)] + sines[step];
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, rotations[round][step % 4]);
    }
    chain[0] += a;
    chain[1] += b;
    chain[2] += c;
    chain[3] += d;
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
