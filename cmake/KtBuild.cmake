# What every library, program and test of this project is built with, so that adding one is one line.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(KT_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})

find_package(Threads REQUIRED)
include(${CMAKE_CURRENT_LIST_DIR}/KtLibcxx.cmake)

if(KT_SANITIZE)
  add_compile_options(-fsanitize=${KT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KT_SANITIZE})
endif()

if(KT_FUZZ)
  # What libFuzzer steers by.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# For code that a forced shutdown unwinds. AddressSanitizer hears of exceptions, but not of forced
# unwinding: the red zones of the frames unwound stay behind and are taken for errors of whoever uses
# the stack next. So such code does without red zones on the stack; the heap is watched all the same.
function(kt_is_unwound_by_force target)
  if(KT_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE --param=asan-stack=0)
  elseif(KT_SANITIZE MATCHES "address")
    target_compile_options(${target} PRIVATE "SHELL:-mllvm -asan-stack=0")
  endif()
endfunction()

# For code that isn't in a library. The checks left out take a third of the compiler's time: a null pointer is found
# without them, too, and what is badly aligned in a library is found there.
function(kt_sanitize_little target)
  if(KT_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment)
  endif()
endfunction()

set(KT_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion)

function(kt_set_warnings target)
  target_compile_options(${target} PRIVATE ${KT_WARNINGS} $<$<BOOL:${KT_WERROR}>:-Werror>)
endfunction()

# For files that the optimiser takes longer for than for everything else, and whose speed hardly matters: those full
# of templates of CLI11 and nlohmann_json. With sanitizers they would take three times as long again.
function(kt_optimise_little)
  set(level -O1)
  if(KT_SANITIZE)
    set(level -O0)
  endif()
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${level};-g1")
endfunction()

# kt_add_library(NAME [ALIAS alias] SOURCES file... [LINKS public-library...] [USES private-library...]
#                and for pkg-config DESCRIPTION text [REQUIRES module...] [LIBS_PRIVATE flag...])
# makes the target NAME and its alias, NAME::NAME if not said, with the headers in include/, and installs them.
function(kt_add_library name)
  cmake_parse_arguments(ARG "" "ALIAS;DESCRIPTION" "SOURCES;LINKS;USES;REQUIRES;LIBS_PRIVATE" ${ARGN})
  if(NOT ARG_ALIAS)
    set(ARG_ALIAS ${name}::${name})
  endif()
  add_library(${name} ${ARG_SOURCES})
  add_library(${ARG_ALIAS} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${name} PUBLIC cxx_std_11)
  target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE ${ARG_USES})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} POSITION_INDEPENDENT_CODE ON)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A call of a library's own function needn't go by way of the program's. Clang's default.
    target_compile_options(${name} PRIVATE -fno-semantic-interposition -fno-plt)
  endif()
  if(BUILD_SHARED_LIBS AND NOT KT_SPDLOG_HEADER_ONLY)
    set(map ${KT_CMAKE_DIR}/exports.map)
    target_link_options(${name} PRIVATE LINKER:--version-script=${map})
    set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${map})
  endif()
  kt_set_warnings(${name})
  if(KT_INSTALL)
    kt_install_library(${name})
    kt_install_pkg_config(${name} "${ARG_DESCRIPTION}" "${ARG_REQUIRES}" "${ARG_LIBS_PRIVATE}")
  endif()
endfunction()

# kt_add_program(NAME SOURCES file... USES library...)
function(kt_add_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_USES})
  kt_set_warnings(${name})
  kt_sanitize_little(${name})
endfunction()
