// The process's table of file descriptors, when it gets full.
#pragma once

#include "lib/linked_list.h"

#include <sys/types.h>

namespace descriptors {

// As open() and socket(). When there is no descriptor left, or only one that select() cannot take
// as a socket, those abandoned first are closed and the call is made again. -1 on failure.
int open_file(char const* path, int flags, mode_t mode = 0);
int open_socket(int domain, int type, int protocol);

// Leaves a descriptor open that nobody uses any more, until its place is needed.
void abandon(int fd);

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
