#include "core/callback_argument.h"

namespace {

callback_argument::any_function erase_type(auto function) {
    return reinterpret_cast<callback_argument::any_function>(function);
}

}  // namespace

callback_argument::callback_argument(void (*f)()) : kind(kind_void), function(f) {}

callback_argument::callback_argument(void (*f)(str const&), str const& a)
    : kind(kind_text), function(erase_type(f)), text1(a) {}

callback_argument::callback_argument(void (*f)(int), int a)
    : kind(kind_number), function(erase_type(f)), number(a) {}

callback_argument::callback_argument(void (*f)(str const&, str const&), str const& a, str const& b)
    : kind(kind_two_texts), function(erase_type(f)), text1(a), text2(b) {}

callback_argument::callback_argument(void (*f)(str const&, int), str const& a, int b)
    : kind(kind_text_and_number), function(erase_type(f)), text1(a), number(b) {}

callback_argument::callback_argument(void (*f)(str const&, str const&, str const&), str const& a,
                                     str const& b, str const& c)
    : kind(kind_three_texts), function(erase_type(f)), text1(a), text2(b), text3(c) {}

callback_argument::callback_argument(void (*f)(unsigned int), unsigned int a)
    : kind(kind_value), function(erase_type(f)), value(a) {}

void callback_argument::call() const {
    switch (kind) {
    case kind_none:
        break;
    case kind_void:
        function();
        break;
    case kind_text:
        reinterpret_cast<void (*)(str const&)>(function)(text1);
        break;
    case kind_number:
        reinterpret_cast<void (*)(int)>(function)(number);
        break;
    case kind_two_texts:
        reinterpret_cast<void (*)(str const&, str const&)>(function)(text1, text2);
        break;
    case kind_text_and_number:
        reinterpret_cast<void (*)(str const&, int)>(function)(text1, number);
        break;
    case kind_three_texts:
        reinterpret_cast<void (*)(str const&, str const&, str const&)>(function)(text1, text2,
                                                                                 text3);
        break;
    case kind_value:
        reinterpret_cast<void (*)(unsigned int)>(function)(value);
        break;
    }
}
