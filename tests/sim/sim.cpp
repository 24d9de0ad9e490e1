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

std::string dump(bytes const& data) {
    std::string lines;
    for (size_t i = 0; i < data.size(); i += 16) {
        lines += std::to_string(i) + ": " + to_hex(data.substr(i, 16)) + "\n";
    }
    return lines;
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

}  // namespace sim
