"""The real calder.exe against a recorded laptop: both stand-in vendor DLLs
answer from a committed trace in tests/traces/ instead of their models. The
run ends as the recorded one did; a firmware file that differs by one byte
makes the bridge stand-in record where the run left its trace."""

import json
import re
import shutil
import unittest

from calder_e2e import BUILD, SOURCE, Stage, hid_standins_in_system32, main, windows_path

TRACES = SOURCE / "tests" / "traces"
STAND_INS = ["sim/btl_upgrade/btl_upgrade.dll", "stand-ins/btl_hid_transfer.dll", "loading_dark.json"]
WRITE_FLASH = re.compile(r"^ff570000..01810301")  # a Write flash command frame
LIBRARY_FILES = ("force_update.cpp", "update_fw.cpp", "read_firmware_content.cpp", "tp_update.cpp")


def update(name, trace=None, force_byte=None):
    """--update with the package the traces were recorded with; answered from
    the trace NAME.*.ndjson when given, else by the models."""
    stage = Stage("emulate-" + name)
    for built in STAND_INS:
        stage.copy_in(BUILD / built)
    shutil.copytree(TRACES / "package", stage.dir, dirs_exist_ok=True)
    if force_byte is not None:
        image = bytearray(stage.dir.joinpath("Force/1.0.2.3.bin").read_bytes())
        image[force_byte] ^= 0x01
        stage.add("Force/1.0.2.3.bin", bytes(image))
    scenario, env = "version=1.0.2.3\n", {}
    if trace:
        scenario += "trace=" + windows_path(TRACES / (trace + ".bridge.ndjson")) + "\n"
        env["BTL_SIM_TRACE"] = windows_path(TRACES / (trace + ".upgrade.ndjson"))
    stage.add("force_sensor_scenario.txt", scenario.encode())
    with hid_standins_in_system32() as overrides:
        result = stage.run("--update", env={**overrides, **env}, violations_expected=force_byte is not None)
    return result, [line.replace(windows_path(stage.dir), "<stage>") for line in result.lines()
                    if line.split(" ")[1].rstrip(":") in LIBRARY_FILES]


class TraceEmulationTest(unittest.TestCase):
    def test_a_recorded_laptop_answers_the_real_program_as_it_answered_the_recording(self):
        modelled_rc, modelled = update("models")
        result, lines = update("clean-update", trace="clean-update")
        self.assertEqual((result.rc, lines), (modelled_rc, modelled))
        self.assertEqual(result.rc, 0)
        self.assertIn("INFO update_fw.cpp: upgrade finish ret = 0", lines)

    def test_a_firmware_byte_that_differs_is_a_divergence_at_its_write(self):
        recorded = [json.loads(line) for line in (TRACES / "clean-update.bridge.ndjson").open()][1:]
        first_write = next(line["seq"] for line in recorded if WRITE_FLASH.match(line.get("in") or ""))
        result, _ = update("changed-byte", trace="clean-update", force_byte=0)
        self.assertEqual(result.rc, 1)
        self.assertTrue(result.violations[0].startswith(
            f"btl_hid_transfer: divergence at call {first_write}: "), result.violations)
        self.assertEqual(len(result.violations), 1, result.violations)


if __name__ == "__main__":
    main()
