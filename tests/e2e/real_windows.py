"""What only real Windows shows of the real calder.exe, run there only
(docs/TESTING.md): the window on real GDI+ against the one Wine drew
(test_progress_window's capture, made where the tree was built), and the
recorders' vendor folder on real NTFS."""

import subprocess
import unittest

from calder_e2e import BUILD, Stage, main, windows_run
from test_progress_window import STAND_INS, update_filling_the_bar

WINE_CAPTURE = BUILD / "e2e" / "window-shown" / "shot.xwd"
BOX = (890, 490)  # the skin's box, centred on any screen
# Box points of one colour in both within 6 per channel: background, the bar
# filled to 30 % and its track near the end; and the rows of white text.
SAME_COLOUR = [(10, 10), (300, 163), (850, 160), (185, 224), (725, 224)]
TEXT_ROWS = [(283, 336), (382, 404)]
PROTECTED = ["/inheritance:r", "/grant:r", "*S-1-5-18:(OI)(CI)F", "*S-1-5-32-544:(OI)(CI)F", "*S-1-5-11:(OI)(CI)RX"]


def in_box(at):
    return lambda x, y: at((at.size[0] - BOX[0]) // 2 + x, (at.size[1] - BOX[1]) // 2 + y)


def ink(at, rows):  # white pixels in the rows, every second column
    return sum(1 for y in range(*rows) for x in range(0, BOX[0], 2) if min(at(x, y)) > 200)


class RealWindowsTest(unittest.TestCase):
    def test_the_window_on_real_gdiplus_is_the_one_wine_draws(self):
        self.assertTrue(WINE_CAPTURE.exists(), "no Wine capture: run e2e_test_progress_window first")
        wine = in_box(windows_run.xwd_reader(WINE_CAPTURE))
        result, seen, _, shot = update_filling_the_bar(
            "real-window", lambda stage: windows_run.screenshot(BUILD / "e2e" / "real-window.bmp"),
            lambda pixels: in_box(pixels)(277, 224)[2] > 200)
        self.assertEqual(result.rc, 0)
        self.assertIsNotNone(shot, "the bar never filled to 30 %")
        self.assertEqual(seen["rect"], "0,0,%d,%d" % shot.size)
        shot = in_box(shot)
        for point in SAME_COLOUR:
            self.assertLessEqual(max(abs(a - b) for a, b in zip(shot(*point), wine(*point))), 6, point)
        # The fonts differ (Microsoft YaHei here, WenQuanYi Micro Hei under Wine).
        for rows in TEXT_ROWS:
            self.assertLessEqual(max(ink(shot, rows), ink(wine, rows)),
                                 1.5 * min(ink(shot, rows), ink(wine, rows)), rows)

    def test_a_vendor_folder_open_to_interactive_users_or_a_junction_is_not_loaded_from(self):
        for name, plant, loaded in [
                ("protected", lambda vendor: None, True),
                ("interactive", lambda vendor: icacls(vendor, "/grant", "*S-1-5-4:(OI)(CI)W"), False),
                ("junction", lambda vendor: (vendor.rename(vendor.with_name("real")), subprocess.run(
                    ["cmd", "/c", "mklink", "/J", vendor, vendor.with_name("real")], check=True)), False)]:
            stage = Stage("real-vendor-" + name)
            for built in ["recorder/btl_upgrade.dll", "recorder/btl_hid_transfer.dll", "loading_dark.json"]:
                stage.copy_in(BUILD / built)
            for built in STAND_INS:
                stage.copy_in(built, "vendor/" + built.name)
            icacls(stage.dir / "vendor", *PROTECTED)
            stage.add("TP/tp_fw.bin", b"\xff" * 0x102 + b"\x05")
            stage.add("Force/1.0.2.3.bin", bytes(i % 251 + 1 for i in range(1000)))
            sensor = stage.add("sensor/force_sensor_scenario.txt", b"version=1.0.2.3\n").parent
            plant(stage.dir / "vendor")
            record = stage.dir / "btl_record.txt"
            result = stage.run("--update", env={"BTL_SIM_RECORD": windows_run.windows_path(record),
                                                "CALDER_FORCE_SIM_DIR": windows_run.windows_path(sensor)})
            self.assertEqual((result.rc == 0, record.exists()), (loaded, loaded), name)
            self.assertEqual("ERROR: Init failed with error code: 126" in result.messages(), not loaded, name)


def icacls(folder, *args):
    subprocess.run(["icacls", folder, *args], check=True, capture_output=True)


if __name__ == "__main__":
    main()
