#include "lib/hash.h"

#include "lib/hash_block.h"

namespace {

constexpr int length_position = hash_block_size - 8;

str const padding = str('\x80', 1) + str('\0', hash_block_size - 1);

}  // namespace

str hash_words(std::endian order, uint32_t const* words, int count) {
    uint32_t bytes[5];
    size_t const size = size_t(count) * sizeof bytes[0];
    memcpy(bytes, words, size);
    swap_to(order, bytes, count);
    return str(reinterpret_cast<unsigned char const*>(bytes), int(size));
}

str hash_padding(int used) {
    int const end = used < length_position ? length_position : length_position + hash_block_size;
    return padding.leftstr(end - used);
}

str little_endian_digest::encode(uint32_t const* words, int count) {
    return hash_words(std::endian::little, words, count);
}

void little_endian_digest::append(str const& data, block_function& transform) {
    unsigned char const* bytes = data.cbuffer();
    int left = data.length();
    uint32_t const bits = uint32_t(left) << 3;
    bit_count[0] += bits;
    bit_count[1] += (uint32_t(left) >> 29) + (bit_count[0] < bits);

    if (!buffer.empty()) {
        int const missing = hash_block_size - buffer.length();
        int const taken = left < missing ? left : missing;
        buffer.append(bytes, taken);
        bytes += taken;
        left -= taken;
        if (taken < missing) {
            return;
        }
        transform(chain, buffer.cbuffer());
        buffer.clear();
    }
    for (; left >= hash_block_size; left -= hash_block_size) {
        transform(chain, bytes);
        bytes += hash_block_size;
    }
    // A copy: a view would keep the whole of the caller's block in use.
    buffer.append(bytes, left);
}

str little_endian_digest::finish(block_function& transform) {
    str const length = encode(bit_count, 2);
    append(hash_padding(buffer.length()), transform);
    append(length, transform);
    return encode(chain, 4);
}
