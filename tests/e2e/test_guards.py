"""The guards around an update under Wine: a second calder.exe while one updates, a
session end during the force write, a battery faked through /sys/class/power_supply,
a vendor library that faults."""

import subprocess
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from datetime import datetime

from calder_e2e import (BUILD, LOG_DIR, Stage, clear_marker, hid_standins_in_system32, main,
                        marker_text, windows_path, windows_run)

BACKGROUND = ThreadPoolExecutor(max_workers=1)
# Wine turns the charge into energy with the voltage, then energy into percent.
BATTERY = {"AC/type": "Mains", "AC/online": 0, "BAT0/type": "Battery", "BAT0/present": 1,
           "BAT0/status": "Discharging", "BAT0/voltage_now": 12000000, "BAT0/charge_full": 10000000}


class UpdateStage(Stage):
    def __init__(self, name, image_size=0x400):
        super().__init__(name)
        for dll in ["sim/btl_upgrade/btl_upgrade.dll", "stand-ins/btl_hid_transfer.dll",
                    "loading_dark.json"]:
            self.copy_in(BUILD / dll)
        self.add("TP/tp_fw.bin", b"\xff" * 0x102 + b"\x05")
        self.image = self.add("Force/1.0.2.3.bin", bytes(i % 251 + 1 for i in range(image_size)))
        self.add("force_sensor_scenario.txt", b"version=1.0.2.3\n")
        # What the vendor library, the HID devices and the sensor leave when called.
        self.traces = [self.dir / n for n in ["btl_record.txt", "devices", "force_sensor_state.txt"]]

    def update(self, env=None, **kwargs):
        env = {"BTL_SIM_RECORD": windows_path(self.traces[0]), **(env or {})}
        return self.run("--update", env=env, **kwargs)

    def flashed(self):
        image = self.image.read_bytes()
        return (self.dir / "force_sensor_flash.bin").read_bytes()[:len(image)] == image

    def on_battery(self, percent):
        """A launcher under which Wine sees this charge and no AC power."""
        for name, value in {**BATTERY, "BAT0/charge_now": percent * 100000}.items():
            self.add(f"power_supply/{name}", f"{value}\n".encode())
        mount = f"mount --bind '{self.dir / 'power_supply'}' /sys/class/power_supply"
        return ["unshare", "-m", "sh", "-c", mount + ' && exec "$@"', "sh"]

    def update_in_background_until(self, text, **kwargs):
        before = set(LOG_DIR.glob("Calder_*.log"))
        run = BACKGROUND.submit(self.update, **kwargs)
        while not any(text in log.read_text(errors="replace")
                      for log in set(LOG_DIR.glob("Calder_*.log")) - before):
            if run.done():
                raise AssertionError(f"no {text!r} in {run.result().lines()}")
            time.sleep(0.05)
        return run


class GuardsTest(unittest.TestCase):
    def test_one_update_at_a_time_and_none_below_25_percent_on_battery(self):
        clear_marker()
        low = UpdateStage("guard-battery-24")
        result = low.update(launcher=low.on_battery(24))
        self.assertEqual((result.rc, result.lines()[1:], any(t.exists() for t in low.traces), marker_text()),
                         (1, ["ERROR run_guards.cpp: battery too low for an update: 24 % on "
                              "battery, needs 25 % or AC power"], False, None))

        first, second = UpdateStage("guard-battery-25"), UpdateStage("guard-second")
        with hid_standins_in_system32() as hid:
            run = first.update_in_background_until("---start tp update---", env=hid,
                                                   launcher=first.on_battery(25))
            refused = [second.update(env=hid), second.run("--version", env=hid)]
            result = run.result()
        # A refused run that is no update says what it was first.
        for each, mode in zip(refused, ([], ["INFO run_guards.cpp: version report refused"])):
            self.assertEqual((each.rc, each.lines()[1:]),
                             (1, mode + ["ERROR run_guards.cpp: another update is running"]))
            seconds = [datetime.strptime(entry.time, "%Y-%m-%d %H:%M:%S.%f") for entry in each.log]
            self.assertLess((seconds[-1] - seconds[0]).total_seconds(), 1.0)
        self.assertIn("compound version:0.0.0.0.0.0.0.0", refused[1].stdout_lines())
        self.assertFalse(any(trace.exists() for trace in second.traces))
        self.assertEqual((result.rc, first.flashed(), marker_text()), (0, True, None), result.lines())
        # Overlapping runs keep their log files apart.
        self.assertEqual(len({each.log_path for each in [result, *refused]}), 3)

    def test_the_session_cannot_end_during_the_force_write_but_can_after(self):
        stage = UpdateStage("guard-session", image_size=0x2000)
        run = stage.update_in_background_until("start write flash")
        self.assertEqual(subprocess.run(["wineboot", "-e"]).returncode, 1)
        result = run.result()
        self.assertEqual((result.rc, stage.flashed()), (0, True), result.lines())
        self.assertEqual(result.lines().count(
            "INFO shutdown_guard.cpp: shutdown refused: update in progress"), 1)
        self.assertEqual(subprocess.run(["wineboot", "-e"]).returncode, 0)

    def test_a_session_that_ends_anyway_leaves_its_line_and_exit_code_1(self):
        stage = UpdateStage("guard-forced-end", image_size=0x2000)
        run = stage.update_in_background_until("start write flash")
        forced = windows_run.run(BUILD / "sim/session_end/session_end.exe", capture_output=True,
                                 text=True)
        result = run.result()
        self.assertEqual((forced.stdout.strip(), result.rc), ("query answered 0", 1))
        self.assertEqual(result.lines()[-1], "ERROR shutdown_guard.cpp: session ending during update")
        self.assertFalse(stage.flashed())

    def test_a_fault_in_the_vendor_library_ends_the_run_and_the_next_one_runs(self):
        stage = UpdateStage("guard-fault")
        result = stage.update(env={"BTL_SIM_FAULT": "btl_upgrade_from_file"})
        self.assertEqual(result.rc, 1, result.lines())
        self.assertRegex(result.lines()[-1], r"^ERROR crash_ending\.cpp: unhandled exception 0xC0000005 "
                                             r"in btl_upgrade\.dll\+0x[0-9A-F]+$")
        again = UpdateStage("guard-after-fault").update()
        self.assertEqual(again.rc, 0, again.lines())


if __name__ == "__main__":
    main()
