"""The fault matrix: the real calder.exe under Wine against the stand-in
vendor DLLs, one row per failure the tool can meet from outside. Each row
stages DLLs and firmware files, sets the stand-ins' faults and states the exit
code, the log lines in order, the run marker and what the devices hold.

Nothing lost: after every failing row the faults are removed, the same
persisted sensor is kept, and a clean run must finish with exit 0, the file's
image in the sensor's flash and the marker gone."""

import os
import re
import subprocess
import sys
import threading
import time
import unittest
from pathlib import Path

import test_force_update as force_e2e
from calder_e2e import BUILD, WINEPREFIX, Result, Stage, hid_standins_in_system32, windows_path

UPGRADE_DLL = BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll"
BRIDGE_DLL = BUILD / "stand-ins" / "btl_hid_transfer.dll"
# The force phase alone, as calder.exe runs it after a good touchpad phase.
FORCE_ENTRY = BUILD / "stand-ins" / "force_phase_entry.exe"
TOUCH_HID = BUILD / "sim" / "touch_hid"
HID_OVERRIDES = "mscoree,mshtml=;setupapi,hid=n,b"
RUN_TIMEOUT = 90  # seconds; the slowest row needs about 25
# Rows run in this many Wine prefixes at once (each has its own run marker);
# the runs mostly wait on device pauses.
SHARDS = int(os.environ.get("CALDER_MATRIX_SHARDS", "3"))

# Byte sum 0x1_0103: a good chip reports the low 16 bits, 259.
TP_FIRMWARE = b"\xff" * 0x102 + b"\x05"
TP_CHECKSUM = ["INFO tp_update.cpp: Checksum: 65795", "INFO tp_update.cpp: Checksum inside: 259"]

# The force firmware carries its version at image offset 16, where the
# simulated application reads it: a half-written image shows a wrong version.
VERSION_OFFSET = 16
SENSOR = "version_offset=%d\n" % VERSION_OFFSET
TARGET = "1.0.2.3"
FLASH_SIZE = 0xF000
CALIBRATION = "258 772 -1 -32768 12 0 7"


def force_image(size, version=(1, 0, 2, 3), seed=1):
    image = bytearray((i * 7 + seed) % 251 + 1 for i in range(size))
    image[VERSION_OFFSET:VERSION_OFFSET + 4] = bytes(version)
    return bytes(image)


def tagged(image, header_fill=0x5A):
    header = bytearray([header_fill] * 72)
    header[24:30] = b"AW8680"
    return bytes(header) + image


IMAGE = force_image(320)           # five 64-byte blocks, eight 40-byte read-back chunks
GOOD_FILE = (TARGET + ".bin", tagged(IMAGE))


def log(file, *messages, level="INFO"):
    return ["%s %s: %s" % (level, file, m) for m in messages]


def calder(*messages, level="INFO"):
    return log("calder.cpp", *messages, level=level)


def tp(*messages):
    return log("tp_update.cpp", *messages)


def fu(*messages, level="INFO"):
    return log("force_update.cpp", *messages, level=level)


def uf(*messages):
    return log("update_fw.cpp", *messages)


def entry_returned(rc):
    return log("force_phase_entry.cpp", "force phase returned: %d" % rc)


START = calder("---start tp update---", "WMIBiosTPReset failed")
TP_INIT = tp("Initializing...", "Initialized successfully.")
TP_PASS = tp("SUCCESS: Upgrade completed successfully!") + TP_CHECKSUM + tp(
    "Upgrade checksum pass!")
TP_OVER = calder("tp update success", "---tp update over---", "---start force update---")
TP_FAILED = calder("tp update failed", level="ERROR")
FORCE_OPEN = fu(">> Start Upgrade Force", "init driver...", "init driver success",
                "open device...", "Open device success", "disable touch")
FORCE_CLOSE = fu("enable touch", "close device success", "uninstall driver success")
FORCE_OK = calder("force update success")
FORCE_FAILED = calder("force update failed", level="ERROR")


def written(version=TARGET, target=TARGET, verdict="upgrade success"):
    return uf("upgrading: writing to chip", "connect...", "ConnectCmd Ok", "erase chip... ",
              "start write flash... ", "upgrade finish ret = 0",
              "read force version form firmware : " + version,
              "target force version : " + target, verdict)


def failed_runs(*per_run):
    """The retry lines around three failing writer runs."""
    lines = []
    for attempt, run in enumerate(per_run, start=1):
        if attempt > 1:
            lines += fu(">> retry upgrade force firmware:%d" % attempt)
        lines += run + fu("update failed:%d" % attempt)
    return lines


CONNECT_FAILS = uf("connect...", "ConnectCmd Error", "jump Uboot connect error : 4")
MATCHED = ["~INFO force_update.cpp: checksum : (\\S+) filechecksum : \\1$"]
MISMATCHED = ["~INFO force_update.cpp: checksum : \\S+ filechecksum : \\S+$"] + fu(
    "checksum check failed" + "!" * 52)


class Row:
    """One case of the matrix.

    staging: tp_dll / bridge_dll are "stand-in", "missing" or "wrong" (the
    other vendor DLL under this name: every entry point is missing);
    tp_firmware is bytes or None (no TP folder); force_file is (name, bytes)
    or None (no Force folder); touch stages the HID stand-ins. entry "force"
    runs the force phase alone: under Wine the WMI reset of --update loads
    Wine's own setupapi.dll first, so the HID stand-in is only seen there.
    faults: tp_env (BTL_SIM_*), scenario (force sensor faults), hid_env; all
    removed for the clean run, while device (the sensor's nature, e.g. its
    erased value) stays."""

    def __init__(self, name, rc, lines, *, marker=None, args=("--update",), entry="calder",
                 tp_dll="stand-in",
                 bridge_dll="stand-in", tp_firmware=TP_FIRMWARE, force_file=GOOD_FILE,
                 touch=False, tp_env=None, scenario="", device="", hid_env=None, absent=(),
                 check=None, stdout=()):
        self.name, self.rc, self.lines, self.args, self.entry = name, rc, lines, args, entry
        self.marker = (rc != 0 and entry == "calder") if marker is None else marker
        self.tp_dll, self.bridge_dll = tp_dll, bridge_dll
        self.tp_firmware, self.force_file, self.touch = tp_firmware, force_file, touch
        self.tp_env, self.scenario, self.device = tp_env or {}, scenario, device
        self.hid_env, self.absent, self.check, self.stdout = hid_env or {}, absent, check, stdout


# --- device checks: (test, stage, result) ---

def flash_holds(image):
    def check(t, stage, result):
        flash = stage.flash()
        t.assertEqual(len(flash), FLASH_SIZE)
        t.assertEqual(flash[:len(image)], image)
        state = stage.state()
        t.assertEqual(state["mode"], "application")
        t.assertEqual(state["touch_enabled"], "1")
        t.assertEqual(state["bad_packets"], "0")
    return check


def nothing_written(t, stage, result):
    state = stage.state() if (stage.dir / "force_sensor_state.txt").exists() else {}
    t.assertEqual(state.get("written_blocks", "0"), "0")
    t.assertEqual(state.get("erase_commands", "0"), "0")


def sensor_untouched(t, stage, result):
    nothing_written(t, stage, result)
    state = stage.state() if (stage.dir / "force_sensor_state.txt").exists() else {}
    t.assertEqual(state.get("connects", "0"), "0")


def tp_calls(*calls):
    def check(t, stage, result):
        t.assertEqual(stage.tp_calls(), list(calls))
    return check


def all_of(*checks):
    def check(t, stage, result):
        for c in checks:
            c(t, stage, result)
    return check


def full_tp_calls(stage):
    return ["btl_upgrade_init hw_id=ACPI\\BLTP7853 chip_id=0x41 have_boot=1 options=0,1,0 "
            "zero=yes callbacks=yes -> 0",
            "btl_upgrade_from_file " + windows_path(stage.dir / "TP" / "tp_fw.bin") + " -> 0",
            "btl_get_checksum -> 0", "btl_upgrade_deinit"]


def full_success_check(t, stage, result):
    flash_holds(IMAGE)(t, stage, result)
    t.assertEqual(stage.flash()[len(IMAGE):0x200], bytes(0x200 - len(IMAGE)))  # erased
    state = stage.state()
    t.assertEqual(state["written_blocks"], "5")
    t.assertEqual(state["calls"], "btl_init_driver_7853,btl_open_device,"
                                  "btl_close_device,btl_uninstall_driver")
    t.assertEqual(stage.tp_calls(), full_tp_calls(stage))
    out = result.stdout_lines()
    t.assertIn("[100%] done", out)
    t.assertIn("Upgrade checksum pass!", out)


def silent_check(t, stage, result):
    flash = stage.flash()
    t.assertEqual(flash[:128], IMAGE[:128])             # the two blocks it took
    t.assertEqual(flash[128:192], bytes(64))            # erased, never written
    state = stage.state()
    t.assertEqual(state["written_blocks"], "2")
    t.assertEqual(state["touch_enabled"], "1")


WRONG_ENTRY_TP = "ERROR: btl_upgrade.dll has no entry point btl_upgrade_init"
WRONG_ENTRY_BRIDGE = "btl_hid_transfer.dll has no entry point btl_init_driver_7853"
FAIL_EVERY_3 = "fail_every=3\n"

ROWS = [
    # --- the whole update path ---
    Row("full-update", 0,
        START + TP_INIT + tp("Upgrading from:{tp_path}") + TP_PASS + TP_OVER
        + fu("err: open touch device fail", "current force version: ") + FORCE_OPEN + written()
        + MATCHED + FORCE_CLOSE + FORCE_OK,
        check=full_success_check,
        absent=fu("checksum check failed" + "!" * 52)),
    Row("raw-image", 0,
        START + TP_OVER + FORCE_OPEN + written() + FORCE_CLOSE + FORCE_OK,
        force_file=(TARGET + ".bin", force_image(1000)),
        check=flash_holds(force_image(1000) + bytes(24))),
    # --- touchpad phase ---
    Row("tp-init-fails", 1,
        START + tp("Initializing...", "ERROR: Init failed with error code: -3") + TP_FAILED,
        tp_env={"BTL_SIM_INIT_RESULT": "-3"}, absent=calder("---start force update---"),
        check=all_of(tp_calls("btl_upgrade_init hw_id=ACPI\\BLTP7853 chip_id=0x41 have_boot=1 "
                              "options=0,1,0 zero=yes callbacks=yes -> -3"), sensor_untouched)),
    Row("tp-upgrade-error", 1,
        START + TP_INIT + tp("ERROR: Upgrade failed with error code: %d -7") + TP_FAILED,
        tp_env={"BTL_SIM_UPGRADE_RESULT": "-7"}, check=sensor_untouched,
        stdout=["ERROR: Upgrade failed with error code: -7"]),
    Row("tp-already-latest", 0,
        START + TP_INIT + TP_OVER + FORCE_OPEN + written() + FORCE_CLOSE + FORCE_OK,
        tp_env={"BTL_SIM_UPGRADE_RESULT": "12"}, absent=tp("Upgrade checksum pass!"),
        stdout=["INFO: Already latest version, no upgrade needed."]),
    Row("tp-checksum-read-fails", 1,
        START + TP_INIT + tp("SUCCESS: Upgrade completed successfully!", "Checksum: 65795",
                             "ERROR: Get checksum failed: -9", "Upgrade checksum failed!")
        + TP_FAILED,
        tp_env={"BTL_SIM_CHECKSUM_RESULT": "-9"}, check=sensor_untouched),
    Row("tp-checksum-mismatch", 1,
        START + TP_INIT + tp("SUCCESS: Upgrade completed successfully!", "Checksum: 65795",
                             "Checksum inside: 65795", "Upgrade checksum failed!") + TP_FAILED,
        tp_env={"BTL_SIM_CHECKSUM_MODE": "full32"}, check=sensor_untouched),
    Row("tp-no-firmware-folder", 1,
        START + TP_INIT + tp("Upgrading from:", "ERROR: Upgrade failed with error code: %d -4")
        + TP_FAILED,
        tp_firmware=None, check=sensor_untouched),
    Row("tp-empty-firmware", 1,
        START + TP_INIT + tp("SUCCESS: Upgrade completed successfully!", "file size == 0,exit")
        + TP_FAILED,
        tp_firmware=b"", tp_env={"BTL_SIM_UPGRADE_RESULT": "0"}, check=sensor_untouched),
    Row("tp-dll-missing", 1,
        START + tp("Initializing...", "ERROR: btl_upgrade.dll could not be loaded (error 126)",
                   "ERROR: Init failed with error code: 126") + TP_FAILED,
        tp_dll="missing", check=sensor_untouched),
    Row("tp-entry-point-missing", 1,
        START + tp("Initializing...", WRONG_ENTRY_TP, "ERROR: Init failed with error code: 127")
        + TP_FAILED,
        tp_dll="wrong", check=sensor_untouched),
    # --- force phase ---
    Row("force-init-fails", 0,
        TP_OVER + fu(">> Start Upgrade Force", "init driver...", "init driver fail: 5",
                     "open device...", "Open device success") + written() + FORCE_CLOSE
        + FORCE_OK,
        scenario="init_result=5\n", check=flash_holds(IMAGE)),
    Row("force-open-fails", 1,
        TP_OVER + fu(">> Start Upgrade Force", "init driver...", "init driver success",
                     "open device...", "Open device fail: 7", "enable touch",
                     " - enable touch fail", "close device success", "uninstall driver success")
        + FORCE_FAILED,
        scenario="open_result=7\n", absent=fu("disable touch"), check=sensor_untouched),
    Row("force-all-writes-fail", 1,
        TP_OVER + fu(">> Start Upgrade Force", "Open device success", "disable touch",
                     "disable touch fail")
        + failed_runs(CONNECT_FAILS, CONNECT_FAILS, CONNECT_FAILS)
        + fu("enable touch", " - enable touch fail", "close device success") + FORCE_FAILED,
        scenario="writes_fail=1\n", check=nothing_written),
    Row("force-block-rejected", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[uf("start write flash... ", "write flash data Error 5")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        scenario="rejected_block=1\nrejections=3\n"),
    Row("force-wrong-connect-replies", 1,
        TP_OVER + FORCE_OPEN + failed_runs(CONNECT_FAILS, CONNECT_FAILS, CONNECT_FAILS)
        + FORCE_CLOSE + FORCE_FAILED,
        scenario="wrong_connect_replies=6\n", check=nothing_written),
    Row("force-connect-recovers-on-third-run", 0,
        TP_OVER + FORCE_OPEN + failed_runs(CONNECT_FAILS, CONNECT_FAILS)
        + fu(">> retry upgrade force firmware:3") + written() + MATCHED + FORCE_CLOSE + FORCE_OK,
        scenario="wrong_connect_replies=4\n", check=flash_holds(IMAGE)),
    Row("force-version-mismatch", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[written(TARGET, "1.0.2.4", "upgrade failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=("1.0.2.4.bin", tagged(IMAGE))),
    Row("force-file-name-not-a-version", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[written(TARGET, "firmware", "upgrade failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=("firmware.bin", tagged(IMAGE))),
    # Erased flash reads 0xFF, so the read-back past a raw image differs.
    Row("force-checksum-mismatch-calibration-reads", 0,
        fu("current force version: 5.6.7.8") + FORCE_OPEN + written() + MISMATCHED
        + FORCE_CLOSE + fu("calidata: " + CALIBRATION) + entry_returned(0),
        entry="force", force_file=(TARGET + ".bin", force_image(1000)),
        device="erased_value=0xFF\n", touch=True,
        check=flash_holds(force_image(1000) + bytes(24))),
    Row("force-checksum-mismatch-calibration-fails", 1,
        TP_OVER + FORCE_OPEN + written() + MISMATCHED + FORCE_CLOSE
        + fu("err: open force device fail", level="ERROR")
        + fu("calidata: err: open force device fail") + FORCE_FAILED,
        force_file=(TARGET + ".bin", force_image(1000)), device="erased_value=0xFF\n",
        check=flash_holds(force_image(1000) + bytes(24))),
    # A failed read leaves the previous reply in the buffer, which the
    # read-back sums again: the calibration read judges the write.
    Row("force-bridge-fails-every-third-call", 0,
        FORCE_OPEN + written() + MISMATCHED + FORCE_CLOSE + fu("calidata: " + CALIBRATION)
        + entry_returned(0),
        entry="force", scenario=FAIL_EVERY_3, touch=True, check=flash_holds(IMAGE)),
    Row("force-bridge-fails-every-third-call-no-hid", 1,
        TP_OVER + FORCE_OPEN + written() + MISMATCHED + FORCE_CLOSE
        + fu("err: open force device fail", level="ERROR") + FORCE_FAILED,
        scenario=FAIL_EVERY_3, check=flash_holds(IMAGE)),
    Row("force-sensor-falls-silent-mid-write", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(uf("start write flash... ", "write flash data Error 5"),
                      CONNECT_FAILS, CONNECT_FAILS)
        + FORCE_CLOSE + FORCE_FAILED,
        scenario="silent_after_blocks=2\n", check=silent_check),
    Row("force-dll-missing", 1,
        TP_OVER + fu(">> Start Upgrade Force", "init driver...", "init driver fail: -1")
        + fu("btl_hid_transfer.dll could not be loaded, error 126", level="ERROR")
        + fu("open device...", "uninstall driver fail:-1") + FORCE_FAILED,
        bridge_dll="missing"),
    Row("force-entry-point-missing", 1,
        TP_OVER + fu(">> Start Upgrade Force", "init driver...", "init driver fail: -1")
        + fu(WRONG_ENTRY_BRIDGE, level="ERROR")
        + fu("open device...", "uninstall driver fail:-1") + FORCE_FAILED,
        bridge_dll="wrong"),
    # --- force firmware files ---
    Row("force-no-firmware-folder", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[uf("upgrading: writing to chip", "LoadFile failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=None, check=sensor_untouched),
    Row("force-empty-firmware", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[written("0.0.0.0", TARGET, "upgrade failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=(TARGET + ".bin", b"")),
    Row("force-oversized-raw-firmware", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[uf("upgrading: writing to chip", "LoadFile failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=(TARGET + ".bin", force_image(49984)), check=sensor_untouched),
    Row("force-oversized-tagged-firmware", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[uf("upgrading: writing to chip", "LoadFile failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=(TARGET + ".bin", tagged(force_image(50001))), check=sensor_untouched),
    Row("force-truncated-tagged-firmware", 1,
        TP_OVER + FORCE_OPEN
        + failed_runs(*[uf("upgrading: writing to chip", "LoadFile failed")] * 3)
        + FORCE_CLOSE + FORCE_FAILED,
        force_file=(TARGET + ".bin", tagged(IMAGE)[:50]), check=sensor_untouched),
    # --- version mode ---
    Row("version-no-device", 1, calder("err: open force device fail", level="ERROR"),
        args=("--version",), tp_dll="missing", bridge_dll="missing", marker=False,
        stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-force-collection-missing", 1, calder("err: open force device fail",
                                                      level="ERROR"),
        args=("--version",), touch=True, hid_env={"CALDER_SIM_HID_FAULTS": "no-col05"},
        marker=False, stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-touch-collection-missing", 1,
        calder("calidata: " + CALIBRATION) + calder("err: open touch device fail",
                                                    level="ERROR"),
        args=("--version",), touch=True, hid_env={"CALDER_SIM_HID_FAULTS": "no-col04"},
        marker=False, stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-calibration-never-ready", 1,
        calder("err: read force calibrate data fail", level="ERROR"),
        args=("--version",), touch=True, hid_env={"CALDER_SIM_HID_FAULTS": "never-ready"},
        marker=False, stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-zero-force-version", 1,
        calder("calidata: " + CALIBRATION) + calder("err: read force device fail",
                                                    level="ERROR"),
        args=("--version",), touch=True, hid_env={"CALDER_SIM_HID_FAULTS": "zero-force"},
        marker=False, stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-wrong-touch-answer", 1,
        calder("calidata: " + CALIBRATION) + calder("", level="ERROR"),
        args=("--version",), touch=True, hid_env={"CALDER_SIM_HID_FAULTS": "wrong-touch"},
        marker=False, stdout=["compound version:0.0.0.0.0.0.0.0"]),
    Row("version-full", 0,
        calder("calidata: " + CALIBRATION,
               "tp version : 1.2.3.4 force version : 5.6.7.8",
               "finish---------------------------------------"),
        args=("--version",), touch=True, stdout=["compound version:1.2.3.4.5.6.7.8"]),
]


class Prefix:
    """A Wine prefix with its own service folder, so its run marker is its own."""

    def __init__(self, path):
        self.path = Path(path)
        self.service = self.path / "drive_c" / "ProgramData" / "KORU" / "KoruDeviceService"
        self.marker = self.service / "Calder_ProcessPath.txt"

    def env(self):
        env = dict(os.environ)
        env.update({"WINEPREFIX": str(self.path), "WINEDEBUG": "-all",
                    "WINEDLLOVERRIDES": "mscoree,mshtml="})
        return env

    def wine_tool(self, *command):
        # The wineserver these start outlives them: it must not hold our pipes.
        subprocess.run(command, env=self.env(), stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=180)

    def start(self):
        """Creates the prefix if needed and keeps its wineserver up."""
        self.path.mkdir(parents=True, exist_ok=True)
        self.wine_tool("wineserver", "-p")
        # Without a boot of its own, the first program in a kept prefix
        # waited past the row time-out for the prefix's start-up.
        self.wine_tool("wineboot", "-i" if not (self.path / "system.reg").exists() else "-r")

    def stop(self):
        self.wine_tool("wineserver", "-k")

    def marker_text(self):
        return self.marker.read_bytes().decode("utf-16-le") if self.marker.exists() else None

    def clear_marker(self):
        if self.marker.exists():
            self.marker.unlink()


class MatrixStage(Stage):
    def __init__(self, row, prefix):
        # The HID stand-in's device paths lie under the stage folder.
        assert "col04" not in row.name and "col05" not in row.name
        super().__init__("fm-" + row.name)
        if row.entry == "force":
            self.exe = self.copy_in(FORCE_ENTRY, "calder.exe")
        self.row = row
        self.prefix = prefix
        self.record = self.dir / "btl_record.txt"
        self.stage_files(row)

    def run(self, *args, env=None, timeout=RUN_TIMEOUT):
        """As Stage.run, in this stage's prefix."""
        full_env = self.prefix.env()
        full_env.update(env or {})
        logs = self.prefix.service / "log"
        before = set(logs.glob("Calder_*.log")) if logs.exists() else set()
        start = time.monotonic()
        proc = subprocess.run(["wine", str(self.exe), *args], cwd=self.dir, env=full_env,
                              capture_output=True, timeout=timeout)
        elapsed = time.monotonic() - start
        new = sorted((set(logs.glob("Calder_*.log")) if logs.exists() else set()) - before)
        return Result(proc.returncode, proc.stdout.decode(errors="replace"),
                      proc.stderr.decode(errors="replace"), new[-1] if new else None, elapsed)

    def place_dll(self, kind, source, other, name):
        target = self.dir / name
        if target.exists():
            target.unlink()
        if kind == "stand-in":
            self.copy_in(source)
        elif kind == "wrong":
            self.copy_in(other, name)

    def stage_files(self, row):
        self.place_dll(row.tp_dll, UPGRADE_DLL, BRIDGE_DLL, "btl_upgrade.dll")
        self.place_dll(row.bridge_dll, BRIDGE_DLL, UPGRADE_DLL, "btl_hid_transfer.dll")
        for folder in ["TP", "Force"]:
            for old in (self.dir / folder).glob("*") if (self.dir / folder).exists() else []:
                old.unlink()
        if row.tp_firmware is not None:
            self.add("TP/tp_fw.bin", row.tp_firmware)
        if row.force_file is not None:
            self.add("Force/" + row.force_file[0], row.force_file[1])
        self.add("force_sensor_scenario.txt", (SENSOR + row.device + row.scenario).encode())
        if row.touch:
            for dll in ["hid.dll", "setupapi.dll"]:
                self.copy_in(TOUCH_HID / dll)

    def run_row(self, row):
        env = {"BTL_SIM_RECORD": windows_path(self.record)}
        env.update(row.tp_env)
        if self.record.exists():
            self.record.unlink()
        if row.touch:
            with hid_standins_in_system32(self.prefix.path) as overrides:
                return self.run(*row.args, env={**env, **row.hid_env, **overrides})
        return self.run(*row.args, env=env)

    # The sensor stand-in's files, read as the force phase's own test reads them.
    flash = force_e2e.ForceStage.flash
    state = force_e2e.ForceStage.state

    def tp_calls(self):
        return self.record.read_text().splitlines() if self.record.exists() else []


def clean_row(row):
    """The same machine with the faults removed and good files in place."""
    return Row(row.name, 0, [], args=row.args, entry=row.entry,
               touch=row.touch or "--version" in row.args, device=row.device)


def in_order(expected, lines):
    """The first expected line not found in order, or None. Lines starting
    with '~' are regular expressions."""
    at = 0
    for want in expected:
        while at < len(lines):
            line = lines[at]
            at += 1
            if (re.match(want[1:], line) if want.startswith("~") else line == want):
                break
        else:
            return want
    return None


class FaultMatrixTest(unittest.TestCase):
    def check_row(self, stage, row, result):
        lines = result.lines()
        expected = [line.format(tp_path=windows_path(stage.dir / "TP" / "tp_fw.bin"))
                    for line in row.lines]
        self.assertEqual(result.rc, row.rc, lines)
        missing = in_order(expected, lines)
        self.assertIsNone(missing, "not in order: %r\n%s" % (missing, "\n".join(lines)))
        for line in row.absent:
            self.assertNotIn(line, lines)
        out = result.stdout_lines()
        for line in row.stdout:
            self.assertIn(line, out)
        expected_marker = windows_path(stage.exe) if row.marker else None
        self.assertEqual(stage.prefix.marker_text(), expected_marker)
        if row.check:
            row.check(self, stage, result)

    def check_clean_run(self, stage, row):
        clean = clean_row(row)
        stage.stage_files(clean)
        result = stage.run_row(clean)
        self.assertEqual(result.rc, 0, result.lines())
        self.assertIsNone(stage.prefix.marker_text())
        if "--update" in row.args:
            self.assertEqual(result.lines()[-2:], FORCE_OK + calder("main returned: 0"))
            flash_holds(IMAGE)(self, stage, result)
        else:
            self.assertIn("compound version:1.2.3.4.5.6.7.8", result.stdout_lines())

    def run_case(self, row, prefix):
        """Runs a row and, if it fails, the clean run; the failure or None."""
        started = time.monotonic()
        try:
            prefix.clear_marker()
            stage = MatrixStage(row, prefix)
            self.check_row(stage, row, stage.run_row(row))
            if row.rc != 0:
                self.check_clean_run(stage, row)
            outcome = None
        except Exception as error:  # reported on the main thread, per row
            outcome = error
        print("  %-48s %5.1f s %s" % (row.name, time.monotonic() - started,
                                       "ok" if outcome is None else "FAILED"), file=sys.stderr)
        return outcome

    def test_matrix(self):
        prefixes = [Prefix(WINEPREFIX)] + [Prefix(BUILD / "e2e" / ("fm-prefix-%d" % n))
                                           for n in range(1, SHARDS)]
        outcomes = {}
        pending = list(ROWS)
        lock = threading.Lock()

        def worker(prefix):
            if prefix.path != WINEPREFIX:
                prefix.start()
            while True:
                with lock:
                    if not pending:
                        break
                    row = pending.pop(0)
                outcomes[row.name] = self.run_case(row, prefix)
            prefix.clear_marker()

        started = time.monotonic()
        threads = [threading.Thread(target=worker, args=(p,)) for p in prefixes]
        try:
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        finally:
            for prefix in prefixes[1:]:
                prefix.stop()
        passed = sum(1 for row in ROWS if outcomes.get(row.name, "missing") is None)
        print("fault matrix: %d cases, %d passed (%.0f s)" % (
            len(ROWS), passed, time.monotonic() - started))
        for row in ROWS:
            with self.subTest(row=row.name):
                if outcomes.get(row.name, "missing") is not None:
                    raise AssertionError("%s: %s" % (row.name, outcomes.get(row.name)))


if __name__ == "__main__":
    unittest.main(verbosity=2)
