#!/usr/bin/env bash
# Installs the Debian packages that this tree needs, and does nothing at all when they are there.
#
#   cmake/install-dependencies.sh GROUP...      groups: build, test, clang, bench
#
# The lists below are the one place that names packages. On a system without dpkg it says so and
# goes on; configuring then tells what is missing.
set -euo pipefail

declare -A packages=(
  [build]="g++ cmake ninja-build pkg-config libfmt-dev libeigen3-dev libre2-dev libedit-dev
           libcli11-dev libboost-thread-dev libflatbuffers-dev flatbuffers-compiler
           llvm-19-dev valgrind"
  [test]="libgtest-dev libgmock-dev python3 binutils nlohmann-json3-dev graphviz gdb"
  [clang]="clang"
  [bench]="python3-dev pybind11-dev liblua5.4-dev lua5.4 nlohmann-json3-dev
         clang-19 luajit"
)

wanted=()
for group in "$@"; do
  if [[ -z ${packages[$group]:-} ]]; then
    echo "install-dependencies.sh: no such group: $group (there are: ${!packages[*]})" >&2
    exit 2
  fi
  read -ra names <<<"$(tr '\n' ' ' <<<"${packages[$group]}")"
  wanted+=("${names[@]}")
done
[[ ${#wanted[@]} -gt 0 ]] || exit 0

if ! command -v dpkg-query >/dev/null; then
  echo "This system has no dpkg; the equivalents of these packages must be there: ${wanted[*]}" >&2
  exit 0
fi

# dpkg-query fails when it does not know a package at all: that one is missing like the others.
installed=$(dpkg-query --show --showformat='${db:Status-Status} ${Package}\n' "${wanted[@]}" \
              2>/dev/null | sed -n 's/^installed //p' || true)
missing=()
for package in "${wanted[@]}"; do
  grep -qxF -- "$package" <<<"$installed" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

root=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "Packages are missing and need an administrator to install them:" >&2
    echo "  apt-get install ${missing[*]}" >&2
    exit 1
  fi
  root=(sudo)
fi

echo "Installing: ${missing[*]}" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
    -o DPkg::Lock::Timeout=120 "$@" >>"$log" 2>&1 </dev/null
}
# Package lists may be old or absent; without a network what is in the cache may still do.
apt update || true
if ! apt install --no-install-recommends "${missing[@]}"; then
  cat "$log" >&2
  echo "Could not install: ${missing[*]}" >&2
  exit 1
fi
