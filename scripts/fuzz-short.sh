#!/usr/bin/env bash
# Runs every fuzzer in BUILD_DIR for SECONDS seconds over its committed corpus.
set -euo pipefail
dir=${1:-build/fuzz}; secs=${2:-5}
root=$(cd "$(dirname "$0")/.." && pwd)
for f in "$dir"/fuzz/fuzz_*; do
  [ -x "$f" ] || continue
  name=$(basename "$f"); name=${name#fuzz_}
  corpus="$root/fuzz/corpus/$name"
  work=$(mktemp -d)
  [ -d "$corpus" ] && cp -r "$corpus"/. "$work"/ 2>/dev/null || true
  # The UTF converters change paths past 4096 bytes (libFuzzer's default length).
  opts=(); case $name in utf*) opts=(-max_len=20000) ;; esac
  echo "fuzz $name: ${secs}s"
  "$f" -max_total_time="$secs" -entropic=0 -print_final_stats=0 "${opts[@]}" "$work" > "$work.log" 2>&1 || { tail -n 40 "$work.log"; exit 1; }
  tail -n 1 "$work.log"; rm -f "$work.log"
  rm -rf "$work"
done
