"""The version report end to end: the real calder.exe finds "col04" and
"col05" through its own SetupAPI and HID code, here served by the stand-in
setupapi.dll and hid.dll built from the touch-device simulator and placed in
the system folder, the only place calder.exe takes them from."""

import unittest

from calder_e2e import Stage, hid_standins_in_system32, main
FALLBACK = "compound version:0.0.0.0.0.0.0.0"
FINISH = "finish---------------------------------------"


def version_lines(result):
    return [line for line in result.stdout_lines() if line.startswith("compound version:")]


def run_with_device(name, faults="", touch="1.2.3.4", force="5.6.7.8"):
    # The device paths lie under the stage folder: its name must not hold a tag.
    assert "col0" not in name
    stage = Stage(name)
    env = {"CALDER_SIM_HID_FAULTS": faults, "CALDER_SIM_TOUCH_VERSION": touch,
           "CALDER_SIM_FORCE_VERSION": force}
    with hid_standins_in_system32() as overrides:
        result = stage.run("--version", env={**env, **overrides})
    frames_file = stage.dir / "devices" / "frames.txt"
    result.frames = frames_file.read_text().splitlines() if frames_file.exists() else []
    return result


def queries(frames):
    """Which query each run of frames belongs to, in order."""
    names = []
    for frame in frames:
        collection, data = frame[:5], frame[6:].split()
        name = ("touch version" if collection == "col04"
                else "force version" if data[8] == "10" else "calibration")
        if not names or names[-1] != name:
            names.append(name)
    return names


class VersionReportTest(unittest.TestCase):
    def test_without_a_device_prints_the_fallback_and_fails(self):
        result = Stage("version-no-device").run("--version")
        self.assertEqual(result.rc, 1)
        self.assertEqual(version_lines(result), [FALLBACK])
        self.assertEqual(result.lines(), [
            "INFO calder.cpp: Current version: 20260422-01",
            "ERROR calder.cpp: err: open force device fail"])

    def test_the_device_found_through_setupapi_gives_the_full_version(self):
        result = run_with_device("version-full", touch="1.2.3.4", force="5.6.7.8")
        self.assertEqual(result.rc, 0, result.stdout)
        self.assertEqual(version_lines(result), ["compound version:1.2.3.4.5.6.7.8"])
        self.assertEqual(result.lines(), [
            "INFO calder.cpp: Current version: 20260422-01",
            "INFO calder.cpp: calidata: 258 772 -1 -32768 12 0 7",
            "INFO calder.cpp: tp version : 1.2.3.4 force version : 5.6.7.8",
            f"INFO calder.cpp: {FINISH}"])
        self.assertEqual(queries(result.frames), ["calibration", "force version", "touch version"])
        self.assertEqual(result.frames[-2:], [
            "col05 0D 07 16 00 00 01 00 04 10" + " 00" * 24,
            "col04 0E 07 B4 00 00 01 00 04 B6" + " 00" * 24])
        # The version line comes after the report's log lines and is complete
        # on its own line.
        out = result.stdout_lines()
        self.assertLess(out.index("compound version:1.2.3.4.5.6.7.8"),
                        next(i for i, line in enumerate(out) if line.endswith(FINISH)))

    def test_col05_held_elsewhere_cannot_be_opened_for_reading_and_writing(self):
        result = run_with_device("version-force-collection-held", faults="busy-col05")
        self.assertEqual(result.rc, 1)
        self.assertEqual(version_lines(result), [FALLBACK])
        self.assertEqual(result.lines()[-1], "ERROR calder.cpp: err: open force device fail")


if __name__ == "__main__":
    main()
