// Everything before the main loop.
#pragma once

// Reads "--log LEVEL" and "--pipe PATH"; exits with status 1, silently, on anything else.
void parse_command_line(int argc, char const* const* argv);

// Prepares the process and starts every service, in a fixed order. Restarts the device when the
// start-up script had to be repaired.
void start_up();

extern bool daemon_mode;  // close descriptors 0 to 2; false with "--log"
