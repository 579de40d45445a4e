#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds a consumer twice:
# with nothing but pkg-config's flags, and as a CMake project that finds the
# package with find_package(quelvane 3.5 CONFIG). Runs both.
set -euo pipefail
build="$1"
src="$2"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir="$(dirname "$(find "$prefix" -name quelvane.pc | head -n 1)")"
export PKG_CONFIG_PATH="$libdir"
test -f "$prefix/include/quelvane/quelvane.h"
soname="$(objdump -p "$libdir/../libquelvane.so" | awk '/SONAME/ {print $2}')"
test "$soname" = "libquelvane.so.1"

g++ -std=c++17 -o "$prefix/consumer" "$src/consumer.cpp" $(pkg-config --cflags --libs quelvane) \
    -Wl,-rpath,"$(pkg-config --variable=libdir quelvane)"
out="$("$prefix/consumer")"
test "$out" = "libquelvane 3504 0"
echo "pkg-config consumer ok: $out"

cmake -S "$src" -B "$prefix/consumer-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_BUILD_RPATH="$libdir/.." >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
out="$("$prefix/consumer-build/consumer")"
test "$out" = "libquelvane 3504 0"
echo "find_package consumer ok: $out"

# A version the package does not satisfy is refused.
if cmake -S "$src" -B "$prefix/too-new" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
         -DQUELVANE_CONSUMER_VERSION=4.0 >/dev/null 2>&1; then
  echo "find_package accepted version 4.0" >&2
  exit 1
fi
echo "find_package refuses 4.0: ok"
