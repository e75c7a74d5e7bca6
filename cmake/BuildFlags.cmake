# Flags that all of the project's own code is built with: diskaccess_flags(target).

set(DISKACCESS_WARNINGS
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-align -Wcast-qual
  -Wformat=2 -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion
  -Wimplicit-fallthrough -Wundef)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND DISKACCESS_WARNINGS -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
endif()

function(diskaccess_flags target)
  target_compile_options(${target} PRIVATE ${DISKACCESS_WARNINGS})
  if(DISKACCESS_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${DISKACCESS_SANITIZE} -fno-sanitize-recover=all
                                             -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${DISKACCESS_SANITIZE})
  endif()
  if(DISKACCESS_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PUBLIC --coverage)
  endif()
endfunction()
