# shellcheck shell=sh
# Sourced by run, test and .ci/run: makes sure that the tools they need are there.

# need COMMAND PACKAGE: installs the Debian package when the command is missing, or says so.
need() {
  command -v "$1" >/dev/null 2>&1 || missing="$missing $2"
}

# need_file FILE PACKAGE: the same for a library's file.
need_file() {
  [ -e "$1" ] || missing="$missing $2"
}

# install_missing: installs what need and need_file found missing; ends the script when it may not.
install_missing() {
  [ -n "$missing" ] || return 0
  as_root=
  if [ "$(id -u)" -ne 0 ]; then
    as_root="sudo -n"
    if ! sudo -n true 2>/dev/null; then
      echo "missing packages:$missing (install them, for instance: sudo apt-get install$missing)" >&2
      exit 1
    fi
  fi
  echo "installing:$missing" >&2
  # Two scripts may find something missing at once; apt would turn the second one away.
  cache=${XDG_CACHE_HOME:-$HOME/.cache}/vantrel
  mkdir -p "$cache"
  # shellcheck disable=SC2086
  if ! (
    flock 8
    $as_root apt-get update -qq || true
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      -o DPkg::Lock::Timeout=300 $missing
  ) >&2 8>"$cache/install.lock"; then
    echo "could not install:$missing" >&2
    exit 1
  fi
  missing=
}

missing=
need_build_tools() {
  need g++ g++
  need cmake cmake
  need ninja ninja-build
  need_file /usr/include/CLI/CLI.hpp libcli11-dev
  need_file /usr/include/nlohmann/json.hpp nlohmann-json3-dev
}

need_test_tools() {
  need_file /usr/include/gtest/gtest.h libgtest-dev
  need_file /usr/lib/python3/dist-packages/jsonschema/__init__.py python3-jsonschema
  need_file /usr/include/benchmark/benchmark.h libbenchmark-dev
  need_file /usr/include/zlib.h zlib1g-dev
}

# product_folders: the folders of the service, one a line.
product_folders() {
  sed -n 's/^\([a-z]*\):.*/\1/p' cmake/product_folders.txt
}

# quietly COMMAND...: shows the command's output only when it fails.
quietly() {
  log=$(mktemp)
  if "$@" >"$log" 2>&1; then
    rm -f "$log"
  else
    status=$?
    cat "$log" >&2
    rm -f "$log"
    return $status
  fi
}

# folder_for_drives: where the simulated machines of thousands of runs keep their drives: in memory,
# where that is possible.
folder_for_drives() {
  if [ -w /dev/shm ]; then echo /dev/shm; else echo "${TMPDIR:-/tmp}"; fi
}
