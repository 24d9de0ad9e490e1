# Debian's g++ with musl in place of glibc.
set(musl /usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-musl/musl-gcc.specs)
# The C driver compiles C++ too, and does not ask for libstdc++, which there is for glibc alone.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER gcc)
set(CMAKE_C_FLAGS_INIT -specs=${musl})

# libstdc++'s headers come first and the kernel's last, behind those of musl. Of glibc's features libstdc++ asks
# by a macro that musl does not have.
execute_process(COMMAND gcc -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
string(CONCAT CMAKE_CXX_FLAGS_INIT
  "-specs=${musl} -D'__GLIBC_PREREQ(a,b)=0' "
  "-isystem /usr/include/c++/${version} -isystem /usr/include/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/c++/${version} "
  "-idirafter /usr/include -idirafter /usr/include/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu")
