#include "tools/log_stream.h"

#include "lib/utils.h"

#include <climits>

namespace {

constexpr int header_length = 4;     // type and length of an item
constexpr int preamble_length = 10;  // outer header, message kind, level
constexpr int start_length = 14;     // all that comes before the text
constexpr int atomic_length = PIPE_BUF;

int record_length_at(str const& bytes, int offset) {
    return header_length + int(utils::number_at(bytes, offset + 2, 2));
}

// Whether the bytes at `offset`, as far as they are there, look like the start of a record.
bool record_starts(str const& bytes, int offset) {
    static unsigned char const kind_and_types[start_length] = {0, 0, 0, 0, 0, 0, 0,
                                                               2, 0, 0, 0, 1, 0, 0};
    static bool const is_fixed[start_length] = {true, true, false, false, true, true,  true,
                                                true, true, false, true,  true, false, false};
    for (int i = 0; i < start_length && offset + i < bytes.length(); ++i) {
        if (is_fixed[i] && bytes[offset + i] != kind_and_types[i]) {
            return false;
        }
    }
    bool const lengths_known = bytes.length() - offset >= start_length;
    return !lengths_known || start_length + int(utils::number_at(bytes, offset + 12, 2)) <=
                                 record_length_at(bytes, offset);
}

int find_record_start(str const& bytes, int from) {
    int offset = from;
    while (offset < bytes.length() && !record_starts(bytes, offset)) {
        ++offset;
    }
    return offset;
}

void decode(str const& bytes, log_record& record) {
    record.level = int(utils::number_at(bytes, 8, 2));
    record.text.clear();
    record.extra.clear();
    for (int i = preamble_length; i + header_length <= bytes.length();) {
        int const length = int(utils::number_at(bytes, i + 2, 2));
        (utils::number_at(bytes, i, 2) == 1 ? record.text : record.extra) =
            bytes.substr(i + header_length, length);
        i += header_length + length;
    }
}

}  // namespace

log_stream::result_type log_stream::next(log_record& record, bool at_end) {
    if (pending.empty()) {
        return need_more;
    }
    skipped = find_record_start(pending, 0);
    if (skipped > 0) {
        drop(skipped);
        return garbage;
    }
    if (pending.length() < start_length) {
        if (!at_end) {
            return need_more;
        }
        skipped = pending.length();  // not enough to tell anything
        pending.clear();
        return garbage;
    }
    int const claimed = record_length_at(pending, 0);
    int const available = claimed < pending.length() ? claimed : pending.length();
    int end = available;
    if (claimed > atomic_length) {
        int const next_start = find_record_start(pending.leftstr(available), start_length);
        bool const start_is_whole = next_start + start_length <= available;
        end = start_is_whole ? next_start : available;
    }
    if (end == pending.length() && end < claimed && !at_end) {
        return need_more;
    }
    decode(pending.leftstr(end), record);
    drop(end);
    return end < claimed ? cut_record : whole_record;
}
