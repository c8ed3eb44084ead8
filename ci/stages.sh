# shellcheck shell=bash
# The stages of `check`; sourced.

# Runs a command; what it prints is shown only if it fails.
quietly() {
  local log=build/$1.log
  shift
  local command=$*
  "$@" >"$log" 2>&1 </dev/null || { tail -n 60 "$log" >&2; fail "failed: ${command:0:100} (see $log)"; }
}

# At a low priority: compilers that run beside tests would make the tests' time limits expire on a slow machine.
compile() { nice cmake --build "$@"; }

# One stage's tests at a time, for the same reason.
alone() { flock --close build/tests.lock "$@"; }

# build_and_test PRESET [DIRECTORY [CMAKE-OPTION...]]
build_and_test() {
  local preset=$1 directory=build/${2:-$1}
  shift $(($# > 1 ? 2 : 1))
  quietly "${directory#build/}-configure" cmake --preset "$preset" -B "$directory" "$@"
  quietly "${directory#build/}-build" compile "$directory"
  run_tests "$directory"
}

# run_tests DIRECTORY [CTEST-OPTION...]
run_tests() {
  local directory=$1 log=$1.test.log
  shift
  alone ctest --test-dir "$directory" -j "$((2 * $(nproc)))" --no-tests=error --output-on-failure "$@" \
    >"$log" 2>&1 </dev/null ||
    { grep -av ' Passed \| Start ' "$log" | tail -n 200 >&2; fail "tests failed in $directory (see $log)"; }
  tail -n 3 "$log"
}

# build_and_run_some DIRECTORY LABELS TARGETS PRESET [CMAKE-OPTION...]
# Those targets, and the tests with those labels (a regular expression).
build_and_run_some() {
  local directory=build/$1 labels=$2 preset=$4 targets
  read -ra targets <<<"$3"
  shift 4
  quietly "${directory#build/}-configure" cmake --preset "$preset" -B "$directory" "$@"
  quietly "${directory#build/}-build" compile "$directory" --target "${targets[@]}"
  run_tests "$directory" -L "$labels"
}

stage_quick() {
  build_and_test dev dev -DKT_STRESS_TESTS=OFF -DKT_PACKAGING_TESTS=OFF -DKT_EXAMPLES=OFF -DKT_BENCHMARKS=OFF \
    -DKT_DOCS=OFF
}

stage_dev() {
  build_and_test dev dev -DKT_STRESS_TESTS=ON -DKT_PACKAGING_TESTS=ON -DKT_EXAMPLES=ON -DKT_BENCHMARKS=ON \
    -DKT_DOCS=ON -DKT_PEERS=ON
}

stage_static() {
  build_and_test dev static -DBUILD_SHARED_LIBS=OFF -DKT_STRESS_TESTS=OFF -DKT_BENCHMARKS=OFF
}
stage_asan() { build_and_test asan; }
stage_tsan() { build_and_test tsan; }
# The stage lint reads the tests and programs with clang, and the stage libcxx runs tests compiled with it.
stage_clang() {
  build_and_run_some clang '^(compiler|guide)$' 'ktasync ktasync-metrics document-programs' clang -DKT_PACKAGING_TESTS=OFF
}

stage_libcxx() { build_and_run_some libcxx '^(core|ktasync)$' 'core-tests ktasync-tests' libcxx; }

# The libraries for another processor, and their tests under qemu.
stage_arm64() {
  quietly unpack-arm64 packaging/unpack-arm64 build/arm64-root \
    libspdlog1.10 libspdlog-dev libfmt9 libfmt-dev libgtest-dev libgmock-dev systemtap-sdt-dev \
    libssl3 libssl-dev libncurses6 libncursesw6 libncurses-dev libtinfo6 libc6 libgcc-s1 libstdc++6
  quietly arm64-configure cmake --preset arm64
  quietly arm64-build compile --preset arm64
  quietly arm64 alone tests/tools/arm64-checks build/arm64
  grep ' ran\. (' build/arm64.log
  quietly arm64-packages without_cache nice packaging/test-arm64-packages build/arm64-root
  tail -n 1 build/arm64-packages.log
}

stage_boost() {
  quietly unpack-boost packaging/unpack-boost 1.81 build/boost-1.81
  build_and_run_some boost '^core$' 'core-tests ktasync' dev -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0 \
    -DKT_STRESS_TESTS=OFF -DKT_TOOLS=OFF -DKT_BENCHMARKS=OFF \
    -DBoost_NO_BOOST_CMAKE=ON -DBoost_INCLUDE_DIR="$PWD/build/boost-1.81/usr/include"
  ninja -C build/boost -t deps >build/boost.deps
  grep -q '/boost-1.81/usr/include/boost/' build/boost.deps || fail "that was another Boost (see build/boost.deps)"
  ! grep '^ */usr/include/boost/' build/boost.deps || fail "that was two of Boost (see build/boost.deps)"
}

# tracked_files PATTERN...: sets `files` to those that git tracks. Without any, a check would pass unseen.
tracked_files() {
  local list
  list=$(git ls-files "$@")
  [ -n "$list" ] || fail "git tracks no files like $*"
  mapfile -t files <<<"$list"
}

stage_format() {
  local files
  tracked_files '*.cpp' '*.h'
  quietly format ci/unless-passed whole clang-format 'clang-format*,libclang-cpp*' .clang-format "${files[@]}" \
    -- clang-format --dry-run -Werror "${files[@]}"
  tail -n 1 build/format.log
}

# On groups of files, as a unity build compiles them, but larger ones: most of the time goes into headers. A
# using-declaration counts as used if any file of its group uses it.
stage_lint() {
  local files
  quietly lint-configure cmake --preset clang -B build/lint -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=64 \
    -DKT_PACKAGING_TESTS=OFF
  tracked_files '*.cpp' ':!tests/platform' ':!tests/headers' \
    ':!tests/ktasync/misuse.cpp' ':!tests/random/Fuzz*.cpp' ':!benchmarks/pools' ':!benchmarks/primitives.cpp'
  quietly lint nice ci/unless-passed tidy build/lint "${files[@]}"
  tail -n 1 build/lint.log
}

stage_lock-order() {
  quietly lock-order alone tests/lock-order/check-order build/dev
  tail -n 1 build/lock-order.log
}

stage_abi() {
  quietly exports packaging/abi/check-exports build/dev
  quietly abi packaging/abi/check-abi build/dev
}

stage_reference() {
  quietly reference-build compile build/dev --target reference
  quietly reference docs/reference/check build/dev/docs/reference
  tail -n 2 build/reference.log
}

stage_models() {
  local files
  tracked_files tests/model
  quietly models nice ci/unless-passed whole models 'spin,gcc,gcc-[0-9]*,libc6-dev,python3' "${files[@]}" \
    -- tests/model/check-models
  tail -n 1 build/models.log
}

stage_valgrind() {
  quietly valgrind-configure cmake --preset valgrind
  quietly valgrind-build compile build/valgrind --target exercise faults
  quietly valgrind tests/tools/valgrind-checks build/valgrind
}

# The lines of the core that no test executes.
stage_coverage() {
  quietly coverage-configure cmake --preset coverage
  quietly coverage tests/tools/coverage build/coverage
  grep '^libktthread/src' build/coverage.log
}

# Nothing of the caches gets into the packages.
stage_packages() {
  quietly packages without_cache packaging/test-packages
  grep '^installed: ' build/packages.log
}

# That the benchmarks run and their page can be made; the figures of a run this short say nothing.
stage_benchmarks() {
  quietly bench-smoke benchmarks/run build/dev build/bench-smoke 1 1000
  quietly bench-smoke-report /usr/bin/python3 benchmarks/report --docs build/bench-smoke build/bench-smoke
}

# Takes a quarter of an hour. Earlier runs count, too, until somebody deletes them.
stage_bench() {
  local results runs
  quietly bench-configure cmake --preset release -B build/bench -DKT_PEERS=ON
  quietly bench-build compile build/bench
  results=build/bench-results/$(date +%Y-%m-%d-%H.%M)
  quietly bench benchmarks/run build/bench "$results"
  mapfile -t runs < <(printf '%s\n' build/bench-results/*/ | sort -r)
  quietly bench-report /usr/bin/python3 benchmarks/report "${runs[@]}"
  say "see docs/benchmarks.md; the figures of each repetition are in $results"
}

# try_fuzzing POOL-RUNS LIST-RUNS
try_fuzzing() {
  quietly fuzz-configure cmake --preset fuzz
  quietly fuzz-build compile --preset fuzz
  quietly fuzz tests/random/fuzz build/fuzz "$@"
  grep -E '^KT_SEED|exec_per_sec' build/fuzz.log
}

stage_fuzz() { try_fuzzing 1000 20000; }

# soak PRESET: its stress and random tests, a hundred times as long. A quick check may have left them out of the build.
soak() {
  quietly "$1-configure" cmake --preset "$1" -DKT_STRESS_TESTS=ON
  quietly "$1-build" compile "build/$1"
  quietly "$1-soak" env KT_SCALE=100 ctest --test-dir "build/$1" -L 'stress|random' --no-tests=error \
    -j "$(nproc)" --output-on-failure
  grep -E 'Passed|tests passed' "build/$1-soak.log"
}

stage_soak-dev() { soak dev; }
stage_soak-asan() { soak asan; }
stage_soak-fuzz() { try_fuzzing 100000 2000000; }
stage_soak-models() { tests/model/check-models --long; }
