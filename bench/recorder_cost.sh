#!/usr/bin/env bash
# What the bridge recorder adds to each btl_write_data call under Wine: the
# stand-in alone, then the recorder in front of it, 2,000 calls each:
# recorder_cost.sh WINDOWS_BUILD_DIR, inside a Wine session (scripts/bench).
set -euo pipefail
build=$1
stage=$build/bench-recorder
rm -rf "$stage"
mkdir -p "$stage/vendor" "$WINEPREFIX/drive_c/ProgramData/KORU/KoruDeviceService/log"
cp "$build/stand-ins/btl_hid_transfer.dll" "$stage/vendor/"
cp "$build/recorder_cost.exe" "$build/recorder/btl_hid_transfer.dll" "$stage/"
cd "$stage"
calls() { wine recorder_cost.exe "$(winepath -w "$stage/$1")" 2000 | tr -d '\r'; }
plain=$(calls vendor/btl_hid_transfer.dll)
recorded=$(calls btl_hid_transfer.dll)
printf 'BENCH\trecorder: btl_write_data without the recorder\t%s\tus/call\n' "$plain"
printf 'BENCH\trecorder: btl_write_data through the recorder\t%s\tus/call\n' "$recorded"
printf 'BENCH\trecorder: added per bridge call\t%s\tus/call\n' "$(awk "BEGIN {print $recorded - $plain}")"
find "$WINEPREFIX/drive_c/ProgramData/KORU/KoruDeviceService/log" -name 'CalderTrace_*' \
  -newer "$stage/recorder_cost.exe" -delete
