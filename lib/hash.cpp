#include "lib/hash.h"

namespace {

constexpr int length_position = hash_block_size - 8;

str const padding = str('\x80', 1) + str('\0', hash_block_size - 1);

}  // namespace

void decode_little_endian(uint32_t* words, unsigned char const* block) {
    for (int i = 0; i < 16; ++i) {
        unsigned char const* const bytes = block + 4 * i;
        words[i] = bytes[0] | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
                   uint32_t(bytes[3]) << 24;
    }
}

str hash_padding(int used) {
    int const end = used < length_position ? length_position : length_position + hash_block_size;
    return padding.leftstr(end - used);
}

str little_endian_digest::encode(uint32_t const* words, int count) {
    str bytes;
    for (int i = 0; i < count; ++i) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<unsigned char>(words[i] >> shift);
        }
    }
    return bytes;
}

void little_endian_digest::append(str const& data, block_function& transform) {
    uint32_t const bits = uint32_t(data.length()) << 3;
    bit_count[0] += bits;
    bit_count[1] += (uint32_t(data.length()) >> 29) + (bit_count[0] < bits);

    str const input = buffer + data;
    int offset = 0;
    for (; input.length() - offset >= hash_block_size; offset += hash_block_size) {
        transform(chain, input.cbuffer() + offset);
    }
    buffer = input.substr(offset);
}

str little_endian_digest::finish(block_function& transform) {
    str const length = encode(bit_count, 2);
    append(hash_padding(buffer.length()), transform);
    append(length, transform);
    return encode(chain, 4);
}
