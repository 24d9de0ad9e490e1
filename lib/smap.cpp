#include "lib/smap.h"

smap_element* smap_element::move_next() const {
    if (right) {
        smap_element* n = right;
        while (n->left) {
            n = n->left;
        }
        return n;
    }
    smap_element const* n = this;
    while (n->right_of) {
        n = n->right_of;
    }
    return n->left_of;
}

void smap_element::point_parent_at(smap_element* child, smap_element** root) {
    if (right_of) {
        right_of->right = child;
    } else if (left_of) {
        left_of->left = child;
    } else {
        *root = child;
    }
}

void smap_element::take_place_of(smap_element* old, smap_element** root) {
    old->point_parent_at(this, root);
    left = old->left;
    right = old->right;
    right_of = old->right_of;
    left_of = old->left_of;
    if (left) {
        left->left_of = this;
    }
    if (right) {
        right->right_of = this;
    }
}

void smap_element::erase_node(smap_element** root) {
    if (left && right) {
        smap_element* predecessor = left;
        while (predecessor->right) {
            predecessor = predecessor->right;
        }
        predecessor->erase_node(root);  // It has no right child: this does not go deeper.
        predecessor->take_place_of(this, root);
    } else {
        smap_element* const child = left ? left : right;
        point_parent_at(child, root);
        if (child) {
            child->right_of = right_of;
            child->left_of = left_of;
        }
    }
    left = right = right_of = left_of = nullptr;
}
