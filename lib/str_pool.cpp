// The block pool: size classes whose blocks, header included, are powers of two from 32 bytes to
// 256 KiB. Blocks of a class are kept for reuse and never go back to the system; larger ones do.
#include "lib/str_format.h"

#include <bit>
#include <climits>
#include <cstdlib>
#include <new>

namespace {

constexpr int chunk_size = 16256;  // bytes asked of the system at once
constexpr int large_unit = 32768;  // large blocks are multiples of this

void* system_memory(size_t size) {
    void* const memory = ::malloc(size);
    if (!memory) {
        abort();  // Nothing can go on without memory.
    }
    return memory;
}

int rounded_up(int size) {
    if (size > INT_MAX - large_unit) {
        abort();
    }
    return (size + large_unit - 1) / large_unit * large_unit;
}

}  // namespace

constinit str::block_class str::block_size[block_class_count] = {
    {smallest_block}, {48},    {112},   {240},    {496},           {1008}, {2032}, {4080}, {8176},
    {16368},          {32752}, {65520}, {131056}, {largest_block}, {0},    {0},    {0},    {0},
};
constinit unsigned int str::allocated_size = 0;
constinit int str::large_blocks = 0;

namespace {

// Makes the first of some blocks that lie one behind the other, none of them used so far, the head
// of the list. Only its header is written: memory that is not needed is not touched.
void list_untouched(str::block_class& into, void* memory, int count) {
    str::reference* const first = static_cast<str::reference*>(memory);
    unpoison(first, str::header_size);
    first->capacity = into.size;
    first->untouched = unsigned(count) - 1;
    first->next_free = nullptr;
    into.free_list = first;
}

// The list of a class is empty: one more chunk of blocks for it.
void carve_chunk(str::block_class& empty) {
    int const block_bytes = empty.size + str::header_size;
    int const count = chunk_size > block_bytes ? chunk_size / block_bytes : 1;
    str::allocated_size += unsigned(empty.size);
    empty.carved += count;
    size_t const size = size_t(count) * size_t(block_bytes);
    void* const memory = system_memory(size);
    poison(memory, int(size));
    list_untouched(empty, memory, count);
}

str::reference* take_block(str::block_class& from) {
    if (!from.free_list) {
        carve_chunk(from);
    }
    str::reference* const block = from.free_list;
    if (block->untouched == 0) {
        from.free_list = block->next_free;
    } else {
        list_untouched(from, block->data() + block->capacity, int(block->untouched));
    }
    return block;
}

str::reference* take_large_block(int size) {
    int const capacity = rounded_up(size);
    str::reference* const block =
        static_cast<str::reference*>(system_memory(size_t(capacity) + str::header_size));
    block->capacity = capacity;
    str::allocated_size += unsigned(capacity);
    ++str::large_blocks;
    return block;
}

}  // namespace

int str::find_bin(int size) {
    if (size > largest_block) {
        return block_class_count;
    }
    // With its header a block of class k takes 2^(k+5) bytes.
    return size <= smallest_block ? 0 : std::bit_width(unsigned(size + header_size - 1)) - 5;
}

str::reference* str::get_cstring_static(int size, str* owner) {
    int const bin = find_bin(size);
    reference* const block =
        bin < block_class_count ? take_block(block_size[bin]) : take_large_block(size);
    block->flags = 0;
    block->anchor = owner;
    poison(block->data(), block->capacity);
    unpoison(block->data(), size);
    return block;
}

void str::release_cstring(reference* block) {
    int const bin = find_bin(block->capacity);
    if (bin == block_class_count) {
        unpoison(block->data(), block->capacity);
        ::free(block);
        return;
    }
    poison(block->data(), block->capacity);
    block->anchor = nullptr;
    block->untouched = 0;
    block->next_free = block_size[bin].free_list;
    block_size[bin].free_list = block;
}

void* str::malloc(int size, bool array) {
    reference* const block = get_cstring_static(size, nullptr);
    block->flags = flag_pinned | flag_raw | (array ? unsigned(flag_array) : 0);
    return block->data();
}

void str::free(void* memory) {
    if (memory) {
        release_cstring(static_cast<reference*>(memory) - 1);
    }
}

str str::pool_statistics() {
    str text;
    unsigned int total = 0;
    for (block_class const& each : block_size) {
        total += unsigned(each.size) * unsigned(each.carved);
        text += str::sprintf(" %d/%d", each.size, each.carved);
    }
    return str::sprintf("%u:%s %d", total, text, large_blocks);
}

// Array new and delete come from the pool; scalar ones are not used.
void* operator new[](size_t size) {
    if (size > INT_MAX) {
        abort();
    }
    return str::malloc(int(size), true);
}
void operator delete[](void* memory) noexcept {
    str::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    str::free(memory);
}
