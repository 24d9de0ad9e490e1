# Debian's g++ with the uClibc that lab/uclibc has built. Set before: `arch`, the name there; `triplet`, the
# compiler's; `tools`, the prefix of its programs; `headers`, the folder that holds those of libstdc++.
get_filename_component(uclibc ${CMAKE_CURRENT_LIST_DIR}/../build/uclibc-${arch} ABSOLUTE)
if(NOT EXISTS ${uclibc}/complete)
  message(FATAL_ERROR "There is no uClibc for ${arch}: lab/uclibc ${arch} builds it.")
endif()
# The C driver compiles C++ too, and does not ask for libstdc++, which there is for glibc alone.
set(CMAKE_C_COMPILER ${tools}gcc)
set(CMAKE_CXX_COMPILER ${tools}gcc)
execute_process(COMMAND ${tools}gcc -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${tools}gcc -print-file-name=include OUTPUT_VARIABLE own OUTPUT_STRIP_TRAILING_WHITESPACE)

# None of the compiler's own folders, since those of glibc are among them. --sysroot would still find glibc's start
# files. The flags of the two languages are also those that link.
string(CONCAT library
  "-muclibc -nostdinc -isystem ${own} -isystem ${uclibc}/root/usr/include -isystem ${uclibc}/kernel "
  "-static-libgcc -B${uclibc}/root/usr/lib -L${uclibc}/root/usr/lib -L${uclibc}/root/lib")
set(CMAKE_C_FLAGS_INIT "${library}")
# libstdc++'s headers come first, since they include those of the C library by name. Those for one machine alone are in
# the second folder if the compiler is a cross compiler, in the third otherwise.
string(CONCAT CMAKE_CXX_FLAGS_INIT
  "-isystem ${headers}/c++/${version} -isystem ${headers}/c++/${version}/${triplet} "
  "-isystem ${headers}/${triplet}/c++/${version} ${library}")
