# Every field and every cut, and the bounds that hold on any disk. Emulated machines, builds that are not optimised, and
# the sanitizers of i386 take every so manyth case.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(damage_stride 97)
elseif(DISKACCESS_COVERAGE OR NOT CMAKE_BUILD_TYPE MATCHES "^Rel" OR (CMAKE_CROSSCOMPILING AND DISKACCESS_SANITIZE))
  set(damage_stride 3)
else()
  set(damage_stride 1)
endif()

allocation_test(damage_matrix_test SHARDS 4 COST 10
  damage/bounds_test.cpp
  damage/expectations_test.cpp
  damage/format_fields.cpp
  damage/matrix_disk.cpp
  damage/matrix_test.cpp
  damage/operations.cpp)
target_include_directories(damage_matrix_test PRIVATE ${PROJECT_SOURCE_DIR}/storemng/disk_access/src)
target_compile_definitions(damage_matrix_test PRIVATE DAMAGE_STRIDE=${damage_stride})
if(DISKACCESS_SANITIZE OR CMAKE_CROSSCOMPILING_EMULATOR)
  # A sanitizer and an emulator need address space of their own.
  target_compile_definitions(damage_matrix_test PRIVATE DAMAGE_NO_ADDRESS_LIMIT)
endif()
