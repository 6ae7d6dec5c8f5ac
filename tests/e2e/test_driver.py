"""The real calder.exe wired to its surroundings: one full --update through
the stand-in vendor libraries, the log file it names and fills, and the run
marker it clears."""

import unittest

from calder_e2e import BUILD, LOG_DIR, Stage, clear_marker, main, marker_text, windows_path

UPGRADE_DLL = BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll"
BRIDGE_DLL = BUILD / "stand-ins" / "btl_hid_transfer.dll"
TP_FIRMWARE = b"\xff" * 0x102 + b"\x05"
# The simulated application reports the version stored at image offset 16.
IMAGE = bytes((i * 7 + 1) % 251 + 1 for i in range(16)) + bytes([1, 0, 2, 3]) + bytes(
    (i * 7 + 1) % 251 + 1 for i in range(20, 320))


def tagged(image):
    header = bytearray(b"\x5a" * 72)
    header[24:30] = b"AW8680"
    return bytes(header) + image


class FullUpdateTest(unittest.TestCase):
    def test_full_update_succeeds_logs_to_its_own_file_and_clears_the_marker(self):
        clear_marker()
        stage = Stage("full-update")
        stage.copy_in(UPGRADE_DLL)
        stage.copy_in(BRIDGE_DLL)
        tp_file = stage.add("TP/tp_fw.bin", TP_FIRMWARE)
        stage.add("Force/1.0.2.3.bin", tagged(IMAGE))
        stage.add("force_sensor_scenario.txt", b"version_offset=16\n")
        record = stage.dir / "btl_record.txt"
        result = stage.run("--update", env={"BTL_SIM_RECORD": windows_path(record)})

        self.assertEqual(result.rc, 0, result.lines())
        self.assertIsNone(marker_text())
        # Both libraries were bound from the program's folder and driven.
        self.assertIn("btl_upgrade_from_file " + windows_path(tp_file) + " -> 0",
                      record.read_text().splitlines())
        flash = (stage.dir / "force_sensor_flash.bin").read_bytes()
        self.assertEqual(flash[:len(IMAGE)], IMAGE)
        self.assertIn("mode=application\n", (stage.dir / "force_sensor_state.txt").read_text())

        # Calder_YYYY-MM-DD_hhmmss_<pid>.log in the service's log folder.
        self.assertEqual(result.log_path.parent, LOG_DIR)
        self.assertRegex(result.log_path.name, r"^Calder_\d{4}-\d{2}-\d{2}_\d{6}_\d+\.log$")
        self.assertEqual(result.lines()[0], "INFO calder.cpp: Current version: 20260422-01")
        self.assertIn("INFO tp_update.cpp: Upgrading from:" + windows_path(tp_file),
                      result.lines())
        self.assertEqual(result.lines()[-2:], ["INFO calder.cpp: force update success",
                                               "INFO calder.cpp: main returned: 0"])
        # No vendor WMI class and no touch device (Wine's, or a Windows without
        # them): the reset's and the version read's fallback lines.
        self.assertLessEqual({"INFO wmi_bios_tp_rst.cpp: Could not get object. Error code = -2147217406",
                              "INFO calder.cpp: WMIBiosTPReset failed",
                              "INFO force_update.cpp: err: open touch device fail"}, set(result.lines()))
        # Every line of the file, written with Windows line ends, also reaches
        # standard output in the same format.
        raw = result.log_path.read_bytes()
        self.assertEqual(raw.count(b"\r\n"), raw.count(b"\n"))
        self.assertEqual(len(result.log), raw.count(b"\n"))
        out = result.stdout_lines()
        for entry in result.log:
            self.assertTrue(any(line.endswith(f"{entry.file} {entry.line}: {entry.message}")
                                for line in out), entry)


if __name__ == "__main__":
    main()
