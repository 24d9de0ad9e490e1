// What the fuzz targets share. Each target drives the real handlers in the unit tests' simulated
// world, which begins anew with every input; a failed EXPECT ends the program.
//
// An input is a sequence of steps, so that state machines are walked and not just knocked at:
//   steps are parted by the three bytes <|>
//   first byte of a step: bits 0-2 kind, bits 3-4 variant, bits 5-7 the pause behind it
//   rest: its data
#pragma once

#include "sim/sim.h"

namespace fuzz {

using sim::bytes;

struct step {
    unsigned int kind;
    unsigned int variant;
    unsigned int pause;
    bytes data;
};

// Every target defines these two: what comes before the first step, and one step.
void begin();
void take(step const& each);

// Lets calls of a sort fail from now on; the first byte chooses which.
void fail_some_call(bytes const& choice);
// Overwrites what is at the offset, as far as the data reaches.
bytes patched(bytes const& data, size_t offset, bytes const& part);
unsigned int number(bytes const& data, size_t i);  // one byte; 0 behind the end

}  // namespace fuzz
