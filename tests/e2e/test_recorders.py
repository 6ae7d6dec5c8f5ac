"""The recorders in front of the stand-in vendor DLLs: a run through them is
the run without them and calder.exe records its own HID traffic, an update
and a version run replay without a warning, a vendor folder open to ordinary
users, foreign or a link is not loaded from (foreign or a link, it is no
recording layout at all), and a run cut off during the force write leaves a
bridge trace that ends where the sensor stopped and replays to that cut."""

import json
import os
import re
import shutil
import subprocess
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from calder_e2e import (BUILD, LOG_DIR, SOURCE, Stage, hid_standins_in_system32, main, windows_path,
                        windows_run)

STAND_INS = ["sim/btl_upgrade/btl_upgrade.dll", "stand-ins/btl_hid_transfer.dll", "loading_dark.json"]
BACKGROUND = ThreadPoolExecutor(max_workers=1)
WRITE_FLASH = re.compile(r"^ff570000..01810301")  # a Write flash command frame


class SensorStage(Stage):
    """calder.exe with the stand-ins and firmware; recording=True turns it
    into the recording layout with scripts/recording-package."""

    def __init__(self, name, recording, image_size=1000):
        super().__init__(name + "-plain")
        for built in STAND_INS:
            self.copy_in(BUILD / built)
        self.add("TP/tp_fw.bin", b"\xff" * 0x102 + b"\x05")
        self.add("Force/1.0.2.3.bin", bytes(i % 251 + 1 for i in range(image_size)))
        if recording:
            plain, self.dir = self.dir, BUILD / "e2e" / name
            subprocess.run(["rm", "-rf", self.dir], check=True)
            subprocess.run([SOURCE / "scripts/recording-package", plain, self.dir], check=True,
                           env={**os.environ, "CALDER_RECORDERS": str(BUILD / "recorder")},
                           stdout=subprocess.DEVNULL)
            self.exe, self.cwd = self.dir / "calder.exe", self.dir
        self.sensor = self.add("sensor/force_sensor_scenario.txt", b"version=1.0.2.3\n").parent
        self.record = self.dir / "btl_record.txt"

    def update(self, env=None, **kwargs):
        return self.run("--update", env={"CALDER_FORCE_SIM_DIR": windows_path(self.sensor),
                                         "BTL_SIM_RECORD": windows_path(self.record), **(env or {})},
                        **kwargs)

    def seen(self):
        """What the stand-ins saw: the upgrade library's calls, the sensor's state and flash."""
        return [self.record.read_text().replace(windows_path(self.dir), "<stage>"),
                (self.sensor / "force_sensor_state.txt").read_text(),
                (self.sensor / "force_sensor_flash.bin").read_bytes()]


def traces(result):
    """The run's trace files by library, found by the pid in its log's name."""
    pid = re.search(r"_(\d+)\.log$", result.log_path.name).group(1)
    return {re.search(r"_([a-z]+)\.ndjson$", p.name).group(1): p
            for p in LOG_DIR.glob(f"CalderTrace_*_{pid}_*.ndjson")}


class RecordersTest(unittest.TestCase):
    def test_a_recorded_run_is_the_run_without_recorders_and_replays_without_a_warning(self):
        runs = []
        for recording in [False, True]:
            stage = SensorStage("recorders-same", recording)
            with hid_standins_in_system32() as overrides:
                result = stage.update(env=overrides)
                version = stage.run("--version", env=overrides)
            log = [line.replace(windows_path(stage.dir), "<stage>") for line in result.lines()]
            printed = [line for line in version.stdout_lines() if line.startswith("compound")]
            runs.append((result.rc, log, stage.seen(), printed, version.lines(),
                         traces(result), traces(version)))
        *plain, none, no_version_trace = runs[0]
        *recorded_run, recorded, version_trace = runs[1]
        self.assertEqual(recorded_run, plain)
        self.assertEqual((plain[0], none, no_version_trace), (0, {}, {}))
        self.assertEqual((sorted(recorded), sorted(version_trace)), (["bridge", "hid", "upgrade"], ["hid"]))
        for library, last in [("bridge", "btl_uninstall_driver"), ("upgrade", "btl_upgrade_deinit"),
                              ("hid", "hid_close")]:
            text = recorded[library].read_text()
            lines = [json.loads(line) for line in text.splitlines()]
            self.assertEqual((lines[0]["calder_trace"], lines[-1]["fn"]), (2, last))
            # Paths relative to the package: nothing names this machine's folders.
            self.assertNotIn(windows_path(stage.dir).lower(), text.replace("\\\\", "\\").lower())
        paths = [json.loads(line).get("path") for line in recorded["upgrade"].read_text().splitlines()]
        self.assertIn("TP\\tp_fw.bin", paths)
        for run in [recorded, version_trace]:
            replay = subprocess.run(["wine", BUILD / "calder-replay.exe", "--package",
                                     windows_path(stage.dir), *map(windows_path, run.values())],
                                    capture_output=True, text=True)
            self.assertEqual(replay.returncode, 0, replay.stdout + replay.stderr)
            self.assertNotIn("warning", replay.stdout + replay.stderr)

    def test_a_vendor_folder_or_library_others_may_change_is_not_loaded_and_the_trace_says_why(self):
        # As Wine shows them: o+w lets Everyone write, another Unix user owns,
        # a symbolic link to a folder is a reparse point.
        def planted_dependency(vendor):
            shutil.copy(BUILD / "stand-ins/dependent/btl_hid_transfer.dll", vendor)
            shutil.copy(BUILD / "stand-ins/planted.dll", vendor)
            (vendor / "planted.dll").chmod(0o666)
        everyone = "Everyone (S-1-1-0) may write it"
        for name, plant, refused, why in [
                ("open", lambda vendor: vendor.chmod(0o777), "vendor\\", everyone),
                ("foreign", lambda vendor: os.chown(vendor, 4242, 0), "vendor\\",
                 "is owned by NT AUTHORITY\\ANONYMOUS LOGON (S-1-5-7)"),
                ("linked", lambda vendor: (vendor.rename(vendor.with_name("real")),
                                           vendor.symlink_to("real")),
                 "vendor\\", "is a reparse point (junction or link)"),
                ("open-library", lambda vendor: (vendor / "btl_hid_transfer.dll").chmod(0o666),
                 "vendor\\btl_hid_transfer.dll", everyone),
                ("planted-dependency", planted_dependency, "vendor\\planted.dll", everyone)]:
            stage = SensorStage("recorders-vendor-" + name, True)
            plant(stage.dir / "vendor")
            result = stage.update()
            self.assertEqual(result.rc, 1, name)
            self.assertEqual(list(stage.dir.rglob("*.loaded")), [], name)
            # A refused folder stops the run at the upgrade library's first call.
            folder = refused == "vendor\\"
            trace = traces(result)["upgrade" if folder else "bridge"].read_text().splitlines()
            self.assertEqual([json.loads(line) for line in trace[1:]],
                             [{"seq": 1, "t_us": 0, "refused": refused, "why": why}], name)
            if folder:
                self.assertIn("ERROR: Init failed with error code: 126", result.messages())
                self.assertFalse(stage.record.exists() or (stage.sensor / "force_sensor_state.txt").exists())

    def test_a_vendor_folder_of_another_owner_or_a_link_is_no_layout_and_records_no_hid(self):
        for name, plant in [("foreign", lambda vendor: os.chown(vendor, 4242, 0)),
                            ("linked", lambda vendor: (vendor.rename(vendor.with_name("real")),
                                                       vendor.symlink_to("real")))]:
            stage = SensorStage("recorders-no-layout-" + name, True)
            plant(stage.dir / "vendor")
            with hid_standins_in_system32() as overrides:
                result = stage.run("--version", env=overrides)
            self.assertEqual((result.rc, traces(result)), (0, {}), name)

    def test_a_run_cut_off_during_the_write_keeps_its_trace_up_to_the_cut(self):
        stage = SensorStage("recorders-cut", True, image_size=0x2000)
        before = set(LOG_DIR.glob("Calder_*.log"))
        run = BACKGROUND.submit(stage.update)
        while not any("start write flash" in log.read_text(errors="replace")
                      for log in set(LOG_DIR.glob("Calder_*.log")) - before):
            self.assertFalse(run.done(), "the run ended before its force write")
            time.sleep(0.05)
        time.sleep(1)  # some blocks into the write
        log = next(iter(set(LOG_DIR.glob("Calder_*.log")) - before))
        pid = re.search(r"_(\d+)\.log$", log.name).group(1)
        windows_run.run("taskkill", "/f", "/pid", pid, capture_output=True, check=True)
        result = run.result()
        cut = traces(result)
        text = cut["bridge"].read_text()
        lines = text[:text.rfind("\n") + 1].splitlines()  # a line cut mid-way is dropped
        state = dict(line.split("=", 1) for line in (stage.sensor / "force_sensor_state.txt")
                     .read_text().splitlines())
        traced = sum(1 for line in lines[1:] if WRITE_FLASH.match(json.loads(line).get("in") or ""))
        self.assertNotIn("main returned", result.log_text)
        self.assertTrue(0 < traced < 0x2000 // 64, traced)
        # The line of a call cut in flight may be missing, no more.
        self.assertIn(int(state["written_blocks"]) - traced, (0, 1))
        # Replayed, every recorded call matches and the run goes on past the cut.
        replay = windows_run.run(BUILD / "calder-replay.exe", "--package", windows_path(stage.dir),
                                 *map(windows_path, cut.values()), capture_output=True, text=True)
        self.assertEqual(replay.returncode, 5, replay.stdout + replay.stderr)


if __name__ == "__main__":
    main()
