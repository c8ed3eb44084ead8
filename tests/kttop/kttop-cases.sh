#!/usr/bin/env bash
# kttop-cases.sh KTTOP BUSY CASE
# Runs the program as a user does, in a terminal of tmux's, beside a process that does as told.
set -uo pipefail

kttop=$1
busy=$2
work=$(mktemp -d)
server=kttop-test-$$  # tmux's
# Nobody else's process is called so, and it fits into the kernel's 15 bytes.
demo=demo$$
export LC_ALL=C.utf8 TZ=UTC TERM=xterm
unset NO_COLOR
cd "$work" || exit 1

# The shell of a terminal that ends dies too, and the kernel then has its group continue. That takes back the stop
# which LeakSanitizer waits for at the end of a process: for ever. So nothing is to end by itself then.
end_server() {
  local shell
  for shell in $(tmux -L "$server" list-panes -a -F '#{pane_pid}' 2>/dev/null); do
    pkill -KILL -P "$shell"
  done
  tmux -L "$server" kill-server 2>/dev/null
}

clean_up() {
  end_server
  local jobs
  jobs=$(jobs -p)
  # One word each.
  # shellcheck disable=SC2086
  [ -z "$jobs" ] || kill $jobs 2>/dev/null
  wait
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  echo "FAILED: $*" >&2
  [ ! -e started ] || screen >&2
  tail -n 3 errors >&2 2>/dev/null
  exit 1
}

# Waits up to a minute for a condition.
await() {
  for _ in $(seq 1200); do
    "$@" && return 0
    sleep 0.05
  done
  fail "never came true: $*"
}

# The process to look at: start_demo WORKERS MAX-WORKERS, then tell COMMAND, which waits until it is done.
start_demo() {
  mkfifo commands
  ln -s "$busy" "$demo"
  "./$demo" "$1" "$2" <commands >answers 2>&1 &
  pid=$!
  exec 3>commands
  told=0
  await is_called "$pid" "$demo"
}

# The process has become the program: it is no longer the shell's copy of itself.
is_called() { [ "$(cat "/proc/$1/comm")" = "$2" ]; }

answered() { [ "$(grep -c '^done$' answers)" -ge "$told" ]; }

tell() {
  echo "$*" >&3
  told=$((told + 1))
  await answered
}

# By a command: closing the pipe would not do, as kttop and tmux have its other end open as well.
end_demo() {
  echo quit >&3
  wait "$pid"
}

# A server that was told to end still answers for a moment.
new_server() {
  end_server
  server+=+
}

# show COLUMNS LINES ARGUMENT...: kttop on a screen of that size.
show() {
  local columns=$1 lines=$2
  shift 2
  # The shell in the terminal expands $?.
  # shellcheck disable=SC2016
  tmux -u -L "$server" -f /dev/null new-session -d -x "$columns" -y "$lines" \
    "$(printf '%q ' "$kttop" "$@")"' 2>errors; echo $? >status; echo the shell goes on; exec sleep 600'
  : >started
}

screen() { tmux -L "$server" capture-pane -p; }
screen_has() { screen | grep -q -- "$1"; }
screen_lacks() { ! screen_has "$1"; }
press() { tmux -L "$server" send-keys "$@"; }
resize() { tmux -L "$server" resize-window -x "$1" -y "$2"; }

expect_on_screen() {
  local text
  for text in "$@"; do
    await screen_has "$text"
  done
}

status_is() { [ "$(cat status 2>/dev/null)" = "$1" ]; }

# That kttop has ended with this status, and has given the terminal back.
expect_end() {
  await test -s status
  status_is "$1" || fail "exit status $(cat status) instead of $1"
  expect_on_screen 'the shell goes on'
}

# expect_complaint STATUS TEXT ARGUMENT...: without a screen, one line.
expect_complaint() {
  local expected=$1 text=$2
  shift 2
  "$kttop" "$@" >output 2>errors </dev/null
  local status=$?
  [ "$status" -eq "$expected" ] || fail "exit status $status instead of $expected: $*"
  grep -qF -- "$text" errors || fail "no '$text' for: $*"
  [ -s output ] && fail "output for: $*"
  [ "$expected" -eq 2 ] || [ "$(wc -l <errors)" -eq 1 ] || fail "more than one line for: $*"
}

case_screen_follows_the_pool() {
  start_demo 4 40
  show 80 24 "$pid" --interval 0.1
  expect_on_screen "^kttop: $demo, pid $pid  *[0-9:]*$" '^4 workers: 0 running, 4 sleeping, 0 idle, 0 new' \
    'TID STATE    TASK     CPU% WAIT%     TIME+   SINCE  VOL' 'no task seen$'
  tell run load 2
  tell spin image-resize 1
  expect_on_screen '^4 workers: 3 running, 1 sleeping' '^ *[0-9]* running  load  ' '^ *[0-9]* running  image-r ' \
    '^last .*: load [0-9]*%, image-r [0-9]*%'
  tell grow 20
  expect_on_screen '^24 workers: 3 running, 21 sleeping' '^1-17 of 24 by STATE'
  tell shrink 3
  expect_on_screen '^21 workers: 3 running, 18 sleeping' '^1-17 of 21 by STATE'
  tell release load
  tell release image-resize
  expect_on_screen '^21 workers: 0 running, 21 sleeping' '^running  *0 ▁*▂*[▁▂▃▄▅▆▇█]*$'
  end_demo
  expect_on_screen "^process $pid ($demo) has ended; q quits"
  press q
  expect_end 3
  [ "$(cat errors)" = "kttop: process $pid ($demo) has ended" ] || fail "the last word: $(cat errors)"
}

case_keys_do_what_the_help_says() {
  start_demo 24 24
  tell run image-resize 2
  tell run load 3
  show 80 24 "$demo" --interval 0.1
  expect_on_screen '^1-17 of 24 by STATE '
  press s
  expect_on_screen '^1-17 of 24 by TASK '
  press r
  expect_on_screen '^1-17 of 24 by TASK reversed '
  press S S
  expect_on_screen '^1-17 of 24 by TID '
  press Down
  expect_on_screen '^2-18 of 24 '
  press NPage
  expect_on_screen '^8-24 of 24 '
  press PPage
  expect_on_screen '^1-17 of 24 '
  press End
  expect_on_screen '^8-24 of 24 '
  press Home
  expect_on_screen '^1-17 of 24 '
  press / I m a
  expect_on_screen '^filter: Ima_  (Enter keeps it, Esc clears it)'
  await screen_lacks load.*futex
  press Enter
  expect_on_screen "^1-2 of 2 with 'Ima' by TID"
  press Escape
  expect_on_screen '^1-17 of 24 by TID '
  press h
  expect_on_screen '^any other key goes back' 'the kernel keeps 15 bytes'
  press '?'
  expect_on_screen '^1-17 of 24 by TID '
  press q
  expect_end 0
}

case_pause_stops_the_screen_and_no_more() {
  start_demo 4 4
  show 80 24 "$pid" --interval 0.1 --record samples
  expect_on_screen 'recording [0-9:]*$' '^4 workers: 0 running'
  press Space
  expect_on_screen 'PAUSED [0-9:]*$'
  tell run load 2
  # Samples are taken all the same: one that was taken after the tasks ran is in the file.
  await grep -q '"task":"load"' samples
  screen_has '^4 workers: 0 running' || fail "the screen went on"
  press Space
  expect_on_screen '^4 workers: 2 running'
  press q
  expect_end 0
}

# Of a row whose costly files were not read.
unread='running  tick .* -  *-  *- -$'

case_rows_off_the_page_have_no_stale_figures() {
  start_demo 100 100
  tell pulse tick 100
  show 80 24 "$pid" --interval 0.1
  # Each has been awake since the first sample, which has all.
  expect_on_screen '^1-17 of 100 by STATE' '^last [1-9]'
  await screen_lacks "$unread"
  press Space
  expect_on_screen 'PAUSED'
  press End
  expect_on_screen '^84-100 of 100 ' "$unread"
  press Space
  await screen_lacks PAUSED
  await screen_lacks "$unread"
  # Sorted by what is costly, it takes all of that. Else the last rows would be those without.
  press s s s s s s
  expect_on_screen '^84-100 of 100 by VOL/S'
  await screen_lacks "$unread"
  press q
  expect_end 0
}

case_recordings_are_complete_whatever_is_shown() {
  start_demo 100 100
  tell pulse tick 100
  show 80 24 "$pid" --interval 0.1 --record samples
  expect_on_screen '^1-17 of 100 by STATE' '^last [1-9]'
  press q
  expect_end 0
  [ "$(wc -l <samples)" -gt 5 ] || fail "hardly a sample"
  grep -q '"kernel":"?"' samples && fail "samples without details"
  python3 -c '
import json
first, *_, last = [{w["tid"]: w["voluntary"] for w in json.loads(line)["workers"]}
                   for line in list(open("samples"))[1:]]
assert len(first) == 100 and all(last[tid] > first[tid] for tid in first), (first, last)
' || fail "counts that stand still"
}

case_screen_fits_every_size() {
  start_demo 24 24
  tell run image-resize 2
  show 80 24 "$pid" --interval 0.1
  expect_on_screen 'WAITS IN$' '^1-17 of 24 '
  resize 40 10
  expect_on_screen '^24: 2 run 22 sleep 0 idle$' '^ *TID STATE    TASK     CPU%   SINCE$' '^1-3 of 24 by STATE'
  [ "$(screen | wc -l)" -eq 10 ] || fail "a line too many"
  resize 120 30
  expect_on_screen '^24 workers: 2 running, 22 sleeping, 0 idle, 0 new; 1 other thread, CPU' 'WAITS IN$' \
    '^1-23 of 24 by STATE'
  resize 20 3
  expect_on_screen '^    TID STATE$' '^1-1 of 24 by STATE$'
  resize 80 24
  expect_on_screen '^running  *2 ' '^1-17 of 24 '
  press q
  expect_end 0
}

case_signals_end_it_and_give_the_terminal_back() {
  start_demo 4 4
  show 80 24 "$pid"
  expect_on_screen '^4 workers'
  press C-c
  expect_end 0
}

# An orphan may stay a zombie for long: not every first process of a container reaps.
is_gone() { ! grep -q '^State:[[:space:]]*[^ZX]' "/proc/$1/status" 2>/dev/null; }

case_a_terminal_that_goes_away_ends_it() {
  # See end_server. The other cases look for leaks.
  export ASAN_OPTIONS=detect_leaks=0
  start_demo 4 4
  show 80 24 "$pid" --interval 0.1
  expect_on_screen '^4 workers'
  local shell watcher
  shell=$(tmux -L "$server" list-panes -F '#{pane_pid}')
  watcher=$(pgrep -P "$shell") || fail "kttop is not there"
  tmux -L "$server" kill-server
  server+=+
  await is_gone "$watcher"
  # With the hang-up ignored, the end of the terminal's input is all that it has to go by.
  tmux -u -L "$server" -f /dev/null new-session -d \
    "$(printf '%q ' env --ignore-signal=HUP "$kttop" "$pid" --interval 0.1); sleep 600"
  expect_on_screen '^4 workers'
  shell=$(tmux -L "$server" list-panes -F '#{pane_pid}')
  watcher=$(pgrep -P "$shell") || fail "kttop is not there"
  tmux -L "$server" kill-server
  await is_gone "$watcher"
}

case_no_colours_where_none_are_wanted() {
  start_demo 4 4
  tell run load 1
  show 80 24 "$pid"
  expect_on_screen 'running  load'
  tmux -L "$server" capture-pane -p -e | grep -q $'\e\\[[0-9;]*32m' || fail "no colours"
  new_server
  export NO_COLOR=
  show 80 24 "$pid"
  expect_on_screen 'running  load'
  tmux -L "$server" capture-pane -p -e | grep $'\e\\[[0-9;]*3[0-7]m' && fail "colours"
  tmux -L "$server" capture-pane -p -e | grep -q $'\e\\[' || fail "no attributes at all"
}

case_plain_letters_where_there_is_no_utf8() {
  start_demo 4 4
  tell run load 2
  export LC_ALL=C
  show 80 24 "$pid" --interval 0.1
  expect_on_screen '^running  *2 =='
  screen | LC_ALL=C grep -q '[^ -~]' && fail "more than ASCII"
  press q
  expect_end 0
}

case_names_never_drive_the_terminal() {
  start_demo 4 4
  tell run $'\e[2J\x07\xff' 1
  tell run $'\xc3\xbcb\xe6\x97\xa5' 1
  show 80 24 "$pid"
  expect_on_screen 'running  ?\[2J?? ' 'running  üb日 ' '^kttop: '
  press q
  expect_end 0
  "$kttop" --once "$pid" >output || fail "--once"
  grep -q 'running  ?\[2J??' output || fail "not in the table"
  LC_ALL=C grep -q $'[\x01-\x09\x0b-\x1f\x7f]' output && fail "control characters in the output"
  "$kttop" --once --json "$pid" >output || fail "--once --json"
  LC_ALL=C grep -q '[^ -~]' output && fail "more than ASCII in the JSON"
  python3 -c '
import json
tasks = {worker["task"] for worker in json.load(open("output"))["workers"]}
assert {"\x1b[2J\x07\ufffd", "\u00fcb\u65e5"} <= tasks, tasks
' || fail "the names in the JSON"
}

case_once_prints_a_sample_for_scripts() {
  start_demo 4 4
  tell run load 2
  tell spin image-resize 1
  "$kttop" --once "$demo" >output || fail "--once"
  grep -q '^4 workers: 3 running, 1 sleeping, 0 idle, 0 new; 1 other thread, CPU' output || fail "counts"
  [ "$(grep -c ' running  load ' output)" -eq 2 ] || fail "rows"
  "$kttop" --once --json "$pid" --interval 0.5 >output || fail "--once --json"
  python3 - "$pid" <<'PYTHON' || fail "not what is running"
import json
import sys

sample = json.load(open("output"))
assert sample["pid"] == int(sys.argv[1])
assert sample["seconds_between_readings"] >= 0.5
assert sample["counts"] == {"workers": 4, "running": 3, "sleeping": 1, "idle": 0, "new": 0, "other_threads": 1}
workers = sample["workers"]
assert sorted(worker["task"] or "" for worker in workers) == ["", "image-r", "load", "load"]
spinning = next(worker for worker in workers if worker["task"] == "image-r")
assert 0 < spinning["cpu_percent"] <= 101, spinning
assert 0.5 * spinning["cpu_percent"] / 101 <= spinning["cpu_seconds"], spinning
assert all(worker["cpu_percent"] == 0 for worker in workers if worker["task"] == "load")
assert sample["tasks"][0] == {"task": "load", "looks": 4, "percent": 66.667}
PYTHON
}

case_pools_with_names_are_told_apart() {
  start_demo 2 2
  tell run load 1
  show 100 24 "$pid" --interval 0.1
  expect_on_screen ' TASK     CPU% ' '^2 workers: 1 running'
  press s s
  expect_on_screen ' by CPU%'
  tell pool render 2
  tell run image-r 1
  tell pool io 1
  expect_on_screen ' TASK    POOL    CPU% ' ' running  image-r render ' ' sleeping         render ' \
    ' sleeping         io  ' ' running  load    - '
  press S
  expect_on_screen ' by POOL '
  press / R e N D Enter
  expect_on_screen "^1-2 of 2 with 'ReND' by POOL"
  await screen_lacks ' running  load '
  press q
  expect_end 0
  "$kttop" --once "$pid" >output || fail "--once"
  grep -q ' running  image-r render ' output || fail "no pool in the table"
  record_some
  "$kttop" --once --json "$pid" >now || fail "--once --json"
  "$kttop" --once --json --replay samples >replayed || fail "--replay --once --json"
  python3 -c '
import json
for name in "now", "replayed":
    pools = sorted(str(worker["pool"]) for worker in json.load(open(name))["workers"])
    assert pools == ["None", "None", "io", "render", "render"], (name, pools)
' || fail "the pools in the JSON"
}

recorded() { [ "$(wc -l <samples)" -gt "$1" ]; }

# Leaves a recording of a few samples.
record_some() {
  "$kttop" --record samples --interval 0.05 "$pid" </dev/null &
  local recorder=$!
  await test -s samples
  await recorded 3
  kill -TERM "$recorder"
  wait "$recorder"
}

case_recordings_are_shown_again() {
  start_demo 4 4
  tell run load 2
  "$kttop" --record samples --interval 0.05 "$pid" </dev/null >output 2>errors &
  local recorder=$!
  await test -s samples
  await recorded 5
  tell release load
  tell run other 1
  await grep -q '"task":"other"' samples
  kill -TERM "$recorder"
  wait "$recorder" || fail "exit status $? after a signal"
  [ -s output ] || [ -s errors ] && fail "it said something"
  "$kttop" --replay samples --once >output || fail "--replay --once"
  grep -q '^4 workers: 1 running, 3 sleeping' output || fail "counts"
  grep -q '^last .*load [0-9]*%.*' output || fail "tasks of the whole recording"
  grep -q '^running  *1 [▁▂▃▄▅▆▇█]' output || fail "no history"
  "$kttop" --replay samples --once --json | python3 -c '
import json, sys
sample = json.load(sys.stdin)
assert sample["counts"]["running"] == 1 and sample["samples"] >= 6, sample' || fail "JSON"
  show 80 24 --replay samples --interval 0.05
  expect_on_screen 'replay [0-9:]*$' '^the recording ends here; q quits' '^4 workers: 1 running' 'running  other '
  press q
  expect_end 0
}

case_a_recording_ends_with_the_process() {
  start_demo 4 4
  "$kttop" --record samples --interval 0.05 "$pid" </dev/null 2>errors &
  local recorder=$!
  await test -s samples
  await recorded 2
  end_demo
  wait "$recorder"
  local status=$?
  [ "$status" -eq 3 ] || fail "exit status $status"
  [ "$(cat errors)" = "kttop: process $pid ($demo) has ended" ] || fail "the last word"
  "$kttop" --replay samples --once >/dev/null || fail "the recording is broken"
}

case_broken_recordings_are_named_with_the_line() {
  start_demo 4 4
  record_some
  { head -n 3 samples; echo nonsense; } >broken
  expect_complaint 1 'kttop: broken:4: this is no JSON, from byte 2 on' --once --replay broken
  show 80 24 --replay broken
  expect_end 1
  grep -q '^kttop: broken:4: this is no JSON' errors || fail "said: $(cat errors)"
  : >empty
  expect_complaint 1 'kttop: empty:1: the file is empty' --once --replay empty
  head -n 1 samples >header
  expect_complaint 1 'kttop: there is no sample in the recording' --once --replay header
  expect_complaint 1 "none can't be read: No such file or directory" --once --replay none
  expect_complaint 1 "/dev/full can't be written on: No space left on device" --record /dev/full "$pid"
  local said
  said=$("$kttop" --version 2>&1 >/dev/full) && fail "--version on a full disk"
  [[ $said == "kttop: write error: No space left on device" ]] || fail "said: $said"
}

case_what_cannot_be_watched_is_said() {
  start_demo 4 4
  expect_complaint 1 'kttop: there is no process 4194305' --once 4194305
  expect_complaint 1 "kttop: no process is called 'none$$'" --once "none$$"
  "./$demo" 1 1 <commands >/dev/null &
  await is_called $! "$demo"
  expect_complaint 1 "2 processes are called '$demo' (" --once "$demo"
  local thread
  thread=$(find "/proc/$pid/task" -mindepth 1 -maxdepth 1 -printf '%f\n' | sort -n | tail -n 1)
  expect_complaint 1 "kttop: $thread is a thread of process $pid; give that" --once "$thread"
  expect_complaint 1 "kttop: /none can't be read" --proc /none --once "$demo"
}

case_bad_usage_is_said() {
  expect_complaint 2 'which one? Give a pid or a name' --once
  expect_complaint 2 '--json requires --once' --json 1
  expect_complaint 2 'PROCESS excludes --replay' --replay x 1
  expect_complaint 2 '--once excludes --record' --record x --once 1
  local interval
  for interval in 0 -1 0.01 nan inf 3601 1s; do
    expect_complaint 2 'is not a number of seconds from 0.05 to 3600' --once "--interval=$interval" 1
  done
  expect_complaint 2 'this is no terminal; --once prints one sample' $$
  "$kttop" --help >output || fail "--help"
  grep -q 'The kernel keeps 15 bytes' output || fail "the help says nothing of names"
  "$kttop" --version >output || fail "--version"
  grep -Eqx 'kttop [0-9]+[.][0-9]+[.][0-9]+' output || fail "the version: $(cat output)"
}

case_terminals_that_cannot_show_it_are_said() {
  start_demo 4 4
  local type
  for type in nonsense dumb; do
    rm -f status
    tmux -u -L "$server" -f /dev/null new-session -d -e TERM="$type" \
      "$(printf '%q ' env "TERM=$type" "$kttop" "$pid") 2>errors; echo \$? >status"
    await test -s status
    new_server
    status_is 1 || fail "exit status $(cat status)"
    grep -q "^kttop: the terminal type '$type' (TERM) " errors || fail "said: $(cat errors)"
  done
}

# A /proc made up: write_process START.
write_process() {
  mkdir -p proc/10/task/10
  echo "10 (some) S 1 1 1 0 -1 0 1 0 0 0 0 0 0 0 20 0 1 0 $1 0 0" >proc/10/stat
  printf 'Name:\tsome\nState:\tS (sleeping)\nTgid:\t10\n' >proc/10/status
}

case_a_pid_that_comes_back_is_another_process() {
  write_process 100
  show 80 24 --proc proc --interval 0.1 10
  expect_on_screen '^0 workers: ' '^no thread has a name that libktthread gives its workers'
  write_process 200
  expect_on_screen '^process 10 (some) has ended; 10 is another process now (some); q quits'
  press q
  expect_end 3
}

"case_$3"
