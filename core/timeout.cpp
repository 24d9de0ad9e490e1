#include "core/timeout.h"

constinit timeout_queue timeout_queue::global_queue;

timeout::timeout(timeout const& other) : call(other.call) {
    if (other.active) {
        enqueue(other.node->key);
    }
}

void timeout::enqueue(rtimestamp const& due) {
    active = true;
    node = timeout_queue::global_queue.insert(due, this);
}

void timeout::callback(long long const& delay, callback_argument const& function_call) {
    clear();
    rtimestamp due = rtimestamp::now();
    if (delay > 0) {
        due.ticks += delay;
    }
    enqueue(due);
    call = function_call;
}

void timeout::clear() {
    if (active) {
        timeout_queue::global_queue.erase(node);
        active = false;
        node = nullptr;
    }
}

int timeout::seconds() const {
    return active ? rtimestamp::ticks2s(node->key - rtimestamp::now()) : 0;
}

int timeout_queue::delay(bool) const {
    element const* const earliest = first();
    if (!earliest) {
        return -1;
    }
    int const ms = rtimestamp::ticks2ms(earliest->key - rtimestamp::now());
    return ms < 0 ? 0 : ms;
}

void timeout_queue::next() {
    element* const earliest = first();
    if (!earliest) {
        return;
    }
    timeout& timer = *earliest->value;
    callback_argument const call = timer.call;
    timer.clear();
    call.call();
}
