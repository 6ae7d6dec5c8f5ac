"""The driver routine end to end: logging, dispatch, the run marker and the
update sequence's order with phases that have nothing to talk to."""

import re
import unittest

from calder_e2e import LOG_DIR, Stage, clear_marker, main, marker_text, windows_path


class DriverTest(unittest.TestCase):
    def test_no_argument_logs_the_version_and_finishes_with_zero(self):
        result = Stage("no-argument").run()
        self.assertEqual(result.rc, 0)
        self.assertIsNotNone(result.log_path, "no log file was written")
        self.assertRegex(result.log_path.name, r"^Calder_\d{4}-\d{2}-\d{2}_\d{6}_\d+\.log$")
        self.assertEqual(result.log_path.parent, LOG_DIR)
        self.assertEqual(result.lines()[0], "INFO calder.cpp: Current version: 20260422-01")
        self.assertEqual(result.lines()[-2:], [
            "INFO calder.cpp: finish---------------------------------------",
            "INFO calder.cpp: main returned: 0"])
        # Every log line also reaches standard output, in the same format.
        for entry in result.log:
            self.assertTrue(any(line.endswith(f"{entry.file} {entry.line}: {entry.message}")
                                for line in result.stdout_lines()), entry)

    def test_each_run_writes_a_log_file_of_its_own(self):
        stage = Stage("two-runs")
        first = stage.run()
        second = stage.run()
        self.assertIsNotNone(first.log_path)
        self.assertIsNotNone(second.log_path)
        self.assertNotEqual(first.log_path, second.log_path)

    def test_unknown_or_wrong_case_command_is_refused(self):
        stage = Stage("refused")
        for argument in ["--UPDATE", "bogus"]:
            result = stage.run(argument)
            self.assertEqual(result.rc, 1, argument)
            self.assertIn("INFO calder.cpp: invalid input", result.lines())
            self.assertNotIn("finish---------------------------------------", result.messages())

    def test_update_without_a_touchpad_library_fails_and_leaves_the_marker(self):
        clear_marker()
        stage = Stage("update-no-devices")
        stage.add("TP/tp.bin", b"\x01\x02")
        result = stage.run("--update", "ignored")
        self.assertEqual(result.rc, 1)
        messages = result.messages()
        order = ["---start tp update---", "WMIBiosTPReset failed", "tp update failed"]
        positions = [messages.index(m) for m in order]
        self.assertEqual(positions, sorted(positions), messages)
        self.assertNotIn("---start force update---", messages)
        self.assertEqual(result.log[messages.index("tp update failed")].level, "ERROR")
        self.assertEqual(marker_text(), windows_path(stage.exe))
        # The reset is followed by a 3000 ms pause before the touchpad phase.
        self.assertGreaterEqual(result.elapsed, 3.0)


if __name__ == "__main__":
    main()
