// The select() loop in which everything after start-up happens.
#pragma once

// One pass: waits until a descriptor is readable or the earliest timer is due, then serves every
// readable descriptor once, or, when none was ready, runs that one timer.
void main_loop_pass();
