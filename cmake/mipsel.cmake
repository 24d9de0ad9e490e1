set(mips mipsel)
include(${CMAKE_CURRENT_LIST_DIR}/mips-any.cmake)
