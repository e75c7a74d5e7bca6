# 32-bit x86 with g++ of Debian's g++-12-multilib. The programs that it makes run on the machine that makes them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
# The kernel's headers of a 64-bit Debian serve 32-bit programs too, but lie where -m32 does not look.
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
endforeach()
# Packages of this machine are 64 bits wide: none of them serves, so look where there is none.
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
