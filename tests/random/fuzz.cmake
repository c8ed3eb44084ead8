# kt_add_fuzz_target(NAME SOURCES file... USES library...): a program that libFuzzer drives.
function(kt_add_fuzz_target name)
  kt_add_program(${name} ${ARGN})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  kt_is_unwound_by_force(${name})
endfunction()

# As tests/support has it for the tests.
target_sources(random_use PRIVATE ../support/Waiting.cpp)

kt_add_fuzz_target(fuzz-pool SOURCES FuzzPool.cpp USES random_use)

find_package(OpenSSL 3 REQUIRED)
set(ktsum ${PROJECT_SOURCE_DIR}/tools/ktsum)
# The parts that it takes, by themselves.
kt_add_fuzz_target(fuzz-list
  SOURCES FuzzList.cpp ListRules.cpp
          ${ktsum}/CheckList.cpp ${ktsum}/Digest.cpp ${ktsum}/Names.cpp
  USES random_use OpenSSL::Crypto)
target_include_directories(fuzz-list PRIVATE ${ktsum})

set(ktserve ${PROJECT_SOURCE_DIR}/examples/ktserve)
kt_add_fuzz_target(fuzz-request
  SOURCES FuzzRequest.cpp ${ktserve}/Root.cpp ${ktserve}/Target.cpp
  USES random_use)
target_include_directories(fuzz-request PRIVATE ${ktserve})
