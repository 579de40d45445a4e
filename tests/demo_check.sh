#!/usr/bin/env bash
# Runs the demonstration against the simulated cluster and checks that it ends
# with status 0 within 60 seconds and shows the inventory, the changes and the
# events it was made to show.
set -u
sim="$1"
demo="$2"
out="$(mktemp)"
trap 'rm -f "$out"' EXIT
start=$(date +%s)
timeout -k 5 60 "$sim" run -- "$demo" >"$out" 2>&1
rc=$?
took=$(( $(date +%s) - start ))
cat "$out"
fail=0
if [ "$rc" -ne 0 ]; then echo "FAIL: the demo ended with status $rc"; fail=1; fi
if [ "$took" -gt 30 ]; then echo "FAIL: the demo took ${took}s"; fail=1; fi
for want in \
    "cluster simcluster" \
    "nodes (8):" \
    "filesystem fs1: mounted" \
    "  pool system " \
    "free disks: 1" \
    "  [event] node 10.0.0.3 failed" \
    "after the next poll: node node03 is down (failed)" \
    "  [event] disk nsd0001 of fs1 is now down/down" \
    "after the next poll: disk nsd0001 is down, availability down" \
    "createFileSet: status 0, the tool said: Fileset scratch created with id 4 root inode 524291." \
    "linkFileSet: status 0, the tool said: Fileset scratch linked at /vesk/fs1/scratch" \
    "scratch at /vesk/fs1/scratch" \
    "  [event] the cluster's configuration changed" \
    "  [event] node 10.0.0.3 recovered" \
    "  [event] user event from 10.0.0.1: goodbye" \
    "done"; do
  if ! grep -qF -- "$want" "$out"; then echo "FAIL: missing from the output: $want"; fail=1; fi
done
exit $fail
