# How the project's own code is built: diskaccess_flags(target), and diskaccess_program_flags(target) for what is the
# programs' alone; and diskaccess_installed(target) for what is installed.

set(DISKACCESS_WARNINGS
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-align -Wcast-qual
  -Wformat=2 -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion
  -Wimplicit-fallthrough -Wundef)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND DISKACCESS_WARNINGS -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
endif()

# What is read may be forged: each build makes it hard to turn an error into more. This is for whatever is built here,
# tests too, so that it is seen to work.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options(-fstack-protector-strong)
check_cxx_compiler_flag(-fcf-protection=full DISKACCESS_CF_PROTECTION) # x86 has it
if(DISKACCESS_CF_PROTECTION)
  add_compile_options(-fcf-protection=full)
endif()
if(NOT DISKACCESS_SANITIZE)
  # The C library checks calls with it where the compiler optimises; sanitizers check more, and are in its way.
  add_compile_options($<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
                      $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# diskaccess_unoptimised(target): for what is compiled more often than it is run.
function(diskaccess_unoptimised target)
  target_compile_options(${target} PRIVATE -O0 -U_FORTIFY_SOURCE)
endfunction()

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

# diskaccess_unity(target): compiles a target's sources together, if DISKACCESS_UNITY asks for it. Two files that use a
# name for different things in their unnamed namespaces cannot be: one of them gets SKIP_UNITY_BUILD_INCLUSION. The
# library itself is always compiled file by file.
function(diskaccess_unity target)
  if(DISKACCESS_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 16)
  endif()
endfunction()

function(diskaccess_program_flags target)
  diskaccess_flags(${target})
  if(DISKACCESS_SANITIZE AND DISKACCESS_BUILD_TESTS)
    # Templates of option tables and JSON: they take clang three times as long to optimise as not to, and tests wait longer
    # for that than for the programs.
    diskaccess_unoptimised(${target})
  endif()
endfunction()

# Lays the build tree out as the installed one, and links for that. CMake would have the loader look in the build tree
# instead, and leave room to change that on installation: an empty element at the list's end, for which the loader looks
# in the folder that the user happens to be in.
function(diskaccess_installed target)
  set_target_properties(${target} PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_BINDIR})
endfunction()
