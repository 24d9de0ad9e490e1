// smap, sset and smultimap beside the standard library's. In a step's data the first byte is a
// number, the rest a key. Kinds:
//   0 insert   1 insert by default   2 erase a key   3 erase the n-th element   4 look up   5 clear
#include "fuzz/fuzz.h"

#include "lib/smap.h"

#include <set>

using namespace sim;

namespace {

smap<str, int> map;
std::map<bytes, int> map_model;
sset<str> set;
std::set<bytes> set_model;
smultimap<int, int> multimap;
std::multimap<int, int> multimap_model;

void clear() {
    map.clear();
    map_model.clear();
    sset<str> const moved(static_cast<sset<str>&&>(set));
    EXPECT_EQ(moved.count, int(set_model.size()));
    set_model.clear();
    multimap.clear();
    multimap_model.clear();
}

void insert(bytes const& key, int n) {
    map.insert(to_str(key), n);
    map_model[key] = n;
    set.insert(to_str(key));
    set_model.insert(key);
    multimap.insert(n, int(key.size()));
    multimap_model.insert({n, int(key.size())});
}

void erase_key(bytes const& key, int n) {
    EXPECT_EQ(map.erase_key(to_str(key)), map_model.erase(key) == 1);
    while (auto* const found = multimap.find_node(n)) {
        multimap.erase(found);
    }
    multimap_model.erase(n);
}

void erase_nth(int n) {
    auto* each = set.first();
    auto model = set_model.begin();
    for (; each && n > 0; --n, ++model) {
        each = set.next(each);
    }
    if (each) {
        set.erase(each);
        set_model.erase(model);
    }
}

void look_up(bytes const& key, int n) {
    int const* const found = map.find(to_str(key));
    EXPECT_EQ(found ? *found : 0, map_model.count(key) ? map_model[key] : 0);
    auto const* const after = map.after(to_str(key));
    auto const model_after = map_model.upper_bound(key);
    ASSERT_EQ(after != nullptr, model_after != map_model.end());
    EXPECT_TRUE(!after || of(after->key) == model_after->first);
    EXPECT_EQ(set.contains(to_str(key)), set_model.count(key) == 1);
    EXPECT_EQ(multimap.contains(n), multimap_model.count(n) > 0);
}

// The same elements in the same order.
template<class container, class standard, class function>
void expect_same(container const& given, standard const& wanted, function equal) {
    ASSERT_EQ(given.count, int(wanted.size()));
    auto const* each = given.first();
    for (auto const& model : wanted) {
        ASSERT_TRUE(each && equal(*each, model));
        each = given.next(each);
    }
    EXPECT_FALSE(each);
}

}  // namespace

void fuzz::begin() {
    clear();
}

void fuzz::take(step const& each) {
    int const n = static_cast<signed char>(number(each.data, 0));
    bytes const key = each.data.substr(std::min<size_t>(each.data.size(), 1));
    switch (each.kind) {
    case 0: insert(key, n); break;
    case 1:
        ++map.find_or_insert(to_str(key));
        ++map_model[key];
        break;
    case 2: erase_key(key, n); break;
    case 3: erase_nth(n); break;
    case 4: look_up(key, n); break;
    default: clear(); break;
    }
    expect_same(map, map_model,
                [](auto& a, auto& b) { return of(a.key) == b.first && a.value == b.second; });
    expect_same(set, set_model, [](auto& a, auto& b) { return of(a.key) == b; });
    expect_same(multimap, multimap_model, [](auto& a, auto& b) { return a.value == b.second; });
}
