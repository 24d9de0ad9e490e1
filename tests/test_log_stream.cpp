#include "sim/sim.h"
#include "tools/log_stream.h"

namespace {

using sim::big_endian;
using sim::bytes;
using sim::lines;

bytes record(unsigned int level, bytes const& text, bytes const& extra) {
    bytes payload = sim::hex("00000002") + big_endian(level, 2) + big_endian(1, 2) +
                    big_endian(unsigned(text.size()), 2) + text;
    if (!extra.empty()) {
        payload += big_endian(2, 2) + big_endian(unsigned(extra.size()), 2) + extra;
    }
    return big_endian(0, 2) + big_endian(unsigned(payload.size()), 2) + payload;
}

// What is read when the stream comes in pieces of that size.
lines items(bytes const& stream, size_t piece) {
    log_stream reader;
    log_record each;
    lines found;
    auto const take = [&](bool at_end) {
        for (;;) {
            auto const result = reader.next(each, at_end);
            bytes const shown = std::to_string(each.level) + " " + sim::of(each.text) + " " +
                                std::to_string(each.extra.length());
            switch (result) {
            case log_stream::need_more:
                return;
            case log_stream::whole_record:
                found.push_back(shown);
                break;
            case log_stream::cut_record:
                found.push_back(shown + " cut");
                break;
            case log_stream::garbage:
                found.push_back("garbage");
                break;
            }
        }
    };
    for (size_t i = 0; i < stream.size(); i += piece) {
        bytes const part = stream.substr(i, piece);
        reader.feed(reinterpret_cast<unsigned char const*>(part.data()), int(part.size()));
        take(false);
    }
    take(true);
    return found;
}

}  // namespace

TEST(log_stream_test, reading_goes_on_behind_a_record_that_was_cut_short) {
    bytes const large = record(9, "large", bytes(6000, '\0'));
    bytes const good = record(2, "good", "xy");
    lines const all = {"9 large 6000", "2 good 2", "9 large 4977 cut", "2 good 2", "2 good 2"};
    bytes const stream = large + good + large.substr(0, 5000) + good + good;
    for (size_t piece : {size_t(100000), size_t(4096), size_t(1000)}) {
        EXPECT_EQ(items(stream, piece), all) << piece;
    }
    EXPECT_EQ(items(good + large.substr(0, 3000), 100000), (lines{"2 good 2", "9 large 2977 cut"}));
    EXPECT_EQ(items("junk" + good, 100000), (lines{"garbage", "2 good 2"}));
}
