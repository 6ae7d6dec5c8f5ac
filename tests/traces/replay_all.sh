#!/usr/bin/env bash
# Replays every recorded run in this folder with calder-replay against the
# firmware it was recorded with: each must make exactly its recorded calls,
# with no pacing warning.
#   replay_all.sh CALDER_REPLAY
set -u
replay=$1
here=$(cd "$(dirname "$0")" && pwd)
status=0
for name in $(ls "$here"/*.ndjson | sed 's|.*/||; s|\.[a-z]*\.ndjson$||' | sort -u); do
  out=$("$replay" --package "$here/package" "$here/$name".*.ndjson 2>&1)
  code=$?
  if [ $code -eq 0 ] && ! grep -q "pacing warning" <<<"$out"; then
    echo "replayed $name"
  else
    echo "FAILED $name (exit $code):"; echo "$out"
    status=1
  fi
done
exit $status
