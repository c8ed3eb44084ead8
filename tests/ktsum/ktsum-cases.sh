#!/usr/bin/env bash
# ktsum-cases.sh KTSUM CASE
# Runs the program as a user does and compares it with the system's own.
set -uo pipefail

ktsum=$1
work=$(mktemp -d)
trap 'chmod -R u+rwx "$work"; rm -rf "$work"' EXIT
cd "$work" || exit 1
export LC_ALL=C

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

expect_same() { # EXPECTED-FILE ACTUAL-FILE WHAT
  cmp "$1" "$2" >&2 || { diff -a "$1" "$2" | head -n 20 >&2; fail "$3"; }
}

expect_status() { # EXPECTED COMMAND...
  local expected=$1
  shift
  "$@"
  local status=$?
  [ "$status" -eq "$expected" ] || fail "exit status $status instead of $expected: $*"
}

# Waits up to a minute for a condition.
await() {
  for _ in $(seq 600); do
    "$@" && return 0
    sleep 0.1
  done
  fail "never came true: $*"
}

make_tree() {
  mkdir -p tree/sub/deep tree/sub-a tree/empty "tree/with space"
  printf 'hello\n' >tree/plain
  : >tree/nothing
  printf 'a' >"tree/with space/a b"
  printf 'b' >$'tree/new\nline'
  printf 'c' >'tree/back\slash'
  printf 'd' >$'tree/carriage\rreturn'
  printf 'e' >$'tree/not utf-8 \xff\xfe'
  printf 'f' >'tree/*star'
  printf 'g' >tree/-dash
  printf 'h' >tree/sub/file
  printf 'i' >tree/sub-a/file
  printf 'j' >tree/sub.c
  local size
  for size in 1 262143 262144 262145 1000000; do
    head -c "$size" /dev/zero | tr '\0' "${size:0:1}" >"tree/sub/deep/size$size"
  done
  ln -s plain tree/link
  ln -s sub tree/linked-directory
  mkfifo tree/fifo
}

sums_of_tree() { find tree -type f -print0 | sort -z | xargs -0 sha256sum; }

case_tree_is_the_same_with_any_number_of_workers() {
  make_tree
  sums_of_tree >expected
  local threads
  for threads in 1 2 7; do
    expect_status 0 "$ktsum" --threads "$threads" tree >actual
    expect_same expected actual "with $threads workers"
  done
  expect_status 0 "$ktsum" --threads 1 --max-threads 16 tree/ >actual
  expect_same expected actual "with a growing pool"
}

case_arguments_keep_their_order() {
  make_tree
  local files=(tree/sub/file tree/plain ./tree/link tree/plain $'tree/new\nline')
  sha256sum -- "${files[@]}" >expected
  expect_status 0 "$ktsum" "${files[@]}" >actual
  expect_same expected actual "arguments"
}

case_other_algorithms() {
  make_tree
  local pair
  for pair in md5:md5sum sha1:sha1sum sha224:sha224sum sha384:sha384sum sha512:sha512sum \
    SHA256:sha256sum blake2b512:b2sum; do
    find tree -type f -print0 | sort -z | xargs -0 "${pair#*:}" >expected
    expect_status 0 "$ktsum" --algorithm "${pair%:*}" tree >actual
    expect_same expected actual "${pair%:*}"
  done
}

case_standard_input() {
  printf 'abc' | sha256sum >expected
  printf 'abc' | "$ktsum" >actual || fail "no argument"
  expect_same expected actual "no argument"
  printf 'abc' | "$ktsum" - >actual || fail "a dash"
  expect_same expected actual "a dash"
}

case_unreadable_files_are_a_line_each_and_the_rest_goes_on() {
  make_tree
  ln -s nowhere tree/dangling
  expect_status 1 "$ktsum" tree/plain missing $'mis\nsing' tree/dangling tree/sub >actual 2>errors
  find tree/sub -type f -print0 | sort -z | xargs -0 sha256sum tree/plain >expected
  expect_same expected actual "the rest"
  printf 'ktsum: %s: No such file or directory\n' missing '\mis\nsing' tree/dangling >expected
  expect_same expected errors "the lines"
}

case_unreadable_directories_are_a_line_each() {
  make_tree
  # Root may read everything, unless it is kept from it.
  local as_user=()
  if [ "$(id -u)" -eq 0 ]; then
    as_user=(setpriv --bounding-set "-dac_override,-dac_read_search")
  fi
  chmod 000 tree/sub tree/plain
  expect_status 1 "${as_user[@]}" "$ktsum" tree >actual 2>errors
  printf 'ktsum: %s: Permission denied\n' tree/plain tree/sub >expected
  expect_same expected errors "the lines"
  chmod 755 tree/sub
  chmod 644 tree/plain
  [ "$(wc -l <actual)" -eq "$(find tree -type f -not -path 'tree/sub/*' -not -path tree/plain \
    -printf x | wc -c)" ] || fail "the rest"
}

# check_like_sha256sum OPTION... : the same output, messages and status for "list".
check_like_sha256sum() {
  sha256sum -c "$@" list >expected 2>expected-errors
  local status=$?
  expect_status "$status" "$ktsum" --check list "$@" >actual 2>errors
  expect_same expected actual "output with $*"
  sed -i 's/^sha256sum:/ktsum:/' expected-errors
  expect_same expected-errors errors "messages with $*"
}

case_check_of_a_good_list() {
  make_tree
  sums_of_tree >list
  check_like_sha256sum
  check_like_sha256sum --quiet
  check_like_sha256sum --status
}

case_check_like_sha256sum() {
  make_tree
  local good
  good=$(sha256sum <tree/plain | cut -d' ' -f1)
  {
    echo '# a comment'
    echo
    echo "$good  tree/plain"
    echo "$good *tree/plain"
    echo "${good^^}  tree/plain"
    echo "   $good  tree/plain"
    printf '%s  tree/plain\r\n' "$good"
    echo "SHA256 (tree/plain) = $good"
    echo "SHA256(tree/plain)= $good"
    sha256sum $'tree/new\nline' 'tree/back\slash'
    sha256sum --tag $'tree/new\nline'
    echo "$good  tree/sub/file"
    echo "$good  missing"
    echo "SHA1 (tree/plain) = $good"
    echo "${good}0  tree/plain"
    echo "${good%?}  tree/plain"
    echo "${good%?}g  tree/plain"
    echo "\\$good  tree\\qplain"
    echo "$good"
    echo 'nonsense'
    printf '%s  tree/plain' "$good"
  } >list
  local options
  for options in "" --quiet --status --strict --warn --ignore-missing "--quiet --ignore-missing"; do
    # shellcheck disable=SC2086
    check_like_sha256sum $options
  done
}

case_check_fails_on_improper_lines_only_if_strict() {
  make_tree
  { sha256sum tree/plain; echo nonsense; } >list
  check_like_sha256sum
  check_like_sha256sum --strict
}

case_check_with_nothing_to_verify() {
  make_tree
  echo nonsense >list
  expect_status 1 "$ktsum" --check list >actual 2>errors
  [ ! -s actual ] || fail "output"
  grep -q '^ktsum: list: no properly formatted checksum lines found$' errors || fail "message"
  echo "$(sha256sum <tree/plain | cut -d' ' -f1)  missing" >list
  check_like_sha256sum --ignore-missing
}

case_check_of_hostile_lists() {
  # A line of 100 MB, a NUL byte, no line end: a line each that is understood or not.
  local good
  good=$(printf '' | sha256sum | cut -d' ' -f1)
  : >empty
  {
    echo "$good  empty"
    head -c 100000000 /dev/zero | tr '\0' 'a'
    echo
    printf '%s  emp\0ty\n' "$good"
    printf '%s  empty' "$good"
  } >list
  expect_status 0 "$ktsum" --check list >actual 2>errors
  printf 'empty: OK\nempty: OK\n' >expected
  expect_same expected actual "output"
  grep -q '^ktsum: WARNING: 2 lines are improperly formatted$' errors || fail "message"
}

case_check_of_standard_input_and_of_nothing() {
  make_tree
  sha256sum tree/plain | "$ktsum" --check - >actual || fail "standard input"
  echo 'tree/plain: OK' >expected
  expect_same expected actual "standard input"
  expect_status 1 "$ktsum" --check missing-list 2>errors
  grep -q '^ktsum: missing-list: No such file or directory$' errors || fail "missing list"
  expect_status 1 "$ktsum" --check tree 2>errors
  grep -q '^ktsum: tree: Is a directory$' errors || fail "directory: $(cat errors)"
}

case_parts_one_after_the_other_are_the_whole() {
  make_tree
  sums_of_tree >expected
  local n k
  for n in 1 2 3 5 40; do
    for k in $(seq "$n"); do
      expect_status 0 "$ktsum" --shard "$k/$n" tree
    done >actual
    expect_same expected actual "$n parts"
  done
  for k in 1 2; do
    expect_status 0 "$ktsum" --shard "$k/2" --check expected
  done >actual
  sha256sum -c expected >checked
  expect_same checked actual "parts of a list"
}

case_bad_usage_is_2_and_says_why() {
  touch file
  local usage
  for usage in --nonsense "--threads 0 file" "--threads x file" "--threads 4 --max-threads 2 file" \
    "--max-threads -1 file" "--shard 0/2 file" "--shard 3/2 file" "--shard 1 file" \
    "--shard 1/x file" "--shard -1/2 file" "--algorithm nonsense file" "--check list file" \
    "--quiet file" "--shard 1/2 --check -" "--algorithm"; do
    # shellcheck disable=SC2086
    expect_status 2 "$ktsum" $usage >output 2>errors
    [ ! -s output ] || fail "output of: $usage"
    [ -s errors ] || fail "no message: $usage"
  done
}

case_help_is_0() {
  expect_status 0 "$ktsum" --help >output
  grep -q -- --max-threads output || fail "the options are not there"
}

case_version_is_told() {
  expect_status 0 "$ktsum" --version >output
  grep -Eqx 'ktsum [0-9]+[.][0-9]+[.][0-9]+' output || fail "$(cat output)"
}

case_trace_has_a_slice_for_each_file() {
  make_tree
  sums_of_tree >expected
  expect_status 0 "$ktsum" --trace trace tree >actual
  expect_same expected actual "the sums"
  python3 - "$(wc -l <expected)" <<'PYTHON' || fail "the trace"
import json
import sys

events = json.load(open("trace"))
slices = [event for event in events if event["ph"] == "X"]
assert len(slices) == int(sys.argv[1]), len(slices)
assert {event["args"]["outcome"] for event in slices} == {"done"}
lanes = {event["tid"] for event in events if event["name"] == "thread_name"}
assert {event["tid"] for event in slices} == lanes
PYTHON
  expect_status 1 "$ktsum" --trace no/such/folder tree >actual 2>errors
  grep -qx "ktsum: the trace 'no/such/folder' can't be written" errors || fail "the error"
  [ ! -s actual ] || fail "sums without a trace"
}

case_report_goes_to_standard_error() {
  make_tree
  sums_of_tree >expected
  expect_status 0 "$ktsum" --report tree >actual 2>report
  expect_same expected actual "the sums"
  local files
  files=$(wc -l <expected)
  grep -q "^tasks:      $files$" report || fail "tasks"
  local bytes
  bytes=$(find tree -type f -printf '%s\n' | awk '{ sum += $1 } END { print sum }')
  grep -q "^bytes:      $bytes (" report || fail "bytes"
  grep -Eq '^wall time:  [0-9.]+ (us|ms|s)$' report || fail "wall time"
  grep -Eq '^throughput: [0-9.]+ .?i?B/s$' report || fail "throughput"
  grep -Eq '^workers:    [1-9][0-9]* at most$' report || fail "workers"
  grep -Eq '^waiting:    .* median, .* 95th percentile, .* longest$' report || fail "waiting"
}

case_full_disk_is_an_error() {
  make_tree
  expect_status 1 "$ktsum" tree >/dev/full 2>errors
  grep -q '^ktsum: write error: No space left on device$' errors || fail "$(cat errors)"
  expect_status 1 "$ktsum" --version >/dev/full 2>errors
  grep -q '^ktsum: write error: No space left on device$' errors || fail "$(cat errors)"
}

case_closed_pipe_ends_it_quietly() {
  seq 5000 | xargs touch
  { "$ktsum" . 2>errors; echo $? >status; } | head -n 1 >/dev/null
  [ ! -s errors ] || fail "it said: $(cat errors)"
  [ "$(cat status)" -eq 141 ] || fail "exit status $(cat status)"
  (trap '' PIPE; "$ktsum" . 2>errors | head -n 1 >/dev/null)
  [ ! -s errors ] || fail "with the signal ignored, it said: $(cat errors)"
}

has_worker_on() { grep -qs "KTTask: $2" /proc/"$1"/task/*/comm; }

# interrupt_while_on TASK-NAME SIGNAL STATUS ARGUMENT...
interrupt_while_on() {
  local name=$1 signal=$2 expected=$3
  shift 3
  # In a job of its own: a shell starts others with the signal ignored.
  set -m
  "$ktsum" "$@" >output 2>errors &
  local pid=$!
  set +m
  await has_worker_on "$pid" "$name"
  kill -s "$signal" "$pid"
  wait "$pid"
  local status=$?
  [ "$status" -eq "$expected" ] || fail "exit status $status instead of $expected: $(cat errors)"
  grep -Eq '^ktsum: interrupted after [0-9]+ files, .* read in ' errors || fail "$(cat errors)"
  [ "$(wc -l <errors)" -eq 1 ] || fail "more than a line: $(cat errors)"
}

case_interrupt_asks_the_tasks_to_stop() {
  ln -s /dev/zero endless
  touch first
  interrupt_while_on endless INT 130 first endless
  sha256sum first >expected
  expect_same expected output "what was done before"
}

case_interrupt_cuts_off_a_read_that_never_returns() {
  mkfifo fifo
  exec 9<>fifo
  interrupt_while_on fifo INT 130 fifo
}

case_interrupt_cuts_off_an_open_that_never_returns() {
  mkfifo fifo
  interrupt_while_on fifo TERM 143 fifo
}

case_progress_is_shown_on_a_terminal_only() {
  head -c 1500000000 /dev/zero >big
  script -qec "'$ktsum' --algorithm sha512 big" typescript >/dev/null
  grep -Eaq 'files, .* of 1\.4 GiB, .*/s, .* left, [0-9]+ of [0-9]+ workers busy' typescript ||
    fail "$(cat typescript)"
  "$ktsum" big 2>errors >/dev/null
  [ ! -s errors ] || fail "not silent: $(cat errors)"
}

case_big_directory() {
  # In memory where there is such a place: some file systems take a minute for that many files.
  local fast
  if fast=$(mktemp -d -p /dev/shm 2>/dev/null); then
    rm -rf "$work"
    work=$fast
    cd "$work" || exit 1
  fi
  mkdir big
  (cd big && seq 200000 | xargs touch)
  expect_status 0 "$ktsum" big >actual
  [ "$(wc -l <actual)" -eq 200000 ] || fail "$(wc -l <actual) lines"
  sort -c -k2 actual || fail "not in order"
  expect_status 0 "$ktsum" --check actual --quiet >output
  [ ! -s output ] || fail "$(head output)"
}

case_many_short_runs_end() {
  make_tree
  sums_of_tree >expected
  local i
  for i in $(seq 150); do
    expect_status 0 "$ktsum" --threads $((i % 3 + 1)) --max-threads $((i % 5 + 3)) tree >actual
    expect_same expected actual "run $i"
  done
}

declare -F "case_$2" >/dev/null || fail "no such case: $2"
"case_$2"
