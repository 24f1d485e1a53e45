#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in a normal
# build, once more under AddressSanitizer and UndefinedBehaviorSanitizer, and
# the threaded suites (label notify) under ThreadSanitizer.
# Also installs the libraries into a staging prefix and builds the example
# host program against them with pkg-config. Fails when anything fails.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
jobs="$(nproc 2>/dev/null || echo 2)"
"$root/scripts/install-deps.sh"

build_and_test() {  # folder, extra cmake arguments...
  local dir="$1"; shift
  echo "=== build $dir"
  cmake -S "$root" -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "=== test $dir"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}

build_and_test "$root/build/release" -DCMAKE_BUILD_TYPE=RelWithDebInfo

echo "=== install and build the example against the installed prefix"
stage="$root/build/stage"
rm -rf "$stage"
cmake --install "$root/build/release" --prefix "$stage" >/dev/null
export PKG_CONFIG_PATH="$stage/lib/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
# The .pc file names the prefix the build was configured with; the staging
# prefix replaces it here.
cc -std=c99 -Wall -Wextra -Werror -o "$root/build/example_create_table" \
   "$root/examples/create_table.c" \
   $(pkg-config --define-variable=prefix="$stage" --cflags --libs qzk_file_dbf)
exdir="$(mktemp -d)"
trap 'rm -rf "$exdir"' EXIT
"$root/build/example_create_table" "$exdir/example.dbf"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
build_and_test "$root/build/asan" -DCMAKE_BUILD_TYPE=Debug -DQZ_SANITIZE=address,undefined

# The threaded parts (event channels, folder watcher, notifier) once more
# under ThreadSanitizer.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/tsan.supp"
echo "=== build $root/build/tsan"
cmake -S "$root" -B "$root/build/tsan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQZ_SANITIZE=thread >/dev/null
cmake --build "$root/build/tsan" -j "$jobs"
echo "=== test $root/build/tsan (label notify)"
(cd "$root/build/tsan" && ctest --output-on-failure -j "$jobs" -L notify --no-tests=error)
echo "all test runs passed"
