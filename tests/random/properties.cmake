find_package(rapidcheck REQUIRED)

# kt_add_random_test(NAME library...): as kt_add_test; KT_SCALE in the environment makes it longer
# (./check soak).
function(kt_add_random_test name)
  kt_add_program(${name} SOURCES ${name}.cpp RapidCheck.cpp USES test_support random_use rapidcheck
    ${ARGN})
  kt_is_unwound_by_force(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS random TIMEOUT 7200)
endfunction()

kt_add_random_test(RandomUseTest)
if(KT_TOOLS)
  kt_add_random_test(ListTest ktsum_parts)
  target_sources(ListTest PRIVATE ListRules.cpp)
  target_compile_definitions(ListTest PRIVATE "KT_KTSUM=\"$<TARGET_FILE:ktsum>\"")
  add_dependencies(ListTest ktsum)
endif()
