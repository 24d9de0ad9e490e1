// The process's descriptors: opening and closing them, also when their table gets full.
#pragma once

#include "lib/linked_list.h"

#include <sys/types.h>

namespace descriptors {

// As open() and socket(). When there is no descriptor left, or only one that select() cannot take
// as a socket, those abandoned first are closed and the call is made again. -1 on failure.
int open_file(char const* path, int flags, mode_t mode = 0);
int open_socket(int domain, int type, int protocol);

// Closes a descriptor, if it is open, and forgets its number: a stale one in the set of select()
// would make it fail for ever.
void close(int& fd);

// Leaves a socket open that nobody uses any more, until its place is needed. It hears nobody from
// now on: what strangers queued there would stay in the kernel's memory for good.
void abandon(int socket);

// Lends the spare descriptor as long as it lives: one file can be opened however full the table
// is. Not to be nested.
class spare_lent {
public:
    spare_lent();
    ~spare_lent();
    spare_lent(spare_lent const&) = delete;
    spare_lent& operator=(spare_lent const&) = delete;
};

extern linked_list<int> abandoned;  // in the order of being left
extern int spare;                   // -1: not held

}  // namespace descriptors
