"""The window-mode run end to end: the gesture helper's messages, and the
progress window on screen as the helper and a screenshot see it while a full
update fills its bar."""

import subprocess
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from calder_e2e import BUILD, Stage, clear_marker, main, windows_run

# stage.run beside the test; result() gives its result or raises its error.
BACKGROUND = ThreadPoolExecutor(max_workers=1)
HELPER = BUILD / "sim" / "gesture_helper" / "gesture_helper.exe"
STAND_INS = [BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll",
             BUILD / "stand-ins" / "btl_hid_transfer.dll"]
# Window styles: popup, caption, disabled; topmost, click-through, layered, no-activate.
WS_POPUP, WS_CAPTION, WS_DISABLED = 0x80000000, 0x00C00000, 0x08000000
WS_EX_TOPMOST, WS_EX_TRANSPARENT, WS_EX_LAYERED, WS_EX_NOACTIVATE = 0x8, 0x20, 0x80000, 0x8000000


class Helper:
    """gesture_helper.exe in the same prefix, recording into a file."""

    def __init__(self, stage, quit_on_begin=False):
        self.record = stage.dir / "gesture_record.txt"
        ready = Path(str(self.record) + ".ready")
        args = [stage.copy_in(HELPER), self.record.name, "60"]
        self.proc = windows_run.start(*args, *(["quit-on-begin"] if quit_on_begin else []),
                                      cwd=stage.dir, stdout=subprocess.DEVNULL,
                                      stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 60
        while not ready.exists() and time.monotonic() < deadline:
            time.sleep(0.05)

    def lines(self):
        return self.record.read_text().splitlines() if self.record.exists() else []

    def sighting(self):
        line = next((l for l in self.lines() if l.startswith("window ")), None)
        return dict(part.split("=", 1) for part in line.split()[1:]) if line else None

    def stop(self):
        self.proc.kill()
        self.proc.wait()


def window_stage(name):
    stage = Stage(name)
    stage.copy_in(BUILD / "loading_dark.json")
    return stage


def update_filling_the_bar(name, screenshot, filled_at, drawn_at=lambda pixels: True):
    """A full --update with the helper there and screenshot(stage) taken until filled_at
    it: the result, the helper's sighting, the first drawn_at screenshot and the filled one."""
    clear_marker()
    stage = window_stage(name)
    for dll in STAND_INS:
        stage.copy_in(dll)
    stage.add("TP/tp_fw.bin", bytes(range(256)) * 16)
    stage.add("Force/1.0.2.3.bin", bytes((i * 7 + 1) % 251 + 1 for i in range(0x4000)))
    stage.add("force_sensor_scenario.txt", b"version=1.0.2.3\n")
    helper = Helper(stage)
    run = BACKGROUND.submit(stage.run, "--update")
    shown = filled = None
    while not run.done() and filled is None:
        pixels = helper.sighting() and screenshot(stage)
        if pixels:
            shown = shown or (pixels if drawn_at(pixels) else None)  # painted once
            # The force writer moves the bar from 20 to 80: wait for a third.
            filled = pixels if filled_at(pixels) else None
        time.sleep(0.3)
    result = run.result()
    helper.stop()
    return result, helper.sighting(), shown, filled


class ProgressWindowTest(unittest.TestCase):
    def test_helper_gets_begin_and_end_only_if_it_was_there_and_stays(self):
        # helper: "present", "leaves" (quits on begin) or "late" (starts after
        # the run, which lasts beyond the reset's pause without a library).
        for helper_case, record, logged in [
                ("present", ["begin", "end"], ["WM_USER + 1 message send ",
                                               "WM_USER + 2 message send "]),
                ("leaves", ["begin"], ["WM_USER + 1 message send "]),
                ("late", [], ["can not find window"])]:
            with self.subTest(helper=helper_case):
                clear_marker()
                stage = window_stage("window-helper-" + helper_case)
                stage.add("TP/tp.bin", b"\x01\x02")
                helper = None if helper_case == "late" else Helper(stage, helper_case == "leaves")
                run = BACKGROUND.submit(stage.run, "--update")
                if helper is None:
                    time.sleep(1.5)
                    helper = Helper(stage)
                result = run.result()
                helper.stop()
                self.assertEqual(result.rc, 1)
                self.assertEqual([l for l in helper.lines() if l in ("begin", "end")], record)
                sent = [m for m in result.messages() if m.startswith(("WM_", "can"))]
                self.assertEqual(sent, logged)

    def test_window_covers_the_screen_and_the_update_fills_its_bar(self):
        result, seen, shown, filled = update_filling_the_bar(
            "window-shown", lambda stage: windows_run.screenshot(stage.dir / "shot.xwd"),
            lambda pixels: pixels(792, 579)[2] > 200, lambda pixels: max(pixels(600, 579)) > 0)
        self.assertEqual(result.rc, 0)

        style, exstyle = int(seen["style"], 16), int(seen["exstyle"], 16)
        self.assertEqual(style & (WS_POPUP | WS_CAPTION | WS_DISABLED), WS_POPUP | WS_DISABLED)
        self.assertEqual(exstyle & (WS_EX_LAYERED | WS_EX_NOACTIVATE | WS_EX_TOPMOST
                                    | WS_EX_TRANSPARENT),
                         WS_EX_LAYERED | WS_EX_NOACTIVATE | WS_EX_TOPMOST)
        self.assertEqual((seen["alpha"], seen["lwa"], seen["enabled"]), ("230", "2", "0"))
        self.assertEqual(seen["rect"], "0,0,1920,1200")  # the whole screen Xvfb was given

        # Black but for the drawn parts; the bar's track, a blue spinner in its
        # box and the white text line below.
        for point in [(10, 10), (960, 100), (1900, 1190), (300, 578), (1200, 570)]:
            self.assertEqual(shown(*point), (0, 0, 0), point)
        self.assertColour(shown(1200, 579), (0x32, 0x32, 0x32))
        self.assertGreater(count(shown, range(905, 1015, 2), range(355, 465, 2),
                                 lambda p: p[2] > 150 and p[0] < 120), 20)
        self.assertGreater(count(shown, range(515, 1405, 3), range(638, 691, 2),
                                 lambda p: min(p) > 200), 20)
        self.assertIsNotNone(filled, "the bar never filled to 30 %")
        self.assertColour(filled(700, 579), (0x34, 0x82, 0xFF))
        self.assertColour(filled(1240, 579), (0x32, 0x32, 0x32))

    def assertColour(self, actual, expected, tolerance=6):
        for a, e in zip(actual, expected):
            self.assertLessEqual(abs(a - e), tolerance, (actual, expected))


def count(pixels, xs, ys, wanted):
    return sum(1 for x in xs for y in ys if wanted(pixels(x, y)))


if __name__ == "__main__":
    main()
