// Cuts a stream of log records (core/log.h) into records.
//
// The daemon writes a record with one non-blocking write. The pipe takes up to PIPE_BUF bytes
// whole or not at all (POSIX, write), so only a longer record can be cut short by a full pipe; the
// next record then starts in the middle of what the cut one claims to be long.
#pragma once

#include "lib/str.h"

struct log_record {
    int level = 0;
    str text;
    str extra;
};

class log_stream {
public:
    enum result_type {
        need_more,     // no whole record yet
        whole_record,  // `record` was filled
        cut_record,    // `record` holds what there is of one that was cut short
        garbage,       // `skipped` bytes belong to no record
    };

    void feed(unsigned char const* bytes, int count) { pending.append(bytes, count); }
    // The next item. With `at_end` nothing more will be fed, so that a rest is a cut record.
    result_type next(log_record& record, bool at_end);

    int skipped = 0;

private:
    void drop(int count) { pending = pending.substr(count); }

    str pending;
};
