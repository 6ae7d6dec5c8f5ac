#!/usr/bin/env bash
# The progress window's CPU cost and start-to-shown time under Wine:
# window_cost.sh WINDOWS_BUILD_DIR, inside a Wine session (scripts/bench).
set -euo pipefail
build=$1
stage=$build/bench-window
rm -rf "$stage"
mkdir -p "$stage"
cp "$build/window_cost.exe" "$build/rlottie.dll" "$build/loading_dark.json" "$stage/"
cd "$stage"
start=$(date +%s%N)
wine window_cost.exe
end=$(date +%s%N)
printf 'BENCH\twindow: wine launch to exit (incl. 10 s run)\t%s\tms\n' $(( (end - start) / 1000000 ))
