// SHA-1, FIPS 180-4, 6.1.
#include "lib/hash.h"
#include "lib/utils.h"

#include <bit>

namespace {

constexpr uint32_t initial_chain[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
constexpr uint32_t constants[4] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

// Ch, Parity, Maj and Parity of 4.1.1.
uint32_t mix(int round, uint32_t x, uint32_t y, uint32_t z) {
    switch (round) {
    case 0:
        return (x & y) ^ (~x & z);
    case 2:
        return (x & y) ^ (x & z) ^ (y & z);
    default:
        return x ^ y ^ z;
    }
}

// The message schedule W, 6.1.2.
void prepare_schedule(uint32_t (&words)[80], str const& message, int offset) {
    for (int t = 0; t < 80; ++t) {
        words[t] = t < 16
                       ? utils::number_at(message, offset + 4 * t, 4)
                       : std::rotl(words[t - 3] ^ words[t - 8] ^ words[t - 14] ^ words[t - 16], 1);
    }
}

void transform(uint32_t (&chain)[5], str const& message, int offset) {
    uint32_t words[80];
    prepare_schedule(words, message, offset);
    auto [a, b, c, d, e] = chain;
    for (int t = 0; t < 80; ++t) {
        int const round = t / 20;
        uint32_t const next =
            std::rotl(a, 5) + mix(round, b, c, d) + e + constants[round] + words[t];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    uint32_t const sums[] = {a, b, c, d, e};
    for (int i = 0; i < 5; ++i) {
        chain[i] += sums[i];
    }
}

}  // namespace

str auth_sha1(str const& data) {
    uint32_t const length = uint32_t(data.length());
    str const message = data + hash_padding(data.length() % hash_block_size) +
                        utils::int2str(length >> 29, 4) + utils::int2str(length << 3, 4);
    uint32_t chain[5];
    memcpy(chain, initial_chain, sizeof chain);
    for (int offset = 0; offset < message.length(); offset += hash_block_size) {
        transform(chain, message, offset);
    }
    str digest;
    for (uint32_t const word : chain) {
        digest += utils::int2str(word, 4);
    }
    return digest;
}
