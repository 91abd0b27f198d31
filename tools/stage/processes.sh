# Waiting for things and ending processes, for the scripts of scripts/ and tools/stage/; sourced, never run.

# wait_until SECONDS COMMAND...: repeats the command until it succeeds; fails at the deadline.
wait_until() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.1
  done
}

is_running() { kill -0 "$1" 2>/dev/null; }

# stop_process PID: asks a child to end, and kills it after 10 s.
stop_process() {
  kill "$1" 2>/dev/null || return 0
  wait_until 10 eval '! is_running '"$1" || kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# --- A stage: servers of its own around one command -----------------------------------------------------------

# usage: prints the comment at the top of the script, and ends.
usage() {
  sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "$0" >&2
  exit 64
}

# require TOOL...: ends with 77 if one is not installed.
require() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null && continue
    echo "${0##*/}: $tool is not installed (scripts/setup tests)" >&2
    exit 77
  done
}

# open_stage NAME: makes the folder $dir (mode 700) and ends all that was started when the script ends.
open_stage() {
  dir=$(mktemp -d "${TMPDIR:-/tmp}/tolvera-$1.XXXXXX") || exit 125
  children=()
  trap close_stage EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
}

# The child that was started last ends first.
close_stage() {
  trap - EXIT
  trap '' INT TERM HUP
  local index
  for ((index = ${#children[@]} - 1; index >= 0; index--)); do stop_process "${children[index]}"; done
  rm -rf "$dir"
}

# fail_stage REASON: shows the ends of the logs, and ends with 125.
fail_stage() {
  echo "${0##*/}: $1" >&2
  tail -n 20 "$dir"/*.log >&2
  exit 125
}

# start NAME COMMAND...: runs a server in the background, with a log. It ends with the script in any case.
start() {
  local name=$1
  shift
  setpriv --pdeathsig TERM "$@" </dev/null >"$dir/$name.log" 2>&1 &
  children+=($!)
}

# start_bus: a message bus of the stage's own in $XDG_RUNTIME_DIR.
start_bus() {
  export DBUS_SESSION_BUS_ADDRESS="unix:path=$XDG_RUNTIME_DIR/bus"
  start bus dbus-daemon --session --nofork --nopidfile --address="$DBUS_SESSION_BUS_ADDRESS"
  wait_until 10 test -S "$XDG_RUNTIME_DIR/bus" || fail_stage "the message bus did not start"
}

# play_on_stage COMMAND...: runs the command with the script's own standard input, and ends with its status.
play_on_stage() {
  "$@" <&0 &
  children+=($!)
  wait $!
  exit $?
}
