find_package(rapidcheck REQUIRED)

# kt_add_random_test(NAME CASES library...): as kt_add_test, with so many cases of each property;
# KT_SCALE in the environment makes it more (./check soak).
function(kt_add_random_test name cases)
  kt_add_program(${name} SOURCES ${name}.cpp RapidCheck.cpp USES test_support random_use rapidcheck
    ${ARGN})
  target_compile_definitions(${name} PRIVATE KT_CASES=${cases})
  kt_is_unwound_by_force(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS random TIMEOUT 7200)
endfunction()

kt_add_random_test(RandomUseTest 300)
if(KT_TOOLS)
  kt_add_random_test(ListTest 1000 ktsum_parts)
  target_sources(ListTest PRIVATE ListRules.cpp)
  kt_add_random_test(Sha256sumTest 30 ktsum_parts)
  target_compile_definitions(Sha256sumTest PRIVATE "KT_KTSUM=\"$<TARGET_FILE:ktsum>\"")
  add_dependencies(Sha256sumTest ktsum)
endif()
