#!/usr/bin/env python3
"""Records tests/traces/ again: the real calder.exe (build/win) with the
recorders in front of the stand-in vendor DLLs under Wine, one run per
scenario against tests/traces/package, the stand-ins' fault injection set as
the fault matrix sets it. Each scenario leaves NAME.LIBRARY.ndjson for every
trace its run wrote (a library the run never reaches leaves none). A new
scenario is a row of SCENARIOS.

    tools/record_traces.py [NAME...]     (scripts/record-traces runs it)
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests" / "e2e"))
from calder_e2e import (BUILD, LOG_DIR, Stage, hid_standins_in_system32,  # noqa: E402
                        windows_path)

TRACES = SOURCE / "tests" / "traces"
PACKAGE = TRACES / "package"
TP_FIRMWARE = b"\xff" * 0x102 + b"\x05"  # its checksum is what the stand-in reports
FORCE_IMAGE = bytes((i * 7 + 1) % 251 + 1 for i in range(1000))  # 16 blocks, a raw image

# name, the force sensor's scenario lines, the upgrade stand-in's environment,
# calder.exe's switch.
SCENARIOS = [
    ("clean-update", "", {}, "--update"),
    ("connect-wrong-twice", "wrong_connect_replies=2\n", {}, "--update"),
    ("rejected-block", "rejected_block=3\nrejections=1\n", {}, "--update"),
    # Erased flash reads 0xFF past the raw image: the read-back checksum
    # differs and the calibration read over HID rescues the update.
    ("readback-mismatch-rescued", "erased_value=0xFF\n", {}, "--update"),
    ("touchpad-upgrade-fails", "", {"BTL_SIM_UPGRADE_RESULT": "5"}, "--update"),
    ("version", "", {}, "--version"),
]


def write_package():
    """The firmware the traces were recorded with, which replay reads too."""
    for relative, data in [("TP/tp_fw.bin", TP_FIRMWARE), ("Force/1.0.2.3.bin", FORCE_IMAGE)]:
        path = PACKAGE / relative
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def recording_stage(name, scenario):
    """calder.exe, the stand-ins and the package's firmware, made into the
    recording layout by scripts/recording-package; the sensor's files apart."""
    plain = Stage("record-plain-" + name)
    for built in ["sim/btl_upgrade/btl_upgrade.dll", "stand-ins/btl_hid_transfer.dll",
                  "loading_dark.json"]:
        plain.copy_in(BUILD / built)
    shutil.copytree(PACKAGE, plain.dir, dirs_exist_ok=True)
    stage = Stage("record-" + name)
    shutil.rmtree(stage.dir)
    subprocess.run([SOURCE / "scripts" / "recording-package", plain.dir, stage.dir], check=True,
                   env={**os.environ, "CALDER_RECORDERS": str(BUILD / "recorder")},
                   stdout=subprocess.DEVNULL)
    sensor = stage.add("sensor/force_sensor_scenario.txt", ("version=1.0.2.3\n" + scenario).encode())
    return stage, sensor.parent


def traces_of(result):
    """The trace files the run's process wrote, by the pid in its log's name."""
    pid = re.search(r"_(\d+)\.log$", result.log_path.name).group(1)
    return {re.search(r"_([a-z]+)\.ndjson$", path.name).group(1): path
            for path in LOG_DIR.glob(f"CalderTrace_*_{pid}_*.ndjson")}


def record(name, scenario, env, switch):
    stage, sensor = recording_stage(name, scenario)
    with hid_standins_in_system32() as overrides:
        result = stage.run(switch, env={**overrides, **env, "CALDER_FORCE_SIM_DIR": windows_path(sensor)})
    return result, traces_of(result)


def main(names):
    write_package()
    for name, scenario, env, switch in SCENARIOS:
        if names and name not in names:
            continue
        for old in TRACES.glob(name + ".*.ndjson"):
            old.unlink()
        result, traces = record(name, scenario, env, switch)
        for library, path in sorted(traces.items()):
            shutil.copy(path, TRACES / f"{name}.{library}.ndjson")
        print(f"{name}: exit {result.rc}, traces {', '.join(sorted(traces)) or 'none'}")


if __name__ == "__main__":
    main(sys.argv[1:])
