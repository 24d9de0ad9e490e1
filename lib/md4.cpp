// MD4, RFC 1320.
#include "lib/hash.h"
#include "lib/hash_block.h"

namespace {

using u32 = uint32_t;

// The words of a round: in the four steps of one row, those `columns` behind `rows`.
struct round_plan {
    unsigned char rows[4];
    unsigned char columns[4];
    int rotation[4];
    u32 constant;
};

// Sixteen operations of the form a = (a + mix(b, c, d) + word + constant) <<< rotation.
template<class function>
[[gnu::always_inline]] inline void round(u32 (&chain)[4], hash_block const& block,
                                         round_plan const& plan, function mix) {
    auto const step = [&](u32 a, u32 mixed, int row, int i) {
        u32 const word = block.words[row + plan.columns[i]];
        return std::rotl(a + mixed + word + plan.constant, plan.rotation[i]);
    };
    auto [a, b, c, d] = chain;
    HASH_UNROLLED
    for (int const row : plan.rows) {
        a = step(a, mix(b, c, d), row, 0);
        d = step(d, mix(a, b, c), row, 1);
        c = step(c, mix(d, a, b), row, 2);
        b = step(b, mix(c, d, a), row, 3);
    }
    chain[0] = a;
    chain[1] = b;
    chain[2] = c;
    chain[3] = d;
}

}  // namespace

void md4::transform(uint32_t* chain, unsigned char const* bytes) {
    hash_block const block(bytes, std::endian::little);
    u32 now[4] = {chain[0], chain[1], chain[2], chain[3]};
    round(now, block, {{0, 4, 8, 12}, {0, 1, 2, 3}, {3, 7, 11, 19}, 0},
          [](u32 b, u32 c, u32 d) { return d ^ (b & (c ^ d)); });
    round(now, block, {{0, 1, 2, 3}, {0, 4, 8, 12}, {3, 5, 9, 13}, 0x5a827999},
          [](u32 b, u32 c, u32 d) { return (b & c) | (d & (b | c)); });
    round(now, block, {{0, 2, 1, 3}, {0, 8, 4, 12}, {3, 9, 11, 15}, 0x6ed9eba1},
          [](u32 b, u32 c, u32 d) { return b ^ c ^ d; });
    for (int i = 0; i < 4; ++i) {
        chain[i] += now[i];
    }
}

str auth_md4_bin(str const& data) {
    md4 digest;
    digest.update(data);
    return digest.final_bin();
}
