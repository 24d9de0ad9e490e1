set(mips mips)
include(${CMAKE_CURRENT_LIST_DIR}/mips-any.cmake)
