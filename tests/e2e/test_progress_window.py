"""The window-mode run end to end: the gesture helper's messages, the progress
window as the helper sees it, and a screenshot of it while the update waits."""

import os
import struct
import subprocess
import time
import unittest
from pathlib import Path

from calder_e2e import BUILD, WINEPREFIX, Stage, clear_marker, main

HELPER = BUILD / "sim" / "gesture_helper" / "gesture_helper.exe"
STAND_INS = [BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll",
             BUILD / "stand-ins" / "btl_hid_transfer.dll"]

WS_POPUP = 0x80000000
WS_CAPTION = 0x00C00000
WS_DISABLED = 0x08000000
WS_EX_TOPMOST = 0x00000008
WS_EX_TRANSPARENT = 0x00000020
WS_EX_LAYERED = 0x00080000
WS_EX_NOACTIVATE = 0x08000000


def wine_env():
    env = dict(os.environ)
    env["WINEPREFIX"] = str(WINEPREFIX)
    env.setdefault("WINEDEBUG", "-all")
    env.setdefault("WINEDLLOVERRIDES", "mscoree,mshtml=")
    return env


class Helper:
    """gesture_helper.exe running in the same prefix, recording into a file."""

    def __init__(self, stage, seconds=60, quit_on_begin=False):
        self.record = stage.dir / "gesture_record.txt"
        ready = Path(str(self.record) + ".ready")
        for path in (self.record, ready):
            if path.exists():
                path.unlink()
        exe = stage.copy_in(HELPER)
        args = ["wine", str(exe), str(self.record.name), str(seconds)]
        if quit_on_begin:
            args.append("quit-on-begin")
        self.proc = subprocess.Popen(args, cwd=stage.dir, env=wine_env(),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 60
        while not ready.exists() and time.monotonic() < deadline:
            time.sleep(0.05)

    def lines(self):
        return self.record.read_text().splitlines() if self.record.exists() else []

    def stop(self):
        if self.proc.poll() is None:
            self.proc.kill()
        self.proc.wait()


def window_stage(name):
    stage = Stage(name)
    stage.copy_in(BUILD / "loading_dark.json")
    return stage


def sighting(lines):
    line = next((l for l in lines if l.startswith("window ")), None)
    if line is None:
        return None
    return dict(part.split("=", 1) for part in line.split()[1:])


class ProgressWindowTest(unittest.TestCase):
    def test_no_argument_notifies_the_helper_shows_the_window_and_exits_zero(self):
        stage = window_stage("window-no-argument")
        helper = Helper(stage)
        try:
            result = stage.run()
        finally:
            time.sleep(0.5)
            helper.stop()
        self.assertEqual(result.rc, 0)
        lines = result.lines()
        self.assertEqual(lines[:2], ["INFO calder.cpp: Current version: 20260422-01",
                                     "INFO calder.cpp: WM_USER + 1 message send "])
        self.assertEqual(lines[-2:], ["INFO calder.cpp: main returned: 0",
                                      "INFO calder.cpp: WM_USER + 2 message send "])
        record = helper.lines()
        self.assertEqual([l for l in record if l in ("begin", "end")], ["begin", "end"])

    def test_version_alone_shows_no_window_and_leaves_the_helper_alone(self):
        stage = window_stage("window-version-mode")
        helper = Helper(stage)
        try:
            result = stage.run("--version")
            time.sleep(1.0)  # the helper looks for the window 500 ms after it shows
        finally:
            helper.stop()
        self.assertEqual(result.rc, 1)
        self.assertIn("compound version:0.0.0.0.0.0.0.0", result.stdout_lines())
        self.assertNotIn("WM_USER + 1 message send ", result.messages())
        self.assertNotIn("can not find window", result.messages())
        self.assertEqual(helper.lines(), [])

    def test_window_covers_the_screen_topmost_layered_and_disabled(self):
        clear_marker()
        stage = window_stage("window-shown")
        stage.add("TP/tp.bin", b"\x01\x02")  # no touchpad library: the run waits 3 s and fails
        helper = Helper(stage)
        shot = stage.dir / "window.xwd"
        try:
            proc = subprocess.Popen(["wine", str(stage.exe), "--update"], cwd=stage.dir,
                                    env=wine_env(), stdout=subprocess.PIPE,
                                    stderr=subprocess.DEVNULL)
            deadline = time.monotonic() + 60
            while sighting(helper.lines()) is None and time.monotonic() < deadline:
                time.sleep(0.05)
            time.sleep(1.0)  # a few animation frames
            grab = grab_screen(shot)
            proc.communicate(timeout=120)
        finally:
            helper.stop()
        self.assertEqual(proc.returncode, 1)
        seen = sighting(helper.lines())
        self.assertIsNotNone(seen, helper.lines())
        style = int(seen["style"], 16)
        exstyle = int(seen["exstyle"], 16)
        self.assertTrue(style & WS_POPUP)
        self.assertFalse(style & WS_CAPTION)
        self.assertTrue(style & WS_DISABLED)
        self.assertEqual(exstyle & (WS_EX_LAYERED | WS_EX_NOACTIVATE | WS_EX_TOPMOST),
                         WS_EX_LAYERED | WS_EX_NOACTIVATE | WS_EX_TOPMOST)
        self.assertFalse(exstyle & WS_EX_TRANSPARENT)
        self.assertEqual(seen["alpha"], "230")
        self.assertEqual(seen["lwa"], "2")  # LWA_ALPHA
        self.assertEqual(seen["rect"], "0,0," + seen["screen"])
        self.assertEqual(seen["enabled"], "0")
        self.assertEqual(helper.lines()[0], "begin")

        self.assertEqual(grab.returncode, 0, grab.stderr)
        self.check_screenshot(shot, seen["screen"])

    def check_screenshot(self, shot, screen):
        if screen != "1920,1200":
            self.skipTest("screen is " + screen + ", the pixel checks assume 1920x1200")
        pixels = pixel_reader(shot)
        # Black everywhere but the drawn parts.
        for point in [(10, 10), (960, 100), (1900, 1190), (300, 578)]:
            self.assertEqual(pixels(*point), (0, 0, 0), point)
        # The bar's track at 0 %: band 574..584 below the 650-pixel control at x 597.
        self.assertColour(pixels(700, 579), (0x32, 0x32, 0x32))
        self.assertColour(pixels(1200, 579), (0x32, 0x32, 0x32))
        self.assertEqual(pixels(700, 570), (0, 0, 0))
        # "0%" in white at the right of the bar's row.
        white = [(x, y) for x in range(1247, 1323) for y in range(565, 592)
                 if min(pixels(x, y)) > 200]
        self.assertGreater(len(white), 10)
        # The spinner: blue pixels inside its 110 x 110 box at (905, 355).
        blue = [(x, y) for x in range(905, 1015, 2) for y in range(355, 465, 2)
                if pixels(x, y)[2] > 150 and pixels(x, y)[0] < 120]
        self.assertGreater(len(blue), 20)
        # The upgrading line below.
        text = [(x, y) for x in range(515, 1405, 3) for y in range(638, 691, 2)
                if min(pixels(x, y)) > 200]
        self.assertGreater(len(text), 20)

    def assertColour(self, actual, expected, tolerance=6):
        for a, e in zip(actual, expected):
            self.assertLessEqual(abs(a - e), tolerance, (actual, expected))

    def test_fill_follows_the_update_in_its_colour(self):
        if any(not dll.exists() for dll in STAND_INS):
            self.skipTest("stand-in libraries not built")
        clear_marker()
        stage = window_stage("window-fill")
        for dll in STAND_INS:
            stage.copy_in(dll)
        stage.add("TP/tp_fw.bin", bytes(range(256)) * 16)
        stage.add("Force/1.0.2.3.bin", bytes((i * 7 + 1) % 251 + 1 for i in range(0x4000)))
        stage.add("force_sensor_scenario.txt", b"version=1.0.2.3\n")
        shot = stage.dir / "fill.xwd"
        filled = None
        proc = subprocess.Popen(["wine", str(stage.exe), "--update"], cwd=stage.dir,
                                env=wine_env(), stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)
        try:
            # The force writer moves the bar from 20 to 80: wait for a third of it.
            deadline = time.monotonic() + 90
            while filled is None and proc.poll() is None and time.monotonic() < deadline:
                if grab_screen(shot).returncode == 0:
                    pixels = pixel_reader(shot)
                    if pixels_size(shot) != (1920, 1200):
                        break
                    if pixels(792, 579)[2] > 200:
                        filled = pixels
                time.sleep(0.3)
        finally:
            proc.communicate(timeout=120)
        if pixels_size(shot) != (1920, 1200):
            self.skipTest("the pixel checks assume a 1920x1200 screen")
        self.assertIsNotNone(filled, "the bar never filled to 30 %")
        self.assertColour(filled(700, 579), (0x34, 0x82, 0xFF))
        self.assertColour(filled(1240, 579), (0x32, 0x32, 0x32))
        self.assertEqual(filled(700, 570), (0, 0, 0))
        self.assertEqual(filled(700, 588), (0, 0, 0))

    def test_helper_gone_at_the_end_gets_no_end_message(self):
        stage = window_stage("window-helper-leaves")
        helper = Helper(stage, quit_on_begin=True)
        try:
            result = stage.run()
        finally:
            helper.stop()
        self.assertEqual(result.rc, 0)
        self.assertIn("INFO calder.cpp: WM_USER + 1 message send ", result.lines())
        self.assertNotIn("INFO calder.cpp: WM_USER + 2 message send ", result.lines())
        self.assertEqual(helper.lines(), ["begin"])

    def test_helper_missing_at_start_gets_nothing_even_if_it_appears(self):
        clear_marker()
        stage = window_stage("window-helper-late")
        stage.add("TP/tp.bin", b"\x01\x02")
        proc = subprocess.Popen(["wine", str(stage.exe), "--update"], cwd=stage.dir,
                                env=wine_env(), stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL)
        time.sleep(1.5)
        helper = Helper(stage)
        try:
            out, _ = proc.communicate(timeout=120)
        finally:
            helper.stop()
        lines = out.decode(errors="replace").splitlines()
        self.assertTrue(any(l.endswith("can not find window") for l in lines), lines)
        self.assertFalse(any("WM_USER + 2" in l for l in lines), lines)
        self.assertNotIn("begin", helper.lines())
        self.assertNotIn("end", helper.lines())


def grab_screen(path):
    """The X root window as an xwd dump (what the pixel checks read)."""
    return subprocess.run(["xwd", "-root", "-silent", "-display", os.environ.get("DISPLAY", ":0"),
                           "-out", str(path)], capture_output=True)


def pixels_size(xwd):
    return struct.unpack(">25I", Path(xwd).read_bytes()[:100])[4:6]


def pixel_reader(xwd):
    """(x, y) -> (r, g, b) from a 24/32-bit TrueColor xwd dump."""
    data = Path(xwd).read_bytes()
    fields = struct.unpack(">25I", data[:100])
    header_size, byte_order, bits_per_pixel, bytes_per_line = (
        fields[0], fields[7], fields[11], fields[12])
    masks = fields[14:17]
    ncolors = fields[19]
    pixels = data[header_size + ncolors * 12:]
    order = "little" if byte_order == 0 else "big"
    step = bits_per_pixel // 8
    shifts = [(m & -m).bit_length() - 1 for m in masks]

    def at(x, y):
        i = y * bytes_per_line + x * step
        value = int.from_bytes(pixels[i:i + step], order)
        return tuple((value & m) >> s for m, s in zip(masks, shifts))
    return at


if __name__ == "__main__":
    main()
