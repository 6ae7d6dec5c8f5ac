"""The one place the tests start Windows programs: under Wine on Linux, directly
on Windows. NOT_ON_WINDOWS says, once, which tests need what only Wine or
Linux gives them; on Windows they are reported not applicable, never passed."""

import os
import shutil
import struct
import subprocess
import sys
import unittest
from pathlib import Path

ON_WINDOWS = os.name == "nt"
NOT_APPLICABLE = 77  # the exit code of a run with cases not applicable here (ctest's skip)
STANDINS = "the HID and SetupAPI stand-ins in the system folder"
RECORDING = "scripts/recording-package (bash) and " + STANDINS

# A ctest name, or a test file's stem with its class (and case) -> what it needs.
NOT_ON_WINDOWS = {
    "test_force_update.ForceUpdateTest": STANDINS,
    "test_guards.GuardsTest.test_one_update_at_a_time_and_none_below_25_percent_on_battery":
        "a battery faked through Linux's /sys and " + STANDINS,
    "test_guards.GuardsTest.test_the_session_cannot_end_during_the_force_write_but_can_after":
        "wineboot -e, a session end that ends nothing else",
    "test_planted_libraries.PlantedLibrariesTest.test_a_linked_or_foreign_folder_is_not_written_through":
        "a Unix link and owner as Wine shows them (real_windows.py makes a junction)",
    "test_progress_window.ProgressWindowTest.test_window_covers_the_screen_and_the_update_fills_its_bar":
        "Xvfb's 1920x1200 screen and xwd (real_windows.py captures real GDI+)",
    "test_recorders.RecordersTest": RECORDING,
    "test_trace_emulation.TraceEmulationTest": STANDINS,
    "test_version_report.VersionReportTest.test_the_device_found_through_setupapi_gives_the_full_version":
        STANDINS,
    "test_version_report.VersionReportTest.test_col05_held_elsewhere_cannot_be_opened_for_reading_and_writing":
        STANDINS,
}

if ON_WINDOWS:
    import ctypes
    # No loader or crash dialog waits for a click: children inherit the mode.
    ctypes.windll.kernel32.SetErrorMode(0x0001 | 0x0002 | 0x8000)
elif os.environ.get("CALDER_DISPLAY") == "screen" and os.environ.get("CALDER_SCREEN_DISPLAY"):
    # A test that takes screenshots has a display of its own (scripts/wine-session).
    os.environ["DISPLAY"] = os.environ["CALDER_SCREEN_DISPLAY"]


def command(program, *args):
    """The command line that starts a Windows program (a path, or a name the system finds)."""
    return ([] if ON_WINDOWS else ["wine"]) + [str(program), *map(str, args)]


def own_prefix(prefix):
    """A test's own Wine prefix, copied from the run's (CALDER_BASE_PREFIX) the
    first time, with its wineserver kept until the run ends (stop_wine_session),
    so tests that share no prefix run side by side."""
    base = os.environ.get("CALDER_BASE_PREFIX")
    if ON_WINDOWS or not base or Path(prefix).exists():
        return
    # Hard links: Wine replaces the files it changes, so the copy is cheap.
    shutil.copytree(base, prefix, symlinks=True, copy_function=os.link)
    # Its services started here, not by a test's run, whose output they would hold.
    for step in (["wineserver", "-p"], ["wineboot"]):
        subprocess.run(step, env=environment(prefix=None) | {"WINEPREFIX": str(prefix)},
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def environment(env=None, prefix=None):
    """os.environ with env over it; under Wine in prefix, quiet and offline. On
    Windows WINEPATH's folders go in front of PATH."""
    full = dict(os.environ)
    if not ON_WINDOWS:
        if prefix:
            own_prefix(prefix)
            full["WINEPREFIX"] = str(prefix)
        full.setdefault("WINEDEBUG", "-all")
        full.setdefault("WINEDLLOVERRIDES", "mscoree,mshtml=")
    full.update(env or {})
    if ON_WINDOWS and "WINEPATH" in full:
        full["PATH"] = full.pop("WINEPATH") + ";" + full.get("PATH", "")
    return full


def run(program, *args, env=None, prefix=None, **kwargs):
    return subprocess.run(command(program, *args), env=environment(env, prefix), **kwargs)


def start(program, *args, env=None, prefix=None, **kwargs):
    return subprocess.Popen(command(program, *args), env=environment(env, prefix), **kwargs)


def windows_path(path):
    """The path as the program sees it (through Wine's Z: drive on Linux)."""
    resolved = str(Path(path).resolve())
    return resolved if ON_WINDOWS else "Z:" + resolved.replace("/", "\\")


def drive_c(prefix):
    """C:\\ as the programs see it: the prefix's drive_c under Wine."""
    return Path(os.environ.get("SystemDrive", "C:") + "\\") if ON_WINDOWS else Path(prefix) / "drive_c"


def screenshot(path):
    """The screen the programs draw on, (x, y) -> (r, g, b) with its .size, also
    saved to path (xwd's dump of the X display here, a BMP on Windows); None
    when it could not be taken."""
    if ON_WINDOWS:
        return gdi_screenshot(path)
    if subprocess.run(["xwd", "-root", "-silent", "-display", os.environ.get("DISPLAY", ":0"),
                       "-out", str(path)], capture_output=True).returncode != 0:
        return None
    return xwd_reader(path)


def xwd_reader(xwd):
    """(x, y) -> (r, g, b) of a dump xwd made (also used by scripts/demo)."""
    data = Path(xwd).read_bytes()
    fields = struct.unpack(">25I", data[:100])
    header_size, byte_order, bits_per_pixel, bytes_per_line = (
        fields[0], fields[7], fields[11], fields[12])
    masks, ncolors = fields[14:17], fields[19]
    pixels = data[header_size + ncolors * 12:]
    step = bits_per_pixel // 8
    shifts = [(m & -m).bit_length() - 1 for m in masks]

    def at(x, y):
        i = y * bytes_per_line + x * step
        value = int.from_bytes(pixels[i:i + step], "little" if byte_order == 0 else "big")
        return tuple((value & m) >> s for m, s in zip(masks, shifts))
    at.size = fields[4], fields[5]
    return at


def gdi_screenshot(path):
    """The screen as GDI has it, saved as a BMP."""
    user, gdi = ctypes.windll.user32, ctypes.windll.gdi32
    for call in [user.GetDC, gdi.CreateCompatibleDC, gdi.CreateCompatibleBitmap, gdi.SelectObject]:
        call.restype = ctypes.c_void_p  # handles are 64-bit
    width, height = user.GetSystemMetrics(0), user.GetSystemMetrics(1)
    screen = ctypes.c_void_p(user.GetDC(None))
    memory = ctypes.c_void_p(gdi.CreateCompatibleDC(screen))
    bitmap = ctypes.c_void_p(gdi.CreateCompatibleBitmap(screen, width, height))
    gdi.SelectObject(memory, bitmap)
    copied = gdi.BitBlt(memory, 0, 0, width, height, screen, 0, 0, 0x00CC0020 | 0x40000000)  # layered too
    header = (ctypes.c_int32 * 10)(40, width, -height, 1 | (32 << 16), 0, 0, 0, 0, 0, 0)
    pixels = ctypes.create_string_buffer(width * height * 4)
    copied = copied and gdi.GetDIBits(memory, bitmap, 0, height, pixels, header, 0)
    gdi.DeleteObject(bitmap), gdi.DeleteDC(memory), user.ReleaseDC(None, screen)
    if not copied:
        return None
    data = pixels.raw  # BGRA, top row first
    Path(path).write_bytes(b"BM" + (54 + len(data)).to_bytes(4, "little") + (54 << 32).to_bytes(8, "little")
                           + bytes(header) + data)

    def at(x, y):
        return tuple(data[(y * width + x) * 4 + 2 - c] for c in range(3))
    at.size = width, height
    return at


def not_applicable(name):
    """Why the test (or a case of it) cannot run here, or None."""
    if not ON_WINDOWS:
        return None
    return next((why for key, why in NOT_ON_WINDOWS.items()
                 if name == key or name.startswith(key + ".")), None)


def unittest_main():
    """unittest.main for a test file. On Windows the cases NOT_ON_WINDOWS names
    are skipped with the reason, and a run that skipped any without a failure
    exits NOT_APPLICABLE."""
    module, stem = sys.modules["__main__"], Path(sys.argv[0]).stem
    for test in unittest.defaultTestLoader.loadTestsFromModule(module):
        for case in test:
            name = stem + "." + type(case).__name__ + "." + case._testMethodName
            why = not_applicable(name)
            if why:
                setattr(type(case), case._testMethodName,
                        unittest.skip("not applicable on Windows: " + why)(getattr(type(case), case._testMethodName)))
    result = unittest.main(verbosity=2, exit=False).result
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(NOT_APPLICABLE if ON_WINDOWS and result.skipped else 0)


if __name__ == "__main__":  # windows_run.py PREFIX PROGRAM [ARGS...]: ctest's emulator
    if ON_WINDOWS:
        sys.exit(run(*sys.argv[2:]).returncode)
    os.execvpe("wine", command(*sys.argv[2:]), environment(prefix=sys.argv[1]))
