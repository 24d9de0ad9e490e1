// What the digests have in common inside: words of either byte order, and how a message ends.
#pragma once

#include "lib/str.h"

#include <bit>

// The loops of the rounds are written out, except in a build for size.
#ifdef __OPTIMIZE_SIZE__
#define HASH_UNROLLED
#else
#define HASH_UNROLLED _Pragma("GCC unroll 20")
#endif

constexpr int hash_block_size = 64;

// Turns words of the machine's order into words of that order, or back.
inline void swap_to(std::endian order, uint32_t* words, int count) {
    if (order != std::endian::native) {
        for (int i = 0; i < count; ++i) {
            words[i] = __builtin_bswap32(words[i]);
        }
    }
}

// The sixteen words of a block, which may lie at any address.
struct hash_block {
    uint32_t words[16];

    hash_block(unsigned char const* bytes, std::endian order) {
        memcpy(words, bytes, sizeof words);
        swap_to(order, words, 16);
    }
};

// Each word as four bytes; five words at most.
str hash_words(std::endian order, uint32_t const* words, int count);

// What stands between a message, whose last block has `used` bytes, and its length of 8 bytes.
str hash_padding(int used);
