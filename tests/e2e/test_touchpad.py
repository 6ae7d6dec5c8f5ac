"""The touchpad phase end to end: calder.exe --update resets the touchpad
through WMI (which Wine lacks), waits, and upgrades the touchpad through the
stand-in btl_upgrade.dll, whose record shows what the program asked of it."""

import unittest

from calder_e2e import BUILD, Stage, clear_marker, main, marker_text, windows_path

STAND_IN = BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll"
# Byte sum 0x1_0103: the chip reports only the low 16 bits.
FIRMWARE = b"\xff" * 0x102 + b"\x05"


class TouchpadPhaseTest(unittest.TestCase):
    def run_update(self, name, **scenario):
        clear_marker()
        stage = Stage(name)
        stage.add("TP/tp_fw.bin", FIRMWARE)
        stage.copy_in(STAND_IN)
        record = stage.dir / "btl_record.txt"
        env = {"BTL_SIM_RECORD": windows_path(record)}
        env.update(scenario)
        result = stage.run("--update", env=env)
        calls = record.read_text().splitlines() if record.exists() else []
        return stage, result, calls

    def test_reset_fails_under_wine_then_the_upgrade_runs_and_the_force_phase_follows(self):
        stage, result, calls = self.run_update("touchpad-upgrade")
        firmware = windows_path(stage.dir / "TP" / "tp_fw.bin")
        lines = result.lines()
        start = lines.index("INFO calder.cpp: ---start tp update---")
        expected = [
            "INFO calder.cpp: ---start tp update---",
            "INFO wmi_bios_tp_rst.cpp: Connected to root\\wmi WMI namespace",
            "INFO wmi_bios_tp_rst.cpp: Could not get object. Error code = -2147217406",
            "INFO calder.cpp: WMIBiosTPReset failed",
            "INFO tp_update.cpp: Initializing...",
            "INFO tp_update.cpp: Initialized successfully.",
            "INFO tp_update.cpp: Upgrading from:" + firmware,
            "INFO tp_update.cpp: SUCCESS: Upgrade completed successfully!",
            "INFO tp_update.cpp: Checksum: 65795",
            "INFO tp_update.cpp: Checksum inside: 259",
            "INFO tp_update.cpp: Upgrade checksum pass!",
            "INFO calder.cpp: tp update success",
            "INFO calder.cpp: ---tp update over---",
            "INFO calder.cpp: ---start force update---",
        ]
        self.assertEqual(lines[start:start + len(expected)], expected)
        # The reset is followed by 3000 ms before the interpreter starts.
        reset = next(e for e in result.log if e.message == "WMIBiosTPReset failed")
        init = next(e for e in result.log if e.message == "Initializing...")
        self.assertGreaterEqual(seconds(init.time) - seconds(reset.time), 2.99)

        out = result.stdout_lines()
        banner = out.index("BTL Firmware Upgrade Tool")
        self.assertEqual(out[banner - 1:banner + 8], [
            "========================================",
            "BTL Firmware Upgrade Tool",
            "========================================",
            "Hardware ID: ACPI\\BLTP7853",
            "Chip ID:     0x41",
            "Have Boot:   Yes",
            "========================================",
            "",
            "Initializing...",
        ])
        self.assertIn("[INFO] upgrade start", out)
        progress = [line for line in out if line.startswith("[") and "%]" in line]
        self.assertEqual(progress[0], "[  0%] writing")
        self.assertEqual(progress[-1], "[100%] done")
        for line in ["Checksum: 0x00010103", "Checksum inside : 0x00000103",
                     "Upgrade checksum pass!", "Deinitializing...", "Done."]:
            self.assertIn(line, out)

        self.assertEqual(calls, [
            "btl_upgrade_init hw_id=ACPI\\BLTP7853 chip_id=0x41 have_boot=1 options=0,1,0 "
            "zero=yes callbacks=yes -> 0",
            "btl_upgrade_from_file " + firmware + " -> 0",
            "btl_get_checksum -> 0",
            "btl_upgrade_deinit",
        ])

    def test_touchpad_failure_ends_the_update_and_leaves_the_marker(self):
        stage, result, calls = self.run_update("touchpad-failure", BTL_SIM_UPGRADE_RESULT="-7")
        self.assertEqual(result.rc, 1)
        messages = result.messages()
        self.assertIn("ERROR: Upgrade failed with error code: %d -7", messages)
        failed = messages.index("tp update failed")
        self.assertEqual(result.log[failed].level, "ERROR")
        self.assertEqual(result.log[failed].file, "calder.cpp")
        self.assertNotIn("---start force update---", messages)
        self.assertIn("ERROR: Upgrade failed with error code: -7", result.stdout_lines())
        self.assertEqual(marker_text(), windows_path(stage.exe))
        self.assertEqual(calls[-1], "btl_upgrade_deinit")
        self.assertNotIn("btl_get_checksum -> 0", calls)

    def test_missing_library_is_a_clear_touchpad_failure(self):
        clear_marker()
        stage = Stage("touchpad-no-library")
        stage.add("TP/tp_fw.bin", FIRMWARE)
        result = stage.run("--update")
        self.assertEqual(result.rc, 1)
        messages = result.messages()
        self.assertIn("ERROR: btl_upgrade.dll could not be loaded (error 126)", messages)
        self.assertIn("ERROR: Init failed with error code: 126", messages)
        self.assertLess(messages.index("ERROR: Init failed with error code: 126"),
                        messages.index("tp update failed"))


def seconds(stamp):
    """Seconds of the day from a log time stamp."""
    clock = stamp.split(" ")[1]
    hours, minutes, rest = clock.split(":")
    return int(hours) * 3600 + int(minutes) * 60 + float(rest)


if __name__ == "__main__":
    main()
