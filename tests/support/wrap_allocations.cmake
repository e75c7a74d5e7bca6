# wrap_allocations(target): sends what a program allocates and releases through support/allocations.cpp, which the
# program must hold. The operators' mangled names differ with the width of size_t.
function(wrap_allocations target)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(operators _Znwm _ZnwmRKSt9nothrow_t _ZdlPvm)
  else()
    set(operators _Znwj _ZnwjRKSt9nothrow_t _ZdlPvj)
  endif()
  foreach(function IN ITEMS malloc calloc realloc free ${operators} _ZdlPv)
    target_link_options(${target} PRIVATE LINKER:--wrap=${function})
  endforeach()
endfunction()
