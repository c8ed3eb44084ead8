find_package(rapidcheck REQUIRED)

# kt_add_random_tests(NAME CASES file... [USES library...]): with so many cases of each property; KT_SCALE
# in the environment makes it more (./check soak).
function(kt_add_random_tests name cases)
  kt_add_tests(${name} random TIMEOUT 7200 RapidCheck.cpp ${ARGN} random_use rapidcheck)
  target_compile_definitions(${name} PRIVATE KT_CASES=${cases})
endfunction()

kt_add_random_tests(random-use-tests 300 RandomUseTest.cpp USES)
if(KT_TOOLS)
  kt_add_random_tests(random-list-tests 1000 ListTest.cpp ListRules.cpp USES ktsum_parts)
  kt_add_random_tests(sha256sum-tests 30 Sha256sumTest.cpp USES ktsum_parts)
  target_compile_definitions(sha256sum-tests PRIVATE "KT_KTSUM=\"$<TARGET_FILE:ktsum>\"")
  add_dependencies(sha256sum-tests ktsum)
endif()
