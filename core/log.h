// The log channel: binary records on a named pipe that the telephony application reads.
//
// A record is one outer item of type 0. An item is a type, a length that counts only the value
// (16 bits each, big-endian), then the value:
//   offset  size  field
//        0     2  0, the outer type
//        2     2  length of all that follows
//        4     4  message kind: 2, a log message
//        8     2  level, 1 (failures) to 9 (packet traces)
//       10     2  1, text item
//       12     2  length of the text
//       14     L  text
//     14+L     2  2, extra item; only when there is extra data
//     16+L     2  length of the extra data
//     18+L     M  extra data
// The lengths keep the low 16 bits only: callers keep messages short.
#pragma once

#include "lib/str_format.h"

// Messages above this level are not sent.
extern int log_level;
extern str log_pipe_path;
extern int log_fd;  // -1 until the pipe could be opened

inline bool log_check_condition(int level) {
    return log_level >= level;
}

// Writes one record with one call. Does not test log_level. Dropped silently when the pipe is
// absent (the next message tries again) or full.
void log_add_message(int level, str const& text, str const& extra);

// Writes a record with a text as of str::sprintf, which is only formatted when log_level admits
// the message. Where an argument is costly to make, the caller tests the level itself.
template<class... arguments>
void log_text(int level, char const* format, arguments const&... values) {
    if (log_check_condition(level)) {
        log_add_message(level, str::sprintf(format, values...), str::null);
    }
}
