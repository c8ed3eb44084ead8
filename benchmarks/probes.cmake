# What the probes cost a task while nobody listens: at most one instruction for each that it passes, which
# are those of its queueing, its start, its end, and of the limit that the pool of one worker is at; two for
# the look whether there is a task to name, where it is queued; and, at three places, up to three for the look
# whether it is a task at all, or an extension's carrier.
find_package(Boost 1.74 REQUIRED)
set(KT_INSTALL OFF)  # not that library
get_target_property(sources ktthread SOURCES)
list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/libktthread/)
kt_add_library(unprobed SOURCES ${sources}
  LINKS ro::ro kterror::kterror Boost::headers Threads::Threads)
target_include_directories(unprobed PUBLIC ${PROJECT_SOURCE_DIR}/libktthread/include)
set_target_properties(unprobed PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
kt_add_program(instructions-unprobed SOURCES instructions.cpp USES unprobed)
add_test(NAME benchmarks.probes
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/count-instructions $<TARGET_FILE:instructions>
          --against $<TARGET_FILE:instructions-unprobed> --most 14)
set_tests_properties(benchmarks.probes PROPERTIES TIMEOUT 300)
