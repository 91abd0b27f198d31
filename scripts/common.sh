# Shared by the scripts beside it; sourced, never run. Leaves the caller in the project's folder.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/stage/processes.sh

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

# wait_for_lines FILE PATTERN COUNT SECONDS [PID]: waits until the file has COUNT matching lines; fails at
# the deadline or when the process is gone.
wait_for_lines() {
  wait_until "$4" has_lines_or_ended "$@" || true
  has_lines "$@"
}
has_lines() { [ "$(grep -cE "$2" "$1" 2>/dev/null)" -ge "$3" ]; }
has_lines_or_ended() { has_lines "$@" || { [ -n "${5:-}" ] && ! is_running "$5"; }; }
wait_for_line() { wait_for_lines "$1" "$2" 1 "$3" "${4:-}"; }

# start_service LOG COMMAND...: starts the local service and waits until it listens; its process is $started.
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

# output_exists NODE: whether a node of that name has outputs at the sound server.
output_exists() { pw-link -o | grep -q "^$1:"; }
