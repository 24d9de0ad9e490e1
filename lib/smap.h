// Ordered containers on unbalanced binary search trees: smap (one value per key), sset (keys
// alone) and smultimap (several values per key, kept in the order of their insertion).
//
// Nodes come from the str pool and never move, except that inserting an existing key into an smap
// or sset replaces its node. The depth follows the order of insertion, so nothing here recurses.
// A walk that calls out goes by key, since the callee may erase any node:
//   for (auto* e = map.first(); e; e = map.after(key)) { key = e->key; ... }
#pragma once

#include "lib/str.h"

#include <new>

// The links of a node. At most one of right_of and left_of is set; neither at the root.
class smap_element {
public:
    smap_element* left = nullptr;      // smaller keys
    smap_element* right = nullptr;     // keys not less than this one
    smap_element* right_of = nullptr;  // the parent whose right child this is
    smap_element* left_of = nullptr;   // the parent whose left child this is

    smap_element* parent() const { return right_of ? right_of : left_of; }
    smap_element* move_next() const;  // in-order successor, nullptr behind the last
    // Unlinks this node from the tree of `root`; neither destroys nor frees it.
    void erase_node(smap_element** root);
    // Gives this fresh node the place of `old` in the tree of `root`.
    void take_place_of(smap_element* old, smap_element** root);

private:
    void point_parent_at(smap_element* child, smap_element** root);
};

template<class K>
inline int compare_keys(K const& a, K const& b) {
    return a == b ? 0 : a < b ? -1 : 1;
}
inline int compare_keys(str const& a, str const& b) {
    return a.three_way(b);
}

// What the three containers share.
template<class element, class K>
class search_tree {
public:
    element* find_node(element* n, K const& key) const {
        while (n) {
            int const order = compare_keys(key, n->key);
            if (order == 0) {
                return n;
            }
            n = static_cast<element*>(order < 0 ? n->left : n->right);
        }
        return nullptr;
    }
    element* find_node(K const& key) const { return find_node(root, key); }
    bool contains(K const& key) const { return find_node(root, key); }

    element* first() const {
        smap_element* n = root;
        while (n && n->left) {
            n = n->left;
        }
        return static_cast<element*>(n);
    }
    static element* next(element const* n) { return static_cast<element*>(n->move_next()); }
    // The first element whose key is greater than `key`, which need not be present.
    element* after(K const& key) const {
        element* found = nullptr;
        for (element* n = root; n;) {
            bool const greater = key < n->key;
            found = greater ? n : found;
            n = static_cast<element*>(greater ? n->left : n->right);
        }
        return found;
    }

    // Unlinks, destroys and frees one element.
    void erase(element* n) {
        smap_element* top = root;
        n->erase_node(&top);
        root = static_cast<element*>(top);
        destroy(n);
        --count;
    }
    // Erases n and all below it, children first.
    void clear_node(element* n) {
        for (smap_element* each = n; each;) {
            if (each->left || each->right) {
                each = each->left ? each->left : each->right;
                continue;
            }
            smap_element* const parent = each == n ? nullptr : each->parent();
            erase(static_cast<element*>(each));
            each = parent;
        }
    }
    void clear() { clear_node(root); }

    element* root = nullptr;
    int count = 0;

protected:
    template<class... arguments>
    static element* make(arguments const&... values) {
        return new (str::malloc(sizeof(element), true)) element(values...);
    }
    static void destroy(element* n) {
        n->~element();
        str::free(n);
    }

    // Links a fresh node in below n. With `unique_keys` it replaces a node of the same key,
    // else it comes behind all of them.
    template<bool unique_keys>
    element* insert_node(element* n, element* fresh) {
        if (!root) {
            root = fresh;
            count = 1;
            return fresh;
        }
        for (;;) {
            if (unique_keys && fresh->key == n->key) {
                smap_element* top = root;
                fresh->take_place_of(n, &top);
                root = static_cast<element*>(top);
                destroy(n);
                return fresh;
            }
            bool const goes_left = fresh->key < n->key;
            smap_element*& child = goes_left ? n->left : n->right;
            if (!child) {
                child = fresh;
                (goes_left ? fresh->left_of : fresh->right_of) = n;
                ++count;
                return fresh;
            }
            n = static_cast<element*>(child);
        }
    }
};

template<class K, class V>
struct smap_pair : smap_element {
    K key;
    V value{};

    explicit smap_pair(K const& k) : key(k) {}
    smap_pair(K const& k, V const& v) : key(k), value(v) {}
};

template<class K>
struct sset_key : smap_element {
    K key;

    explicit sset_key(K const& k) : key(k) {}
};

template<class K, class V>
class smap : public search_tree<smap_pair<K, V>, K> {
public:
    using element = smap_pair<K, V>;

    constexpr smap() = default;
    smap(smap const&) = delete;
    smap& operator=(smap const&) = delete;
    ~smap() { this->clear(); }

    V* find(K const& key) const {
        element* const n = this->find_node(this->root, key);
        return n ? &n->value : nullptr;
    }
    element* insert(element* n, K const& key, V const& value) {
        return this->template insert_node<true>(n, this->make(key, value));
    }
    V& insert(K const& key, V const& value) { return insert(this->root, key, value)->value; }
    // With a default value, to be filled in place.
    V& insert(K const& key) {
        return this->template insert_node<true>(this->root, this->make(key))->value;
    }
    // The value of the key, after inserting a default one when there is none.
    V& find_or_insert(K const& key) {
        V* const value = find(key);
        return value ? *value : insert(key);
    }
    bool erase_key(K const& key) {
        element* const n = this->find_node(this->root, key);
        if (n) {
            this->erase(n);
        }
        return n;
    }
};

template<class K>
class sset : public search_tree<sset_key<K>, K> {
public:
    using element = sset_key<K>;

    constexpr sset() = default;
    sset(sset const&) = delete;
    sset& operator=(sset const&) = delete;
    sset(sset&& other) noexcept {
        this->root = other.root;
        this->count = other.count;
        other.root = nullptr;
        other.count = 0;
    }
    ~sset() { this->clear(); }

    element* insert(element* n, K const& key) {
        return this->template insert_node<true>(n, this->make(key));
    }
    element* insert(K const& key) { return insert(this->root, key); }
};

// Its destructor leaves the nodes alone: the timer queue outlives the timers at exit.
template<class K, class V>
class smultimap : public search_tree<smap_pair<K, V>, K> {
public:
    using element = smap_pair<K, V>;

    constexpr smultimap() = default;
    smultimap(smultimap const&) = delete;
    smultimap& operator=(smultimap const&) = delete;

    element* insert(element* n, K const& key, V const& value) {
        return this->template insert_node<false>(n, this->make(key, value));
    }
    element* insert(K const& key, V const& value) { return insert(this->root, key, value); }
};
