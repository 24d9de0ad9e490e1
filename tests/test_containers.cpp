#include "sim/sim.h"

#include "lib/smap.h"
#include "lib/utils.h"

using namespace sim;

namespace {

class containers_test : public sim::test {};

using int_map = smap<int, int>;

// "5(3(2 4) 8)"; "-" is no child. Fails when the links do not agree.
std::string shape_of(smap_element const* n) {
    if (!n) {
        return "-";
    }
    EXPECT_TRUE(!n->left || (n->left->left_of == n && !n->left->right_of));
    EXPECT_TRUE(!n->right || (n->right->right_of == n && !n->right->left_of));
    std::string const key = std::to_string(static_cast<int_map::element const*>(n)->key);
    bool const is_leaf = !n->left && !n->right;
    return is_leaf ? key : key + "(" + shape_of(n->left) + " " + shape_of(n->right) + ")";
}

template<class container>
std::string walk(container const& all) {
    std::string text;
    for (auto* each = all.first(); each; each = all.next(each)) {
        text += std::to_string(each->key) + "=" + std::to_string(each->value) + " ";
    }
    return text;
}

}  // namespace

TEST_F(containers_test, erasing_moves_the_predecessor_or_the_only_child_up) {
    using keys = std::vector<int>;
    for (auto const& [inserted, erased, shape] : table<keys, keys, char const*>{
             {{5, 3, 8, 2, 4}, {}, "5(3(2 4) 8)"},
             {{5, 3, 8, 2, 4}, {5}, "4(3(2 -) 8)"},
             {{5, 3, 8, 2, 4}, {5, 4}, "3(2 8)"},
             {{5, 2, 8, 1, 4, 3}, {5}, "4(2(1 3) 8)"},  // The predecessor has a left child.
             {{3, 1, 2}, {3}, "1(- 2)"},
             {{1, 9, 5, 7}, {9}, "1(- 5(- 7))"},
             {{1}, {1}, "-"}}) {
        int_map map;
        for (int const key : inserted) {
            map.insert(key, key);
        }
        for (int const key : erased) {
            EXPECT_TRUE(map.erase_key(key));
            EXPECT_FALSE(map.erase_key(key));
        }
        EXPECT_EQ(shape_of(map.root), shape);
        EXPECT_TRUE(!map.root || !map.root->parent());
        EXPECT_EQ(map.count, int(inserted.size() - erased.size()));
    }
}

TEST_F(containers_test, inserting_a_present_key_replaces_its_node_in_place) {
    for (int const replaced : {5, 3, 8, 2}) {
        int_map map;
        for (int const key : {5, 3, 8, 2, 4}) {
            map.insert(key, 0);
        }
        int_map::element const* const old = map.find_node(replaced);
        EXPECT_NE(map.insert(map.root, replaced, 1), old);
        EXPECT_EQ(shape_of(map.root), "5(3(2 4) 8)");
        EXPECT_EQ(*map.find(replaced), 1);
        EXPECT_EQ(map.count, 5);
    }
}

TEST_F(containers_test, equal_keys_of_a_multimap_keep_the_order_of_insertion) {
    smultimap<int, int> map;
    int value = 0;
    for (int const key : {5, 7, 5, 5, 3, 7, 3}) {
        map.insert(key, value++);
    }
    EXPECT_EQ(walk(map), "3=4 3=6 5=0 5=2 5=3 7=1 7=5 ");
    map.erase(map.first());
    map.erase(map.find_node(5));
    EXPECT_EQ(walk(map), "3=6 5=2 5=3 7=1 7=5 ");
    map.clear();
}

TEST_F(containers_test, many_random_operations_agree_with_the_standard_library) {
    std::minstd_rand random(7);
    int_map map;
    std::map<int, int> model;
    for (int i = 0; i < 20000; ++i) {
        int const key = int(random() >> 8) % 200;
        if (random() % 2) {
            map.insert(key, i);
            model[key] = i;
        } else {
            EXPECT_EQ(map.erase_key(key), model.erase(key) == 1);
        }
        auto const greater = model.upper_bound(key);
        int_map::element const* const after = map.after(key);
        ASSERT_EQ(after ? after->key : -1, greater == model.end() ? -1 : greater->first);
    }
    std::string expected;
    for (auto const& [key, value] : model) {
        expected += std::to_string(key) + "=" + std::to_string(value) + " ";
    }
    EXPECT_EQ(walk(map), expected);
    EXPECT_EQ(map.count, int(model.size()));
}

TEST_F(containers_test, a_chain_of_half_a_million_needs_no_stack) {
    int_map chain;
    int_map::element* last = chain.insert(nullptr, 0, 0);
    for (int i = 1; i < 500000; ++i) {
        last = chain.insert(last, i, i);
    }
    EXPECT_EQ(chain.find_node(499999), last);
    chain.clear_node(chain.next(chain.root));
    EXPECT_EQ(walk(chain), "0=0 ");
    EXPECT_EQ(chain.count, 1);
}

TEST_F(containers_test, sets_are_sorted_and_hold_a_key_once) {
    sset<str> const words = split_set(",b,a,,b,c", ',');
    str text;
    for (auto* each = words.first(); each; each = words.next(each)) {
        text += each->key;
    }
    EXPECT_EQ(text, "abc");
    EXPECT_EQ(words.count, 3);
    EXPECT_TRUE(words.contains("c") && !words.contains(""));
}
