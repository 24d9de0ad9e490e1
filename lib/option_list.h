// The options (TLVs) of a message, in the order in which they were added or met.
//
// A frame may hold hundreds of empty ones: a node that is linked in one direction fits a block of
// 48 bytes on 64-bit machines, too.
#pragma once

#include "lib/str.h"

#include <new>

class option_list {
public:
    struct node {
        node* next;
        int code;
        str value;
    };

    option_list() = default;
    option_list(option_list const&) = delete;
    option_list& operator=(option_list const&) = delete;
    ~option_list() { clear(); }

    void append(int code, str const& value) {
        node* const fresh = new (str::malloc(sizeof(node), true)) node{nullptr, code, value};
        (tail ? tail->next : head) = fresh;
        tail = fresh;
        ++count;
    }

    // The value of the `index`-th option of a code; empty when there are fewer.
    str get(int code, int index) const {
        for (node const* each = head; each; each = each->next) {
            if (each->code == code && index-- == 0) {
                return each->value;
            }
        }
        return str::null;
    }

    void clear() {
        while (node* const first = head) {
            head = first->next;
            first->~node();
            str::free(first);
        }
        tail = nullptr;
        count = 0;
    }

    node* head = nullptr;
    node* tail = nullptr;
    int count = 0;
};
