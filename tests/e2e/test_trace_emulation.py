# The real calder.exe against a recorded laptop: both stand-in vendor DLLs
# answer from a committed trace in tests/traces/ instead of their models. The
# run ends as the recorded one did; a firmware file that differs by one byte
# makes the stand-in record where the run left its trace.

import json
import re
import shutil
import unittest

from calder_e2e import BUILD, SOURCE, Stage, hid_standins_in_system32, main, windows_path

TRACES = SOURCE / "tests" / "traces"
STAND_INS = ["sim/btl_upgrade/btl_upgrade.dll", "stand-ins/btl_hid_transfer.dll", "loading_dark.json"]
WRITE_FLASH = "ff570000..01810301"  # a Write flash command frame
LIBRARY_FILES = ("force_update.cpp", "update_fw.cpp", "read_firmware_content.cpp", "tp_update.cpp")


# --update with the package the traces were recorded with and the sensor's
# scenario; answered from the traces TRACE.*.ndjson when given, else by the
# models. changed: a firmware file whose first byte differs.
def update(name, scenario="", trace=None, changed=None):
    stage = Stage("emulate-" + name)
    for built in STAND_INS:
        stage.copy_in(BUILD / built)
    shutil.copytree(TRACES / "package", stage.dir, dirs_exist_ok=True)
    if changed:
        data = (stage.dir / changed).read_bytes()
        stage.add(changed, bytes([data[0] ^ 1]) + data[1:])
    env = {}
    if trace:
        scenario += "trace=" + windows_path(TRACES / (trace + ".bridge.ndjson")) + "\n"
        env["BTL_SIM_TRACE"] = windows_path(TRACES / (trace + ".upgrade.ndjson"))
    stage.add("force_sensor_scenario.txt", ("version=1.0.2.3\n" + scenario).encode())
    with hid_standins_in_system32() as overrides:
        result = stage.run("--update", env={**overrides, **env}, violations_expected=bool(changed))
    return result, [repr(e).replace(windows_path(stage.dir), "<stage>") for e in result.log
                    if e.file.rsplit("/", 1)[-1] in LIBRARY_FILES]


def first_call(trace, fn, bytes_pattern=""):
    lines = [json.loads(line) for line in (TRACES / trace).read_text().splitlines()[1:]]
    return next(line["seq"] for line in lines
                if line.get("fn") == fn and re.match(bytes_pattern, line.get("in") or ""))


class TraceEmulationTest(unittest.TestCase):
    def test_a_recorded_laptop_answers_the_real_program_as_it_answered_the_recording(self):
        modelled = update("models", "wrong_connect_replies=2\n")
        result, lines = update("connect-wrong-twice", trace="connect-wrong-twice")
        self.assertEqual((result.rc, lines), (modelled[0].rc, modelled[1]))
        self.assertEqual(result.rc, 0)
        for line in ["INFO update_fw.cpp: ConnectCmd Error", "INFO update_fw.cpp: upgrade finish ret = 0"]:
            self.assertIn(line, lines)

    def test_a_firmware_byte_that_differs_is_a_divergence_at_the_call_that_carries_it(self):
        for changed, library, call in [
                ("Force/1.0.2.3.bin", "btl_hid_transfer",
                 first_call("clean-update.bridge.ndjson", "btl_write_data", WRITE_FLASH)),
                ("TP/tp_fw.bin", "btl_upgrade",
                 first_call("clean-update.upgrade.ndjson", "btl_upgrade_from_file"))]:
            result, _ = update("changed-" + library, trace="clean-update", changed=changed)
            self.assertEqual(result.rc, 1, changed)
            self.assertEqual(len(result.violations), 1, result.violations)
            self.assertTrue(result.violations[0].startswith(f"{library}: divergence at call {call}: "),
                            result.violations)


if __name__ == "__main__":
    main()
