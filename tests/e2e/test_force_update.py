"""The force phase in a full --update of the real calder.exe: the stand-in
btl_upgrade.dll and btl_hid_transfer.dll beside it, the touch-device stand-ins
in the system folder. The force version is read over HID before the write, and
a read-back checksum that differs is judged by the calibration read over HID.
The bridge stand-in keeps the simulated flash and the sensor's state beside
itself."""

import unittest

from calder_e2e import BUILD, Stage, hid_standins_in_system32, main

UPGRADE_DLL = BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll"
BRIDGE_DLL = BUILD / "stand-ins" / "btl_hid_transfer.dll"
TP_FIRMWARE = b"\xff" * 0x102 + b"\x05"  # its checksum is what the stand-in reports


def pattern(size, seed=1):
    return bytes((i * 7 + seed) % 251 + 1 for i in range(size))


class ForceStage(Stage):
    def __init__(self, name, force_file, scenario):
        super().__init__(name)
        self.copy_in(UPGRADE_DLL)
        self.copy_in(BRIDGE_DLL)
        self.add("TP/tp_fw.bin", TP_FIRMWARE)
        self.add("Force/" + force_file[0], force_file[1])
        self.add("force_sensor_scenario.txt", scenario.encode())

    def flash(self):
        return (self.dir / "force_sensor_flash.bin").read_bytes()

    def state(self):
        text = (self.dir / "force_sensor_state.txt").read_text()
        return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)


class ForceUpdateTest(unittest.TestCase):
    def test_checksum_mismatch_is_judged_by_the_calibration_read_over_hid(self):
        # Erased flash reads 0xFF, so the read-back past a raw image differs.
        image = pattern(1000)
        for faults, rc, verdict in [
                ("", 0, "calidata: 258 772 -1 -32768 12 0 7"),
                ("never-ready", 1, "calidata: err: read force calibrate data fail")]:
            stage = ForceStage("force-mismatch" + ("-" + faults if faults else ""),
                               ("1.0.2.3.bin", image), "version=1.0.2.3\nerased_value=0xFF\n")
            with hid_standins_in_system32() as overrides:
                result = stage.run("--update", env={**overrides, "CALDER_SIM_HID_FAULTS": faults,
                                                    "CALDER_SIM_FORCE_VERSION": "1.0.1.9"})
            self.assertEqual(result.rc, rc, result.lines())
            self.assertEqual(stage.flash()[:len(image) + 24], image + bytes(24))
            lines = [line for line in result.lines() if " force_update.cpp: " in line]
            self.assertEqual(lines[0], "INFO force_update.cpp: current force version: 1.0.1.9")
            self.assertIn("INFO force_update.cpp: checksum check failed" + "!" * 52, lines)
            self.assertEqual(lines[-1], "INFO force_update.cpp: " + verdict)
            self.assertEqual(result.lines()[-1], "INFO calder.cpp: main returned: %d" % rc)


if __name__ == "__main__":
    main()
