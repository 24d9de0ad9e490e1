#include "sim/sim.h"

#include "lib/smap.h"

using containers_test = sim::test;

TEST_F(containers_test, a_map_agrees_with_that_of_the_standard_library) {
    std::minstd_rand random(7);
    smap<int, int> map;
    std::map<int, int> model;
    unsigned int allocated = 0;
    for (int i = 0; i < 4000; ++i) {
        allocated = i < 2000 ? str::allocated_size : allocated;
        int const key = int(random() >> 8) % 50;
        if (random() % 2) {
            model[key] = map.insert(key, i);
        } else {
            EXPECT_EQ(map.erase_key(key), model.erase(key) == 1);
        }
        auto* each = map.first();
        for (auto const& [expected_key, value] : model) {
            ASSERT_TRUE(each && each->key == expected_key && each->value == value);
            each = map.next(each);
        }
        EXPECT_EQ(map.count, int(model.size()));
    }
    EXPECT_EQ(str::allocated_size, allocated) << "what is erased is used again";
}
