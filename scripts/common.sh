# Shared by the scripts beside it; sourced, never run. Leaves the caller in the project's folder.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

step() { printf '==> %s\n' "$*"; }
fail() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "installing packages needs root or sudo: $*"
  fi
}

# build PRESET [TARGET...]: configures if need be and builds.
build() {
  local preset=$1
  shift
  step "Building ($preset)"
  cmake --preset "$preset" >"/tmp/tolvera-cmake.$$" 2>&1 || {
    cat "/tmp/tolvera-cmake.$$" >&2
    rm -f "/tmp/tolvera-cmake.$$"
    fail "cmake could not configure the $preset build"
  }
  rm -f "/tmp/tolvera-cmake.$$"
  cmake --build --preset "$preset" ${1:+--target "$@"} -- --quiet
}

# port_answers PORT: whether something listens there on loopback.
port_answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# wait_for_lines FILE PATTERN COUNT SECONDS [PID]: waits until the file has COUNT matching lines; fails at
# the deadline or when the process is gone.
wait_for_lines() {
  local deadline=$((SECONDS + $4))
  local count
  while count=$(grep -cE "$2" "$1" 2>/dev/null || true) && [ "${count:-0}" -lt "$3" ]; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    [ -z "${5:-}" ] || kill -0 "$5" 2>/dev/null || return 1
    sleep 0.1
  done
}
wait_for_line() { wait_for_lines "$1" "$2" 1 "$3" "${4:-}"; }

# start_service LOG COMMAND...: starts the local service, waits until it listens, leaves its pid in $started.
start_service() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 &
  started=$!
  wait_for_line "$log" 'listening on' 60 "$started" || {
    cat "$log" >&2
    stop_process "$started"
    fail "the local service did not start"
  }
}

# stop_process PID: asks it to end, and insists after 10 s.
stop_process() {
  kill "$1" 2>/dev/null || return 0
  local deadline=$((SECONDS + 10))
  while kill -0 "$1" 2>/dev/null && [ "$SECONDS" -lt "$deadline" ]; do sleep 0.1; done
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# wait_until SECONDS COMMAND...: repeats the command until it succeeds; fails at the deadline.
wait_until() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.1
  done
}

# output_exists NODE: whether a node of the sound server by that name has outputs.
output_exists() { pw-link -o | grep -q "^$1:"; }
