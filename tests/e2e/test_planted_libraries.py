"""calder.exe runs elevated, so libraries are planted as an attacker would:
copies of a DLL that records its own load, named like the vendor, HID,
SetupAPI and rlottie libraries, in the folder calder.exe is started from and in a folder on
PATH, and for --version HID and SetupAPI beside calder.exe too (in --update
Wine's WMI provider takes setupapi.dll from the application folder, which is
trusted). None may load; calder.exe takes today's missing-library and no-device
paths. The log folder's chain is then planted with a link and a foreign owner,
as far as Wine shows them (a Unix symbolic link is a reparse point to Wine; a
folder of another Unix user is owned by someone else)."""

import os
import shutil
import unittest

from calder_e2e import (BUILD, HID_OVERRIDES, LOG_DIR, SERVICE_DIR, Stage, main, parse_log,
                        windows_path)
from test_force_update import BRIDGE_DLL, TP_FIRMWARE, UPGRADE_DLL

PLANTED = BUILD / "stand-ins" / "planted.dll"
NAMES = ["btl_upgrade.dll", "btl_hid_transfer.dll", "hid.dll", "setupapi.dll"]
# calder.exe imports rlottie.dll: the loader takes the one beside it.
PLANTED_NAMES = NAMES + ["rlottie.dll"]
FORCE_FAILED = ["ERROR force_update.cpp: btl_hid_transfer.dll could not be loaded, error 126",
                "ERROR calder.cpp: force update failed"]


class PlantedStage(Stage):
    def __init__(self, name, *beside):
        super().__init__(name)
        for dll in beside:
            self.copy_in(dll)
        self.add("TP/tp_fw.bin", TP_FIRMWARE)
        self.add("Force/1.0.2.3.bin", bytes(64))
        self.cwd, self.on_path = self.dir / "work", self.dir / "on-path"
        for folder in (self.cwd, self.on_path):
            for name in PLANTED_NAMES:
                self.copy_in(PLANTED, folder.relative_to(self.dir) / name)

    def run(self, *args):
        return super().run(*args, env={"WINEPATH": windows_path(self.on_path),
                                       "WINEDLLOVERRIDES": HID_OVERRIDES})

    def loaded(self):
        return sorted(str(p.relative_to(self.dir)) for p in self.dir.rglob("*.loaded"))


class PlantedLibrariesTest(unittest.TestCase):
    def test_nothing_planted_is_loaded_and_the_missing_library_paths_are_taken(self):
        for name, beside, args, rc, expected in [
                ("no-upgrade-dll", [], ["--update"], 1, [
                    "INFO tp_update.cpp: ERROR: btl_upgrade.dll could not be loaded (error 126)",
                    "ERROR calder.cpp: tp update failed"]),
                ("no-bridge-dll", [UPGRADE_DLL], ["--update"], 1, FORCE_FAILED),
                ("version-no-hid", [UPGRADE_DLL, BRIDGE_DLL], ["--version"], 1, [
                    "ERROR calder.cpp: err: open force device fail"])]:
            stage = PlantedStage("planted-" + name, *beside)
            if "--version" in args:  # nothing but calder.exe's own code loads these
                for dll in NAMES[2:]:  # here: from the system folder, not its own
                    stage.copy_in(PLANTED, dll)
            result = stage.run(*args)
            self.assertEqual(stage.loaded(), [], name)
            self.assertEqual(result.rc, rc, name)
            lines = result.lines()
            self.assertEqual([line for line in lines if line in expected], expected, lines)

    def test_without_rlottie_beside_it_calder_does_not_start_and_takes_no_planted_copy(self):
        stage = PlantedStage("planted-no-rlottie", UPGRADE_DLL, BRIDGE_DLL)
        (stage.dir / "rlottie.dll").unlink()
        result = stage.run("--version")
        self.assertEqual(stage.loaded(), [])
        self.assertNotEqual(result.rc, 0)
        self.assertEqual((result.log_path, result.stdout), (None, ""))

    def test_a_linked_or_foreign_folder_is_not_written_through(self):
        target = BUILD / "e2e" / "link-target"
        shutil.rmtree(target, ignore_errors=True)
        target.mkdir(parents=True)
        SERVICE_DIR.mkdir(parents=True, exist_ok=True)
        saved = SERVICE_DIR.with_name("KoruDeviceService.saved")
        SERVICE_DIR.rename(saved)
        service = "C:\\ProgramData\\KORU\\KoruDeviceService"
        try:
            for name, plant, refused in [
                    ("created", lambda: None, []),
                    ("linked", lambda: SERVICE_DIR.symlink_to(target),
                     ["log file refused: %s is a reparse point (junction or link)" % service,
                      "run marker refused: %s is a reparse point (junction or link)" % service]),
                    ("foreign", lambda: (LOG_DIR.mkdir(parents=True), os.chown(LOG_DIR, 4242, 0)),
                     ["log file refused: %s\\log is owned by someone other than SYSTEM, "
                      "Administrators, TrustedInstaller or this account" % service])]:
                plant()
                result = Stage("untrusted-" + name).run("--update")
                if not refused:  # what Wine keeps of the protected ACL: others only read
                    self.assertEqual([d.stat().st_mode & 0o7 for d in (SERVICE_DIR, LOG_DIR)],
                                     [4, 4])
                SERVICE_DIR.unlink() if SERVICE_DIR.is_symlink() else shutil.rmtree(SERVICE_DIR)
                self.assertEqual(result.log_path is None, bool(refused), name)
                self.assertEqual(list(target.iterdir()), [], name)
                lines = [repr(line) for line in parse_log(result.stdout)]
                self.assertEqual([line for line in lines if "refused" in line],
                                 ["ERROR logging.cpp: " + line for line in refused])
                self.assertEqual(lines[-1], "INFO calder.cpp: main returned: 1")
        finally:
            saved.rename(SERVICE_DIR)


if __name__ == "__main__":
    main()
