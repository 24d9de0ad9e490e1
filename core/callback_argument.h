// A plain function together with the arguments to call it with, copied by value. A callback names
// its object by key (an interface name, an index) and looks it up again.
#pragma once

#include "lib/str.h"

class callback_argument {
public:
    enum kind_type : unsigned int {
        kind_none,
        kind_void,
        kind_text,
        kind_number,
        kind_two_texts,
        kind_text_and_number,
        kind_three_texts,
        kind_value,
    };
    using any_function = void (*)();

    callback_argument() = default;
    explicit callback_argument(void (*f)());
    callback_argument(void (*f)(str const&), str const& a);
    callback_argument(void (*f)(int), int a);
    callback_argument(void (*f)(str const&, str const&), str const& a, str const& b);
    callback_argument(void (*f)(str const&, int), str const& a, int b);
    callback_argument(void (*f)(str const&, str const&, str const&), str const& a, str const& b,
                      str const& c);
    callback_argument(void (*f)(unsigned int), unsigned int a);

    void call() const;  // nothing for kind_none

    kind_type kind = kind_none;
    any_function function = nullptr;
    str text1;
    str text2;
    str text3;
    int number = 0;
    unsigned int value = 0;
};
