# shellcheck shell=bash
# Runs the stages of `check`, some at a time; sourced. A stage is a function stage_NAME.

stages_at_once=3  # one tests, which leaves processors idle, while others compile
declare -A running=()  # process -> stage
declare -A begun=()    # stage -> when
passed=' '
failed=
times=()

clock() { printf '%d:%02d' $(($1 / 60)) $(($1 % 60)); }

# The processes of this run: all that a stage starts inherits the variable. Some may end while grep looks.
stage_processes() {
  { grep -lzs "^KT_CHECK_RUN=$$\$" /proc/[0-9]*/environ || true; } | sed 's|/proc/\([0-9]*\)/.*|\1|'
}

stop_stages() {
  local signal processes
  for signal in TERM TERM TERM TERM TERM KILL; do
    processes=$(stage_processes)
    [ -n "$processes" ] || return 0
    # Split into one word for each process.
    # shellcheck disable=SC2086
    kill -"$signal" $processes 2>/dev/null || true
    sleep 1
  done
}

# The shell has what it starts in the background ignore interrupts; the tests would inherit that.
begin() {
  local name=$1
  say "begins: $name"
  begun[$name]=$SECONDS
  : >"build/stages/$name.worked"
  env --default-signal=INT,QUIT KT_CHECK_RUN=$$ ./check --stage "$name" >"build/stages/$name" 2>&1 </dev/null &
  running[$!]=$name
}

# Begins those of `waiting`, in this order, for which there is room and what they wait for has passed.
begin_those_that_can() {
  local stage later=()
  for stage in "${waiting[@]}"; do
    if [ ${#running[@]} -lt $stages_at_once ] && [[ $stage != *:* || $passed = *" ${stage#*:} "* ]]; then
      begin "${stage%%:*}"
    else
      later+=("$stage")
    fi
  done
  waiting=("${later[@]}")
}

# keep_time TOOK STAGE NOTE. `times` has written two lines, of the stage's own shell and of its commands: user and
# system time of each.
keep_time() {
  local worked
  worked=$(tr ms ' ' <"build/stages/$2.worked" |
    awk '{ sum += 60 * ($1 + $3) + $2 + $4 } END { printf "%.0f", sum }')
  times+=("$(printf '%8s %8s  %s' "$1" "$(clock "${worked:-0}")" "$2$3")")
}

end_one() {
  local process status=0 name took
  wait -n -p process "${!running[@]}" || status=$?
  name=${running[$process]}
  unset "running[$process]"
  took=$(clock $((SECONDS - begun[$name])))
  keep_time "$took" "$name" ''
  if [ $status -ne 0 ]; then
    cat "build/stages/$name" >&2
    failed=$name
    exit 1
  fi
  say "passed: $name, in $took"
  cat "build/stages/$name"
  passed+="$name "
}

tell_times() {
  say "time and processor time of each stage, in minutes and seconds (up to $stages_at_once run at a time):"
  printf '%s\n' "${times[@]}"
  say "$(clock $SECONDS) in all"
}

give_up() {
  local stage
  trap '' INT TERM HUP  # another ^C would leave processes behind; this ends within seconds
  stop_stages
  for stage in "${running[@]}"; do
    keep_time "$(clock $((SECONDS - begun[$stage])))" "$stage" ', which was stopped'
  done
  tell_times
  [ -z "$failed" ] || fail "failed: $failed (see above, and build/stages/$failed)"
}

# run_stages STAGE...: in this order. NAME:OTHER waits until the stage OTHER has passed.
run_stages() {
  local waiting=("$@")
  mkdir -p build/stages
  trap give_up EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
  begin_those_that_can
  while [ ${#running[@]} -gt 0 ]; do
    end_one
    begin_those_that_can
  done
  [ ${#waiting[@]} -eq 0 ] || fail "these wait for stages that are not run: ${waiting[*]}"
  trap - EXIT
  tell_times
}
