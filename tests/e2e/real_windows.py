"""What only real Windows shows of the real calder.exe; the suite runs it on
Windows only (e2e_real_windows, docs/TESTING.md). The progress window drawn by
real GDI+ is compared with the one Wine drew (test_progress_window's capture,
made where the tree was built), and the recorders' vendor folder is not loaded
from with an Interactive write grant or as a junction, real NTFS both."""

import ctypes
import subprocess
import time
import unittest

from calder_e2e import BUILD, Stage, main, windows_run
from test_progress_window import BACKGROUND, STAND_INS, Helper, window_stage, xwd_reader

WINE_CAPTURE = BUILD / "e2e" / "window-shown" / "shot.xwd"
BOX = (890, 490)  # the skin's box, centred on any screen
# Box points and their colour in both captures within 6 per channel: black
# background, the bar filled to 30 % and its track near the end.
SAME_COLOUR = [(10, 10), (300, 163), (850, 160), (185, 224), (725, 224)]
TEXT_ROWS = [(283, 336), (382, 404)]  # the big line and the first small one: white ink
PROTECTED = ["/inheritance:r", "/grant:r", "*S-1-5-18:(OI)(CI)F", "*S-1-5-32-544:(OI)(CI)F",
             "*S-1-5-11:(OI)(CI)RX"]


def screen():
    """(width, height, (x, y) -> (r, g, b)) of the screen as GDI has it, also saved as a BMP."""
    user, gdi = ctypes.windll.user32, ctypes.windll.gdi32
    for call in [user.GetDC, gdi.CreateCompatibleDC, gdi.CreateCompatibleBitmap, gdi.SelectObject]:
        call.restype = ctypes.c_void_p  # handles are 64-bit
    width, height = user.GetSystemMetrics(0), user.GetSystemMetrics(1)
    source = ctypes.c_void_p(user.GetDC(None))
    memory = ctypes.c_void_p(gdi.CreateCompatibleDC(source))
    bitmap = ctypes.c_void_p(gdi.CreateCompatibleBitmap(source, width, height))
    gdi.SelectObject(memory, bitmap)
    gdi.BitBlt(memory, 0, 0, width, height, source, 0, 0, 0x00CC0020 | 0x40000000)  # copy, layered too
    header = (ctypes.c_int32 * 10)(40, width, -height, 1 | (32 << 16), 0, 0, 0, 0, 0, 0)
    pixels = ctypes.create_string_buffer(width * height * 4)
    gdi.GetDIBits(memory, bitmap, 0, height, pixels, header, 0)
    gdi.DeleteObject(bitmap), gdi.DeleteDC(memory), user.ReleaseDC(None, source)
    data = pixels.raw  # BGRA, top row first
    (BUILD / "e2e" / "real-window.bmp").write_bytes(
        b"BM" + (54 + len(data)).to_bytes(4, "little") + bytes(4) + (54).to_bytes(4, "little")
        + bytes(header) + data)
    return width, height, lambda x, y: tuple(data[(y * width + x) * 4 + 2 - c] for c in range(3))


def in_box(width, height, at):
    left, top = (width - BOX[0]) // 2, (height - BOX[1]) // 2
    return lambda x, y: at(left + x, top + y)


def ink(at, rows):
    return sum(1 for y in range(*rows) for x in range(0, BOX[0], 2) if min(at(x, y)) > 200)


class RealWindowsTest(unittest.TestCase):
    def test_the_window_on_real_gdiplus_is_the_one_wine_draws(self):
        self.assertTrue(WINE_CAPTURE.exists(), "no Wine capture: run e2e_test_progress_window first")
        wine = in_box(1920, 1200, xwd_reader(WINE_CAPTURE))
        stage = window_stage("real-window")
        for dll in STAND_INS:
            stage.copy_in(dll)
        stage.add("TP/tp_fw.bin", bytes(range(256)) * 16)
        stage.add("Force/1.0.2.3.bin", bytes((i * 7 + 1) % 251 + 1 for i in range(0x4000)))
        stage.add("force_sensor_scenario.txt", b"version=1.0.2.3\n")
        helper = Helper(stage)
        run, shot = BACKGROUND.submit(stage.run, "--update"), None
        while not run.done() and shot is None:
            if helper.sighting():  # the bar a third filled, as in the Wine capture
                width, height, at = screen()
                shot = in_box(width, height, at) if in_box(width, height, at)(277, 224)[2] > 200 else None
            time.sleep(0.3)
        self.assertEqual(run.result().rc, 0)
        helper.stop()
        self.assertIsNotNone(shot, "the bar never filled to 30 %")
        self.assertEqual(helper.sighting()["rect"], f"0,0,{width},{height}")
        for point in SAME_COLOUR:
            for a, b in zip(shot(*point), wine(*point)):
                self.assertLessEqual(abs(a - b), 6, point)
        # The fonts differ (Microsoft YaHei here, WenQuanYi Micro Hei under
        # Wine): each text row's ink within a factor 1.5 of Wine's.
        for rows in TEXT_ROWS:
            self.assertLessEqual(max(ink(shot, rows), ink(wine, rows)),
                                 1.5 * min(ink(shot, rows), ink(wine, rows)), rows)

    def test_a_vendor_folder_open_to_interactive_users_or_a_junction_is_not_loaded_from(self):
        for name, plant, loaded in [
                ("protected", lambda vendor: None, True),
                ("interactive", lambda vendor: icacls(vendor, "/grant", "*S-1-5-4:(OI)(CI)W"), False),
                ("junction", lambda vendor: (vendor.rename(vendor.with_name("real")),
                                             subprocess.run(["cmd", "/c", "mklink", "/J", vendor,
                                                             vendor.with_name("real")], check=True)),
                 False)]:
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
            if not loaded:
                self.assertIn("ERROR: Init failed with error code: 126", result.messages())


def icacls(folder, *args):
    subprocess.run(["icacls", folder, *args], check=True, capture_output=True)


if __name__ == "__main__":
    main()
