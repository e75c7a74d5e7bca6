# How the AES functions come into the library. They are libcrypto's.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)

# The shared library has functions of these names itself, which pass on to libcrypto's. They look them up under the
# name that libcrypto goes by at run time, the one that the library is linked with.
execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${OPENSSL_CRYPTO_LIBRARY}
                OUTPUT_VARIABLE libcrypto_headers COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "SONAME +([^ \n]+)" soname_line "${libcrypto_headers}")
if(NOT soname_line)
  message(FATAL_ERROR "${OPENSSL_CRYPTO_LIBRARY} is no shared library; configure with -DDISKACCESS_WITH_AES=OFF")
endif()
target_sources(DiskAccess PRIVATE src/aes/aes.cpp)
set_source_files_properties(src/aes/aes.cpp PROPERTIES
  COMPILE_DEFINITIONS DISK_ACCESS_LIBCRYPTO="${CMAKE_MATCH_1}")
target_include_directories(DiskAccess SYSTEM PRIVATE ${OPENSSL_INCLUDE_DIR})
# No reference to libcrypto is left to the linker, but the library needs it.
target_link_libraries(DiskAccess PRIVATE
  -Wl,--push-state,--no-as-needed ${OPENSSL_CRYPTO_LIBRARY} -Wl,--pop-state)

# The static library has none: they would clash with libcrypto's own, as soon as a program needed more of libcrypto
# than these. It brings libcrypto along instead, whose functions the program's calls then reach without a detour, and
# nothing is looked up at run time, which a program without shared libraries could not do.
if(DISKACCESS_BUILD_STATIC)
  target_link_libraries(DiskAccessStatic INTERFACE OpenSSL::Crypto)
endif()
