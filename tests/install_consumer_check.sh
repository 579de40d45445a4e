#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds a consumer with
# nothing but pkg-config's flags, then runs it.
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
g++ -std=c++17 -o "$prefix/consumer" "$src" $(pkg-config --cflags --libs quelvane) \
    -Wl,-rpath,"$(pkg-config --variable=libdir quelvane)"
out="$("$prefix/consumer")"
test "$out" = "libquelvane 3504 0"
echo "consumer ok: $out"
