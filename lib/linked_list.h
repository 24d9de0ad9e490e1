// A doubly linked list in the order of appending, with its nodes in the str pool.
#pragma once

#include "lib/str.h"

#include <new>

template<class T>
class linked_list {
public:
    struct node {
        node* prev;
        node* next;
        T value;
    };

    constexpr linked_list() = default;
    linked_list(linked_list&& other) noexcept
        : head(other.head), tail(other.tail), count(other.count) {
        other.head = other.tail = nullptr;
        other.count = 0;
    }
    linked_list(linked_list const&) = delete;
    linked_list& operator=(linked_list const&) = delete;
    ~linked_list() { clear(); }

    void append(T const& value) {
        node* const fresh = new (str::malloc(sizeof(node), true)) node{tail, nullptr, value};
        (tail ? tail->next : head) = fresh;
        tail = fresh;
        ++count;
    }

    void remove_first() {
        node* const first = head;
        head = first->next;
        (head ? head->prev : tail) = nullptr;
        first->~node();
        str::free(first);
        --count;
    }

    void clear() {
        while (head) {
            remove_first();
        }
    }

    node* head = nullptr;
    node* tail = nullptr;
    int count = 0;
};
