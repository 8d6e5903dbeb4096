# The set-up that ./run, ./test and ./bench share; sourced by them, never run.
#
# It says nothing when there is nothing to do, shows one line of progress on a terminal, and prints
# what failed and nothing else when something fails. Everything it prints goes to standard error, so
# that the output of `./run FILE.vx` is the script's alone.
#
#   set_up GROUPS PRESET BUILD_DIR [TARGET...]
#     GROUPS     package groups of cmake/install-dependencies.sh, separated by blanks
#     PRESET     configure preset of CMakePresets.json, whose tree is BUILD_DIR
#     TARGET     what to build; everything when there is none

source_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

set_up() {
  local groups=$1 preset=$2 tree=$3
  shift 3
  # shellcheck disable=SC2086 # groups are separate words
  "$source_root/cmake/install-dependencies.sh" $groups || return 1
  _configure "$preset" "$tree" && _build "$tree" "$@"
}

_progress() { # TEXT: replaces the line of progress; an empty one takes it away
  if [[ -t 2 ]]; then
    printf '\r\033[K%.*s' "$(($(tput cols 2>/dev/null || echo 80) - 1))" "$1" >&2
  fi
}

_configure() {
  local preset=$1 tree=$2 log=$2/configure.log
  [[ -f $tree/build.ninja ]] && return 0
  _progress "configuring $(basename "$tree")/ ..."
  mkdir -p "$tree"
  if ! (cd "$source_root" && cmake --preset "$preset") >"$log" 2>&1 </dev/null; then
    _progress ""
    cat "$log" >&2
    echo "Configuring failed; the text above is in $log" >&2
    return 1
  fi
  _progress ""
}

_build() {
  local tree=$1 log=$1/build.log status=0 line
  shift
  # Without a terminal ninja prints one line for each step, which is turned into progress here.
  ninja -C "$tree" "$@" </dev/null 2>&1 | tee "$log" | while IFS= read -r line; do
    if [[ $line == \[*\]* ]]; then
      _progress "$line"
    fi
  done || status=1 # with pipefail: ninja failed
  _progress ""
  if [[ $status -ne 0 ]]; then
    # From the first failure on, without the steps that went well.
    awk '/^FAILED: |^ninja: error|^CMake Error/ { found = 1 } found && !/^\[[0-9]+\/[0-9]+\] /' \
      "$log" >&2
    echo "Building failed; the whole text is in $log" >&2
    return 1
  fi
}
