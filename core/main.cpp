#include "core/main_loop.h"
#include "core/start_up.h"

int main(int argc, char** argv) {
    parse_command_line(argc, argv);
    start_up();
    for (;;) {
        main_loop_pass();
    }
}
