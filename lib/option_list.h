// The options (TLVs) of a message, in the order in which they were added or met.
#pragma once

#include "lib/linked_list.h"

struct message_option {
    int code;
    str value;
};

class option_list : public linked_list<message_option> {
public:
    // The value of the `index`-th option of a code; empty when there are fewer.
    str get(int code, int index) const {
        for (node const* each = head; each; each = each->next) {
            if (each->value.code == code && index-- == 0) {
                return each->value.value;
            }
        }
        return str::null;
    }
};
