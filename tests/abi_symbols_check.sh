#!/usr/bin/env bash
# Compares the names that the shared library exports with the list kept
# under version control, so that an export is never gained or lost by
# accident. A change of the interface is made deliberately by editing the
# list (or rewriting it with --update, then reading the diff).
#   abi_symbols_check.sh [--update] LIBRARY LIST
#
# The list holds the mangled names of the library's own exports, one a line,
# sorted bytewise. Besides those, the dynamic symbol table carries weak and
# unique copies of the standard library's templates as instantiated for the
# library's types (std::vector<NodeInfo*>::_M_realloc_insert and the like):
# which of them are emitted depends on the compiler and on the build type, so
# they are not listed; but every such copy must belong to the standard
# library, never to this one.
set -euo pipefail
update=0
if [ "${1:-}" = "--update" ]; then
    update=1
    shift
fi
lib="$1"
list="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

nm -D --defined-only "$lib" >"$work/nm"
# The library's own exports: code and data of every kind but the weak and
# unique copies (W, V, u and their lower-case forms), and but the indicators
# that AddressSanitizer adds beside each exported global (__odr_asan.NAME).
awk 'NF == 3 && $2 !~ /^[WwVvu]$/ && $3 !~ /^__odr_asan/ {print $3}' "$work/nm" \
    | LC_ALL=C sort -u >"$work/own"
# Weak and unique copies that do not belong to the standard library: names in
# namespace std or __gnu_cxx (functions, their guard and local statics), and
# the type information of the function types that std::function makes.
awk 'NF == 3 && $2 ~ /^[WwVvu]$/ {print $3}' "$work/nm" \
    | grep -Ev '^_Z(N|NK|GVZN|GVZNK|ZN|ZNK)?(St|9__gnu_cxx)' \
    | grep -Ev '^_ZT[IS]P?F' \
    | LC_ALL=C sort -u >"$work/stray" || true

if [ "$update" -eq 1 ]; then
    cp "$work/own" "$list"
    echo "wrote $(wc -l <"$list") names to $list"
fi

status=0
if ! diff -u "$list" "$work/own" >"$work/diff"; then
    echo "The shared library's exports differ from $list" >&2
    echo "('-' listed but not exported, '+' exported but not listed):" >&2
    grep -E '^[-+]_' "$work/diff" | while read -r line; do
        printf '%s    %s\n' "$line" "$(c++filt <<<"${line:1}")" >&2
    done
    echo "If the change is meant, edit the list (or run this script with --update)." >&2
    status=1
fi
if [ -s "$work/stray" ]; then
    echo "Weak or unique copies exported that are not the standard library's:" >&2
    while read -r name; do
        printf '  %s    %s\n' "$name" "$(c++filt <<<"$name")" >&2
    done <"$work/stray"
    status=1
fi
[ "$status" -ne 0 ] || echo "exports match $list: $(wc -l <"$list") names"
exit "$status"
