// Watches the Ethernet driver's link file and restarts the network when the link comes back.
#pragma once

#include "core/timeout.h"
#include "lib/str.h"

// One poll; arms itself for the next one. `interface` is passed on to it.
void link_monitor(str const& interface);

extern str link_status_text;   // the last reading that was not empty
extern int link_poll_seconds;  // since start
extern timeout link_timer;
