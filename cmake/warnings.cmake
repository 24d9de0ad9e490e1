add_library(basenetd_warnings INTERFACE)
target_compile_options(basenetd_warnings INTERFACE -Wall -Wextra -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(basenetd_warnings INTERFACE
    # Parameters may be named like settings and members, so only shadowed locals count.
    -Wshadow=local
    # It cannot see that a str leaves its ring before its life ends.
    -Wno-dangling-pointer)
endif()
