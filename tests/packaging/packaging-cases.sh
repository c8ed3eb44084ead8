#!/usr/bin/env bash
# packaging-cases.sh CASE SOURCES BUILD SCRATCH: what is built in BUILD serves a client from outside.
# The case `install` installs it below SCRATCH; each other one builds a client of that.
set -euo pipefail

case=$1 sources=$2 build=$3 scratch=$4
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
installed="$scratch/a prefix"
version=$(cat "$scratch/version" 2>/dev/null || true)
work=$scratch/$case
[ -d "$scratch/static" ] && static=yes || static=no

fail() {
  echo "$case: $*" >&2
  exit 1
}

# Away from the project's sources and build: a client knows only what was installed.
use_consumer() {
  rm -rf "$work"
  mkdir -p "$work"
  cp -r "$here/consumer" "$work/source"
  cd "$work/source"
}

expect_output() {
  local program=$1 expected=$2 actual
  actual=$("$program") || fail "$program ends with $?"
  [ "$actual" = "$expected" ] || fail "$program says '$actual', not '$expected'"
}

expect_clients_to_work() {
  expect_output "$1/core" "built with $version, runs with $version"
  expect_output "$1/async" 42
}

# ask_for COMPONENTS CHECKS: a project that looks for these, and the checks behind that.
ask_for() {
  rm -rf "$work"
  mkdir -p "$work/source"
  cd "$work/source"
  cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.22)
project(asks LANGUAGES CXX)
find_package(ktthread 1.0 REQUIRED COMPONENTS $1)
$2
END
}

# libktasync-metrics is built where prometheus-cpp is found.
need_metrics() { [ -d "$scratch/metrics" ] || { echo "there are no metrics here"; exit 77; }; }

# A copy of what was installed, without its CMake files.
hide_metrics() {
  cp -r "$installed" "$work/without"
  find "$work/without" -name 'ktasync-metricsTargets*' -delete
  installed=$work/without
  rm -rf "$work/build"
}

configure() { cmake -S . -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$installed" "$@" >"$work/log" 2>&1; }

build_with_cmake() {
  configure "$@" || { cat "$work/log"; fail "can't be configured"; }
  cmake --build "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; fail "can't be built"; }
}

use_pkg_config() {
  PKG_CONFIG_PATH=$(dirname "$(find "$installed" -name ktthread.pc)")
  export PKG_CONFIG_PATH LD_LIBRARY_PATH=${PKG_CONFIG_PATH%/pkgconfig}
}

case_install() {
  rm -rf "$scratch"
  mkdir -p "$scratch"
  cmake --install "$build" --prefix "$scratch/first" >"$scratch/log" || fail "can't be installed"
  # What was installed may be moved, to a name with spaces at that.
  mv "$scratch/first" "$installed"
  sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt" >"$scratch/version"
  [ -s "$scratch/version" ] || fail "which version is it?"
  if grep -q '^BUILD_SHARED_LIBS:BOOL=OFF' "$build/CMakeCache.txt"; then mkdir "$scratch/static"; fi
  if grep -q '^KT_PROMETHEUS:BOOL=ON' "$build/CMakeCache.txt"; then mkdir "$scratch/metrics"; fi
  if grep -rlF -e "$sources" -e "$scratch" --include='*.cmake' --include='*.pc' --include='*.h' "$installed"; then
    fail "these files know where they were built or installed first"
  fi
}

case_libraries_are_these() {
  local ending=so.$version
  [ "$static" = no ] || ending=a
  local expected="libktasync.$ending libkterror.$ending libktthread.$ending libro.$ending"
  [ ! -d "$scratch/metrics" ] || expected="libktasync-metrics.$ending $expected"
  local actual
  actual=$(find "$installed" -type f -name "lib*.$ending" -printf '%f\n' | LC_ALL=C sort | paste -sd ' ')
  [ "$actual" = "$expected" ] || fail "installed: $actual"
  [ -z "$(find "$installed" -path '*/include/*' -name 'Platform.h')" ] || fail "headers of the tests"
}

case_licence_is_installed() {
  cmp "$sources/LICENSE" "$installed/share/doc/libktthread/LICENSE" || fail "not the licence"
}

case_programs_run() {
  local program
  for program in ktsum kttop; do
    [ "$("$installed/bin/$program" --version)" = "$program $version" ] || fail "$program"
  done
}

case_cmake_debug() {
  use_consumer
  build_with_cmake -DCMAKE_BUILD_TYPE=Debug
  expect_clients_to_work "$work/build"
}

case_cmake_release() {
  use_consumer
  build_with_cmake -DCMAKE_BUILD_TYPE=Release
  expect_clients_to_work "$work/build"
}

case_cmake_core_alone() {
  use_consumer
  build_with_cmake -DCOMPONENTS=core -DCMAKE_CXX_STANDARD=11
  expect_output "$work/build/core" "built with $version, runs with $version"
}

# The policies are those of an old CMake, and the variables are the client's own.
case_cmake_old_client() {
  rm -rf "$work"
  mkdir -p "$work/source"
  cd "$work/source"
  cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.2)
project(old LANGUAGES CXX)
set(components core)
find_package(ktthread 1.0 REQUIRED COMPONENTS ${components})
if(NOT "${components}" STREQUAL "core")
  message(FATAL_ERROR "components is '${components}'")
endif()
END
  configure || { cat "$work/log"; fail "can't be configured"; }
}

# Here it's another component that needs prometheus-cpp, and that one isn't there.
case_cmake_without_prometheus() {
  use_consumer
  build_with_cmake -DCMAKE_DISABLE_FIND_PACKAGE_prometheus-cpp=ON
  expect_clients_to_work "$work/build"
}

case_cmake_metrics() {
  need_metrics
  use_consumer
  build_with_cmake -DCOMPONENTS='core;async;metrics'
  expect_output "$work/build/metrics" 1
}

# It brings what it needs with it.
case_cmake_metrics_alone() {
  need_metrics
  ask_for metrics 'if(NOT TARGET ktasync::metrics OR NOT TARGET ktasync::ktasync)
  message(FATAL_ERROR "targets are missing")
endif()'
  configure || { cat "$work/log"; fail "can't be configured"; }
}

# An optional component may be missing, for whatever reason, and the others are there.
case_cmake_optional_metrics() {
  ask_for 'core OPTIONAL_COMPONENTS metrics' 'if(NOT TARGET ktthread::ktthread)
  message(FATAL_ERROR "no core")
endif()
if(ktthread_metrics_FOUND OR TARGET ktasync::metrics)
  message(FATAL_ERROR "metrics are said to be there")
endif()'
  configure -DCMAKE_DISABLE_FIND_PACKAGE_prometheus-cpp=ON || { cat "$work/log"; fail "can't be configured"; }
  hide_metrics
  configure || { cat "$work/log"; fail "can't be configured where they aren't installed"; }
}

case_cmake_required_metrics() {
  need_metrics
  ask_for 'core metrics' ''
  expect_refusal "the component metrics needs prometheus-cpp" -DCMAKE_DISABLE_FIND_PACKAGE_prometheus-cpp=ON
  hide_metrics
  expect_refusal "the component metrics isn't installed"
}

# So that a client has it only if it asked for it.
case_only_metrics_need_prometheus() {
  use_pkg_config
  local module library
  for module in ro kterror ktthread ktasync; do
    ! pkg-config --static --cflags --libs $module | grep -i prometheus || fail "$module.pc"
  done
  [ "$static" = no ] || return 0
  for library in libro libkterror libktthread libktasync; do
    ! readelf -d "$LD_LIBRARY_PATH/$library.so" | grep 'NEEDED.*prometheus' || fail "$library.so"
  done
}

case_pkg_config_metrics() {
  need_metrics
  use_consumer
  use_pkg_config
  if [ "$static" = yes ]; then make STATIC=--static metrics; else make metrics; fi >/dev/null || fail "can't be built"
  expect_output ./metrics 1
  [ "$(pkg-config --modversion ktasync-metrics)" = "$version" ] || fail "the version of ktasync-metrics"
  pkg-config --validate ktasync-metrics || fail "ktasync-metrics.pc"
}

# Another prefix, which is searched first, has packages of the platform libraries' names.
case_cmake_other_platform_in_front() {
  use_consumer
  local name
  for name in ro kterror; do
    mkdir -p "$work/other/lib/cmake/$name"
    echo "message(FATAL_ERROR \"another $name\")" >"$work/other/lib/cmake/$name/${name}Config.cmake"
  done
  configure -DCMAKE_PREFIX_PATH="$work/other;$installed" || { cat "$work/log"; fail "can't be configured"; }
}

# expect_refusal TEXT OPTION...
expect_refusal() {
  local text=$1
  shift
  rm -rf "$work/build"
  ! configure "$@" || fail "accepted: $*"
  tr -s ' \n' ' ' <"$work/log" | grep -qF "$text" || { cat "$work/log"; fail "doesn't say: $text"; }
}

case_cmake_refuses() {
  use_consumer
  expect_refusal "requested version \"$((${version%%.*} + 1)).0\"" -DVERSION="$((${version%%.*} + 1)).0"
  expect_refusal 'requested version "0.9"' -DVERSION=0.9
  expect_refusal "ktthread has the components core, async and metrics, and no 'future'" -DCOMPONENTS='core;future'
}

case_make_with_pkg_config() {
  use_consumer
  use_pkg_config
  if [ "$static" = yes ]; then make STATIC=--static >/dev/null; else make >/dev/null; fi || fail "can't be built"
  expect_clients_to_work "$PWD"
  expect_output ./own-spdlog 42
  local module
  for module in ro kterror ktthread ktasync; do
    [ "$(pkg-config --modversion $module)" = "$version" ] || fail "the version of $module"
    pkg-config --validate $module || fail "$module.pc"
  done
}

case_meson() {
  use_consumer
  use_pkg_config
  local prefer=false
  [ "$static" = no ] || prefer=true
  { meson setup -Dprefer_static=$prefer "$work/build" && meson compile -C "$work/build"; } >"$work/log" 2>&1 ||
    { cat "$work/log"; fail "can't be built"; }
  expect_clients_to_work "$work/build"
}

case_subdirectory() {
  rm -rf "$work"
  mkdir -p "$work"
  cp -r "$here/subdirectory" "$work/source"
  cd "$work/source"
  build_with_cmake -DSOURCES="$sources" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON
  expect_output "$work/build/async" 42
  cmake --install "$work/build" --prefix "$work/installed" >"$work/log"
  local actual
  actual=$(cd "$work/installed" && find . -type f)
  [ "$actual" = ./bin/async ] || fail "it installs $actual"
}

case_examples() {
  rm -rf "$work"
  mkdir -p "$work"
  cp -r "$sources/examples" "$work/source"
  cd "$work/source"
  build_with_cmake -DCMAKE_UNITY_BUILD=ON -DKT_STRESS_TESTS=OFF
  # None at all would be no failure to ctest. Behind a proxy a service that was built here is no other one.
  ctest --test-dir "$work/build" --no-tests=error -LE '^deploy$' --output-on-failure >"$work/log" 2>&1 ||
    { cat "$work/log"; fail "they don't do what they say"; }
}

# first_block KIND: of that kind in the guide's page for beginners.
first_block() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{//!p;/^\`\`\`\$/q}" "$sources/docs/guide/first-program.md"; }

use_guide() {
  rm -rf "$work"
  mkdir -p "$work/source"
  cd "$work/source"
  first_block cmake >CMakeLists.txt
  first_block cpp >service.cpp
}

case_guide_cmake() {
  use_guide
  build_with_cmake
  expect_output "$work/build/service" "$(first_block text)"
}

# That it can be configured; the case `subdirectory` builds the same.
case_guide_add_subdirectory() {
  use_guide
  ln -s "$sources" libktthread
  sed -i 's/^find_package(ktthread.*/add_subdirectory(libktthread)/' CMakeLists.txt
  grep -q '^add_subdirectory' CMakeLists.txt || fail "there is no find_package to replace"
  cmake -S . -B "$work/build" -G Ninja >"$work/log" 2>&1 || { cat "$work/log"; fail "can't be configured"; }
}

case_guide_pkg_config() {
  use_guide
  # The guide's line is for a prefix without spaces.
  ln -s "$installed" "$work/prefix"
  installed=$work/prefix/
  use_pkg_config
  local line
  line=$(grep '^g++ ' "$sources/docs/guide/first-program.md")
  [ "$static" = no ] || line=${line/--libs/--libs --static}
  bash -euc "$line" || fail "can't be built: $line"
  expect_output ./service "$(first_block text)"
}

declare -F "case_$case" >/dev/null || fail "no such case"
"case_$case"
