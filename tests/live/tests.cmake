# A writer and its readers, by the clock: seconds of each layout.
if(CMAKE_CROSSCOMPILING_EMULATOR OR DISKACCESS_SANITIZE OR DISKACCESS_COVERAGE)
  set(live_seconds 3)
else()
  set(live_seconds 8)
endif()
find_package(Threads REQUIRED)
# Without the watch on system calls, which is for one thread.
add_executable(live_test live/live_test.cpp)
target_link_libraries(live_test PRIVATE test_fixtures test_support Threads::Threads)
target_compile_definitions(live_test PRIVATE LIVE_SECONDS=${live_seconds})
test_flags(live_test)
gtest_discover_tests(live_test DISCOVERY_TIMEOUT 60 PROPERTIES LABELS live_test)
target_sources(recorder_test PRIVATE live/live_recording_test.cpp)
