// One-shot timers on one global queue, which the main loop serves.
#pragma once

#include "core/callback_argument.h"
#include "core/timestamp.h"
#include "lib/smap.h"

class timeout;

// The armed timers in the order of their due times; equal times in the order of arming.
class timeout_queue : public smultimap<rtimestamp, timeout*> {
public:
    // Milliseconds until the earliest timer is due, never below 0; -1 when none is armed. The
    // flag has no effect.
    int delay(bool) const;
    // Runs the earliest timer, due or not; nothing when none is armed. The timer is idle before
    // its call, which may arm it again, clear other timers or destroy the timer's owner.
    void next();

    static timeout_queue global_queue;
};

class timeout {
public:
    timeout() = default;
    timeout(timeout const& other);  // an armed timer's copy is due at the same time
    timeout& operator=(timeout const&) = delete;
    ~timeout() { clear(); }

    // Arms the timer, which may be armed already, to make `function_call` after `delay` ticks
    // (rtimestamp); at once when that is 0 or less.
    void callback(long long const& delay, callback_argument const& function_call);
    void clear();
    int seconds() const;  // left until due, rounded; 0 when idle

    callback_argument call;
    bool active = false;
    timeout_queue::element* node = nullptr;  // the queue's entry while active

private:
    void enqueue(rtimestamp const& due);
};
