"""The guards around an update, end to end: a second calder.exe while one
updates, an end of the session during the force write, and a battery that
Wine reads from a power-supply folder bind-mounted over Linux's own."""

import subprocess
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from datetime import datetime

from calder_e2e import (BUILD, LOG_DIR, Stage, clear_marker, hid_standins_in_system32, main,
                        marker_text, windows_path)

BACKGROUND = ThreadPoolExecutor(max_workers=1)
VERSION_LINE = "INFO calder.cpp: Current version: 20260422-01"
RUNNING = "ERROR run_guards.cpp: another update is running"


class UpdateStage(Stage):
    """Everything a full update needs; the vendor library records its calls."""

    def __init__(self, name, image_size=0x400):
        super().__init__(name)
        for dll in [BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll",
                    BUILD / "stand-ins" / "btl_hid_transfer.dll", BUILD / "loading_dark.json"]:
            self.copy_in(dll)
        self.add("TP/tp_fw.bin", b"\xff" * 0x102 + b"\x05")
        self.image = bytes((i * 7 + 1) % 251 + 1 for i in range(image_size))
        self.add("Force/1.0.2.3.bin", self.image)
        self.add("force_sensor_scenario.txt", b"version=1.0.2.3\n")
        self.record = self.dir / "btl_record.txt"
        self.env = {"BTL_SIM_RECORD": windows_path(self.record)}

    def update(self, **kwargs):
        return self.run("--update", env={**self.env, **kwargs.pop("env", {})}, **kwargs)

    def flashed(self):
        flash = self.dir / "force_sensor_flash.bin"
        return flash.exists() and flash.read_bytes()[:len(self.image)] == self.image

    def in_background_until(self, text, env=None):
        """Starts an update and returns its future once its log holds text."""
        before = set(LOG_DIR.glob("Calder_*.log"))
        run = BACKGROUND.submit(self.update, env=env or {})
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and not run.done():
            if any(text in log.read_text(errors="replace")
                   for log in set(LOG_DIR.glob("Calder_*.log")) - before):
                return run
            time.sleep(0.05)
        raise AssertionError(f"the update never logged {text!r}")


def seconds_logged(result):
    stamps = [datetime.strptime(entry.time, "%Y-%m-%d %H:%M:%S.%f") for entry in result.log]
    return (stamps[-1] - stamps[0]).total_seconds()


class GuardsTest(unittest.TestCase):
    def test_a_second_run_while_one_updates_touches_nothing_and_exits_1_at_once(self):
        clear_marker()
        first = UpdateStage("guard-first")
        with hid_standins_in_system32() as overrides:
            run = first.in_background_until("---start tp update---", overrides)
            second = UpdateStage("guard-second")
            update = second.update(env=overrides)
            version = second.run("--version", env=overrides)
            result = run.result()
        for refused in (update, version):
            self.assertEqual((refused.rc, refused.lines()), (1, [VERSION_LINE, RUNNING]))
            self.assertLess(seconds_logged(refused), 1.0)
        self.assertIn("compound version:0.0.0.0.0.0.0.0", version.stdout_lines())
        # No library call, HID report, window or marker from the second.
        self.assertFalse(second.record.exists() or (second.dir / "devices").exists())
        self.assertFalse((second.dir / "force_sensor_state.txt").exists())
        self.assertEqual(marker_text(), None if result.rc == 0 else windows_path(first.exe))
        self.assertEqual(result.rc, 0, result.lines())
        self.assertTrue(first.flashed())
        self.assertNotIn(RUNNING, result.lines())

    def test_the_session_cannot_end_during_the_force_write_but_can_after(self):
        stage = UpdateStage("guard-session", image_size=0x2000)
        run = stage.in_background_until("start write flash")
        self.assertEqual(subprocess.run(["wineboot", "-e"]).returncode, 1)
        result = run.result()
        self.assertEqual(result.rc, 0, result.lines())
        self.assertTrue(stage.flashed())
        self.assertEqual(result.lines().count(
            "INFO shutdown_guard.cpp: shutdown refused: update in progress"), 1)
        self.assertEqual(subprocess.run(["wineboot", "-e"]).returncode, 0)

    def test_a_battery_below_25_percent_stops_the_update_before_any_device(self):
        for percent, rc in [(24, 1), (25, 0)]:
            clear_marker()
            stage = UpdateStage(f"guard-battery-{percent}")
            supply = stage.dir / "power_supply"
            # Wine turns charge into energy with the voltage, then the energy into
            # a percentage.
            for name, content in {"AC/type": "Mains", "AC/online": "0", "BAT0/type": "Battery",
                                  "BAT0/present": "1", "BAT0/status": "Discharging",
                                  "BAT0/voltage_now": "12000000",
                                  "BAT0/charge_now": str(percent * 100000),
                                  "BAT0/charge_full": "10000000"}.items():
                stage.add(f"power_supply/{name}", content.encode() + b"\n")
            on_battery = ["unshare", "-m", "sh", "-c",
                          f"mount --bind '{supply}' /sys/class/power_supply && exec \"$@\"", "sh"]
            result = stage.update(launcher=on_battery)
            self.assertEqual(result.rc, rc, result.lines())
            self.assertEqual(stage.flashed(), rc == 0)
            if rc == 1:
                self.assertEqual(result.lines(), [VERSION_LINE, "ERROR run_guards.cpp: battery too low "
                                 "for an update: 24 % on battery, needs 25 % or AC power"])
                self.assertFalse(stage.record.exists())
                self.assertIsNone(marker_text())


if __name__ == "__main__":
    main()
