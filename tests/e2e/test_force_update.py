"""The force phase end to end: the real Win32 seams and the lazily bound
btl_hid_transfer.dll, here the stand-in built from the sensor simulator,
driven through the force phase test entry (UpgradeForceFW alone, exit 0 or 1).
The stand-in keeps the simulated flash and the sensor's state beside itself."""

import unittest

from calder_e2e import BUILD, Stage, main

STAND_INS = BUILD / "stand-ins"
TOUCH_HID = BUILD / "sim" / "touch_hid"
FLASH_SIZE = 0xF000


def pattern(size, seed=1):
    return bytes((i * 7 + seed) % 251 + 1 for i in range(size))


def tagged(image):
    header = bytearray(b"\x5a" * 72)
    header[24:30] = b"AW8680"
    return bytes(header) + image


class ForceStage(Stage):
    def __init__(self, name, firmware=None, scenario="", with_bridge=True, with_touch=False):
        super().__init__(name)
        self.exe = self.copy_in(STAND_INS / "force_phase_entry.exe")
        self.env = {}
        if with_touch:
            # The touch device behind the program's own SetupAPI and HID code.
            for dll in ["hid.dll", "setupapi.dll"]:
                self.copy_in(TOUCH_HID / dll)
            self.env["WINEDLLOVERRIDES"] = "mscoree,mshtml=;setupapi,hid=n,b"
        if with_bridge:
            self.copy_in(STAND_INS / "btl_hid_transfer.dll")
            self.add("force_sensor_scenario.txt", scenario.encode())
        if firmware is not None:
            self.add("Force/" + firmware[0], firmware[1])

    def run(self, *args, env=None, timeout=180):
        return super().run(*args, env={**self.env, **(env or {})}, timeout=timeout)

    def flash(self):
        return (self.dir / "force_sensor_flash.bin").read_bytes()

    def state(self):
        text = (self.dir / "force_sensor_state.txt").read_text()
        return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)


def force_lines(result):
    """The force phase's own lines, from its start on."""
    lines = [line for line in result.lines() if " force_update.cpp: " in line]
    start = lines.index("INFO force_update.cpp: >> Start Upgrade Force")
    return lines[start:]


class ForceUpdateTest(unittest.TestCase):
    def check_written(self, stage, result, image):
        self.assertEqual(result.rc, 0, result.lines())
        flash = stage.flash()
        self.assertEqual(len(flash), FLASH_SIZE)
        self.assertEqual(flash[:len(image)], image)
        state = stage.state()
        self.assertEqual(state["mode"], "application")
        self.assertEqual(state["touch_enabled"], "1")
        self.assertEqual(state["bad_packets"], "0")
        self.assertEqual(state["calls"], "btl_init_driver_7853,btl_open_device,"
                                         "btl_close_device,btl_uninstall_driver")
        lines = force_lines(result)
        self.assertEqual(lines[:6], [
            "INFO force_update.cpp: >> Start Upgrade Force",
            "INFO force_update.cpp: init driver...",
            "INFO force_update.cpp: init driver success",
            "INFO force_update.cpp: open device...",
            "INFO force_update.cpp: Open device success",
            "INFO force_update.cpp: disable touch"])
        self.assertRegex(lines[6], r"^INFO force_update\.cpp: checksum : (\S+) filechecksum : \1$")
        self.assertEqual(lines[7:], [
            "INFO force_update.cpp: enable touch",
            "INFO force_update.cpp: close device success",
            "INFO force_update.cpp: uninstall driver success"])
        messages = result.messages()
        self.assertIn("read force version form firmware : 1.0.2.3", messages)
        self.assertIn("upgrade success", messages)
        self.assertEqual(result.lines()[-1], "INFO force_phase_entry.cpp: force phase returned: 0")

    def test_raw_image_is_written_byte_for_byte_with_its_padding(self):
        image = pattern(1000)
        stage = ForceStage("force-raw", ("1.0.2.3.bin", image), "version=1.0.2.3\n")
        result = stage.run()
        self.check_written(stage, result, image + bytes(24))
        self.assertEqual(int(stage.state()["written_blocks"]), 16)
        progress = [m for m in result.messages() if m.startswith("progress: ")]
        self.assertEqual(progress, ["progress: %d" % p for p in (12, 25, 37, 50, 62, 75, 87, 100)])

    def test_tagged_image_is_written_without_its_header(self):
        image = pattern(4000, 3)
        stage = ForceStage("force-tagged", ("1.0.2.3.bin", tagged(image)), "version=1.0.2.3\n")
        result = stage.run()
        self.check_written(stage, result, image)
        self.assertEqual(int(stage.state()["written_blocks"]), 63)  # 4000 / 64 rounded up

    def test_checksum_mismatch_is_judged_by_the_calibration_read_over_hid(self):
        # Erased flash reads 0xFF, so the read-back past a raw image differs.
        firmware = ("1.0.2.3.bin", pattern(1000))
        for faults, rc, verdict in [
                ("", 0, "calidata: 258 772 -1 -32768 12 0 7"),
                ("never-ready", 1, "calidata: err: read force calibrate data fail")]:
            stage = ForceStage("force-mismatch" + ("-" + faults if faults else ""), firmware,
                               "version=1.0.2.3\nerased_value=0xFF\n", with_touch=True)
            result = stage.run(env={"CALDER_SIM_HID_FAULTS": faults,
                                    "CALDER_SIM_FORCE_VERSION": "1.0.1.9"})
            self.assertEqual(result.rc, rc, result.lines())
            lines = [line for line in result.lines() if " force_update.cpp: " in line]
            self.assertEqual(lines[0], "INFO force_update.cpp: current force version: 1.0.1.9")
            self.assertIn("INFO force_update.cpp: checksum check failed" + "!" * 52, lines)
            self.assertEqual(lines[-1], "INFO force_update.cpp: " + verdict)
            if rc:
                self.assertEqual(lines[-2], "ERROR force_update.cpp: "
                                            "err: read force calibrate data fail")

    def test_open_failure_logs_its_sequence_and_fails(self):
        stage = ForceStage("force-open-fails", ("1.0.2.3.bin", pattern(100)), "open_result=7\n")
        result = stage.run()
        self.assertEqual(result.rc, 1)
        self.assertEqual(force_lines(result), [
            "INFO force_update.cpp: >> Start Upgrade Force",
            "INFO force_update.cpp: init driver...",
            "INFO force_update.cpp: init driver success",
            "INFO force_update.cpp: open device...",
            "INFO force_update.cpp: Open device fail: 7",
            "INFO force_update.cpp: enable touch",
            "INFO force_update.cpp:  - enable touch fail",
            "INFO force_update.cpp: close device success",
            "INFO force_update.cpp: uninstall driver success"])
        self.assertEqual(stage.state()["connects"], "0")
        self.assertNotIn("disable touch", result.messages())

    def test_missing_bridge_library_is_a_logged_failure(self):
        stage = ForceStage("force-no-dll", ("1.0.2.3.bin", pattern(100)), with_bridge=False)
        result = stage.run()
        self.assertEqual(result.rc, 1)
        lines = force_lines(result)
        self.assertEqual(lines[:5], [
            "INFO force_update.cpp: >> Start Upgrade Force",
            "INFO force_update.cpp: init driver...",
            "INFO force_update.cpp: init driver fail: -1",
            "ERROR force_update.cpp: btl_hid_transfer.dll could not be loaded, error 126",
            "INFO force_update.cpp: open device..."])
        self.assertIn("INFO force_update.cpp: uninstall driver fail:-1", lines)


if __name__ == "__main__":
    main()
