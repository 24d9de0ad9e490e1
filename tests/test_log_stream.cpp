#include "sim/sim.h"

#include "core/log.h"
#include "tools/log_stream.h"

using namespace sim;
using log_stream_test = sim::test;

TEST_F(log_stream_test, reading_goes_on_behind_a_record_that_was_cut_short) {
    log_add_message(9, "large", str('\0', 6000));
    log_add_message(2, "good", "xy");
    bytes const large = log_records[0], good = log_records[1];
    bytes const all = "junk" + good + large + large.substr(0, 5000) + good + large.substr(0, 3000);
    for (size_t const piece : {100000, 1000, 100}) {
        log_stream reader;
        log_record each;
        str read;
        for (size_t i = 0; i < all.size(); i += piece) {
            str const part = to_str(all.substr(i, piece));
            reader.feed(part.cbuffer(), part.length());
            while (int const kind = reader.next(each, i + piece >= all.size())) {
                read +=
                    str::sprintf("%d %d %s%d, ", kind, each.level, each.text, each.extra.length());
            }
        }
        EXPECT_EQ(read,
                  "3 0 0, 1 2 good2, 1 9 large6000, 2 9 large4977, 1 2 good2, 2 9 large2977, ");
    }
}
