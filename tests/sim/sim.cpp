// Bytes, and hostile input.
#include "sim/sim.h"

#include "lib/utils.h"

#include <algorithm>

namespace sim {

bytes of(str const& value) {
    return {reinterpret_cast<char const*>(value.cbuffer()), size_t(value.length())};
}

str to_str(bytes const& data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), int(data.size()));
}

bytes hex(std::string const& digits) {
    std::string packed = digits;
    std::erase(packed, ' ');
    return of(utils::hex2bin(to_str(packed)));
}

std::string to_hex(bytes const& data) {
    return of(utils::bin2hex(to_str(data), false));
}

bytes big_endian(unsigned int value, int count) {
    return of(utils::int2str(value, count));
}

testing::AssertionResult same_bytes(char const*, char const*, bytes const& is,
                                    bytes const& wanted) {
    if (is == wanted) {
        return testing::AssertionSuccess();
    }
    auto const first = std::mismatch(is.begin(), is.end(), wanted.begin(), wanted.end()).first;
    return testing::AssertionFailure()
           << to_hex(is) << "\ninstead of\n"
           << to_hex(wanted) << "\ndiffers at byte " << first - is.begin();
}

bytes damaged(bytes const& good, std::minstd_rand& random) {
    bytes data = good;
    for (unsigned int changes = random() % 8; changes > 0; --changes) {
        data[random() % data.size()] = static_cast<char>(random() >> 8);
    }
    size_t const cut = random() % (data.size() + 1);
    unsigned int const kind = random() % 4;
    return kind == 0 ? data.substr(0, cut) : kind == 1 ? data + data.substr(cut) : data;
}

void expect_survives_damage(bytes const& good, std::function<void(bytes const&)> const& feed) {
    unsigned int allocated[2];
    for (unsigned int& each : allocated) {
        std::minstd_rand random(1);
        for (int i = 0; i < 2000; ++i) {
            feed(damaged(good, random));
        }
        each = str::allocated_size;
    }
    EXPECT_EQ(allocated[0], allocated[1]);
}

}  // namespace sim
