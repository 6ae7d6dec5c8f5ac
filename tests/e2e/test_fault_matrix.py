"""The fault matrix: what only the real calder.exe can meet from outside, one
row each — a vendor library missing or without its entry points, a firmware
folder missing or empty. Each row states the exit code, the lines that name
the fault, in order, and that the run marker stays behind with the program's
path."""

import sys
import time
import unittest

from calder_e2e import BUILD, Stage, clear_marker, main, marker_text, windows_path

UPGRADE_DLL = BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll"
BRIDGE_DLL = BUILD / "stand-ins" / "btl_hid_transfer.dll"
TP_FAILED = ["ERROR calder.cpp: tp update failed"]
FORCE_FAILED = ["ERROR calder.cpp: force update failed"]
NO_FORCE_FILE = ["INFO update_fw.cpp: LoadFile failed"] * 3 + FORCE_FAILED


def bridge_unbound(reason):
    return ["INFO force_update.cpp: init driver fail: -1", "ERROR force_update.cpp: " + reason,
            "INFO force_update.cpp: uninstall driver fail:-1"] + FORCE_FAILED


# name, btl_upgrade.dll, btl_hid_transfer.dll ("stand-in", "missing", or
# "other": the other library under this name, so no entry point is found),
# TP and Force folder contents (None: no folder), expected lines.
ROWS = [
    ("tp-library-missing", "missing", "stand-in", ["tp.bin"], ["1.0.2.3.bin"],
     ["INFO tp_update.cpp: ERROR: btl_upgrade.dll could not be loaded (error 126)"] + TP_FAILED),
    ("tp-entry-point-missing", "other", "stand-in", ["tp.bin"], ["1.0.2.3.bin"],
     ["INFO tp_update.cpp: ERROR: btl_upgrade.dll has no entry point btl_upgrade_init"]
     + TP_FAILED),
    ("tp-folder-missing", "stand-in", "stand-in", None, ["1.0.2.3.bin"],
     ["INFO tp_update.cpp: Upgrading from:"] + TP_FAILED),
    ("tp-folder-empty", "stand-in", "stand-in", [], ["1.0.2.3.bin"],
     ["INFO tp_update.cpp: Upgrading from:"] + TP_FAILED),
    ("force-library-missing", "stand-in", "missing", ["tp.bin"], ["1.0.2.3.bin"],
     bridge_unbound("btl_hid_transfer.dll could not be loaded, error 126")),
    ("force-entry-point-missing", "stand-in", "other", ["tp.bin"], ["1.0.2.3.bin"],
     bridge_unbound("btl_hid_transfer.dll has no entry point btl_init_driver_7853")),
    ("force-folder-missing", "stand-in", "stand-in", ["tp.bin"], None, NO_FORCE_FILE),
    ("force-folder-empty", "stand-in", "stand-in", ["tp.bin"], [], NO_FORCE_FILE),
]


def stage_row(name, upgrade, bridge, tp_files, force_files):
    stage = Stage("fm-" + name)
    for kind, own, other in [(upgrade, UPGRADE_DLL, BRIDGE_DLL), (bridge, BRIDGE_DLL, UPGRADE_DLL)]:
        if kind != "missing":
            stage.copy_in(own if kind == "stand-in" else other, own.name)
    for folder, files in [("TP", tp_files), ("Force", force_files)]:
        if files is not None:
            (stage.dir / folder).mkdir()
            for file in files:
                stage.add(folder + "/" + file, bytes(range(1, 255)) * 2)
    return stage


def first_missing(expected, lines):
    """The first expected line not found in order after the one before, or None."""
    rest = iter(lines)
    for want in expected:
        if not any(line == want for line in rest):
            return want
    return None


class FaultMatrixTest(unittest.TestCase):
    def test_matrix(self):
        passed = 0
        for name, upgrade, bridge, tp_files, force_files, expected in ROWS:
            with self.subTest(row=name):
                started = time.monotonic()
                clear_marker()
                stage = stage_row(name, upgrade, bridge, tp_files, force_files)
                result = stage.run("--update")
                lines = result.lines()
                self.assertEqual(result.rc, 1, lines)
                self.assertIsNone(first_missing(expected, lines), "\n".join(lines))
                self.assertEqual(marker_text(), windows_path(stage.exe))
                passed += 1
                print("  %-28s %5.1f s" % (name, time.monotonic() - started), file=sys.stderr)
        print("fault matrix: %d cases, %d passed" % (len(ROWS), passed))


if __name__ == "__main__":
    main()
