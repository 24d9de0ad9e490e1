#include "sim/sim.h"

#include "lib/smap.h"

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
             {{5, 3, 8, 2, 4}, {5}, "4(3(2 -) 8)"},
             {{5, 3, 8, 2, 4}, {5, 4}, "3(2 8)"},
             {{5, 2, 8, 1, 4, 3}, {5}, "4(2(1 3) 8)"},  // The predecessor has a left child.
             {{3, 1, 2}, {3}, "1(- 2)"}}) {
        int_map map;
        for (int const key : inserted) {
            map.insert(key, key);
        }
        for (int const key : erased) {
            EXPECT_TRUE(map.erase_key(key));
            EXPECT_FALSE(map.erase_key(key));
        }
        EXPECT_EQ(shape_of(map.root), shape);
        EXPECT_FALSE(map.root->parent());
        for (int const key : inserted) {
            int_map::element const* const old = map.find_node(key);
            EXPECT_TRUE(!old || map.insert(map.root, key, -1) != old) << "a fresh node";
            EXPECT_TRUE(!old || *map.find(key) == -1);
        }
        EXPECT_EQ(shape_of(map.root), shape);
        EXPECT_EQ(map.count, int(inserted.size() - erased.size()));
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
    for (auto const& [key, value] : model) {
        EXPECT_EQ(*map.find(key), value);
    }
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
