"""Runs the real calder.exe in a staged folder (under Wine on Linux, through
tools/windows_run.py) and reads back what it left: exit code,
standard output, the run's log file and the run marker."""

import contextlib
import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
import windows_run  # noqa: E402
from windows_run import windows_path  # noqa: E402,F401

BUILD = Path(os.environ.get("CALDER_BUILD", Path(__file__).resolve().parents[2] / "build" / "win"))
SOURCE = Path(os.environ.get("CALDER_SOURCE", Path(__file__).resolve().parents[2]))
WINEPREFIX = Path(os.environ.get("WINEPREFIX", BUILD / "wineprefix"))
windows_run.own_prefix(WINEPREFIX)
SERVICE_DIR = windows_run.drive_c(WINEPREFIX) / "ProgramData" / "KORU" / "KoruDeviceService"
LOG_DIR = SERVICE_DIR / "log"
MARKER = SERVICE_DIR / "Calder_ProcessPath.txt"
HID_STANDINS = BUILD / "sim" / "touch_hid"
HID_OVERRIDES = "mscoree,mshtml=;setupapi,hid=n,b"

# "2026-04-22 09:30:15.123 INFO calder.cpp 57: message"
LOG_LINE = re.compile(
    r"^(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3}) (\w+) (\S+) (\d+): (.*)$")


class LogLine:
    def __init__(self, match):
        self.time, self.level, self.file, self.line, self.message = match.groups()

    def __repr__(self):
        return f"{self.level} {self.file}: {self.message}"


def parse_log(text):
    lines = []
    for raw in text.splitlines():
        match = LOG_LINE.match(raw.rstrip("\r"))
        if match:
            lines.append(LogLine(match))
    return lines


class Result:
    def __init__(self, rc, stdout, stderr, log_path, elapsed):
        self.rc = rc
        self.stdout = stdout
        self.stderr = stderr
        self.log_path = log_path
        self.log_text = log_path.read_text(errors="replace") if log_path else ""
        self.log = parse_log(self.log_text)
        self.elapsed = elapsed

    def messages(self):
        return [entry.message for entry in self.log]

    def lines(self):
        """'LEVEL file: message' per log line, as the unit tests write them."""
        return [repr(entry) for entry in self.log]

    def stdout_lines(self):
        return [line.rstrip("\r") for line in self.stdout.splitlines()]


class Stage:
    """A folder holding calder.exe and rlottie.dll, which it imports, and
    whatever a case puts beside them."""

    def __init__(self, name):
        self.dir = BUILD / "e2e" / name
        if self.dir.exists():
            shutil.rmtree(self.dir)
        self.dir.mkdir(parents=True)
        self.exe = self.dir / "calder.exe"
        self.cwd = self.dir  # the folder calder.exe is started from
        shutil.copy2(BUILD / "calder.exe", self.exe)
        shutil.copy2(BUILD / "rlottie.dll", self.dir / "rlottie.dll")

    def add(self, relative, data=b""):
        path = self.dir / relative
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        return path

    def copy_in(self, source, relative=None):
        target = self.dir / (relative or Path(source).name)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source, target)
        return target

    def run(self, *args, env=None, timeout=180, violations_expected=False, launcher=()):
        """Runs calder.exe here, under launcher if given; fails on a protocol violation
        the stand-ins recorded unless the caller expects one (and reads result.violations)."""
        result = self._run_once(args, env, timeout, launcher)
        if result.log_path is None and not result.stdout.strip():
            # calder.exe logs before anything else, so a run that left neither a
            # log file nor output never started: Wine itself failed to launch it.
            print(f"wine did not start {self.exe.name} (rc {result.rc}); retrying once",
                  flush=True)
            sys.stderr.write(f"wine's stderr:\n{result.stderr}\n")
            result = self._run_once(args, env, timeout, launcher)
        check_violations(result, violations_expected)
        return result

    def _run_once(self, args, env, timeout, launcher):
        full_env = windows_run.environment(env, WINEPREFIX)
        violations = violations_file(self, full_env)
        before = set(LOG_DIR.glob("Calder_*.log")) if LOG_DIR.exists() else set()
        start = time.monotonic()
        proc = subprocess.run([*launcher, *windows_run.command(self.exe, *args)], cwd=self.cwd,
                              env=full_env, capture_output=True, timeout=timeout)
        elapsed = time.monotonic() - start
        after = set(LOG_DIR.glob("Calder_*.log")) if LOG_DIR.exists() else set()
        # Runs that overlap this one write logs too: this run's started first
        # (a log still empty belongs to a run started later).
        new = sorted(after - before, key=lambda path: path.read_bytes()[:23] or b"~")
        log_path = new[0] if new else None
        result = Result(proc.returncode, proc.stdout.decode(errors="replace"),
                        proc.stderr.decode(errors="replace"), log_path, elapsed)
        result.violations = violations.read_text().splitlines() if violations.exists() else []
        return result


def violations_file(stage, env):
    """A fresh file, named to the stand-ins through env, for the protocol
    violations their models record during one run."""
    path = stage.dir / "protocol_violations.txt"
    if path.exists():
        path.unlink()
    env["CALDER_SIM_VIOLATIONS"] = windows_path(path)
    return path


def check_violations(result, expected):
    if result.violations and not expected:
        raise AssertionError("the stand-ins recorded protocol violations:\n"
                             + "\n".join(result.violations))


def marker_text():
    """The run marker's content decoded from UTF-16LE, or None without a marker."""
    if not MARKER.exists():
        return None
    return MARKER.read_bytes().decode("utf-16-le")


def clear_marker():
    if MARKER.exists():
        MARKER.unlink()


@contextlib.contextmanager
def hid_standins_in_system32(prefix=WINEPREFIX):
    """The touch-device stand-ins where calder.exe takes hid.dll and setupapi.dll
    from, the prefix's system folder, for the duration of the block. Yields the
    environment under which Wine loads them (native first); Wine's own services
    keep their built-in copies. Wine's files go back after, also after a run
    that was cut short before. Not on Windows: windows_run.NOT_ON_WINDOWS."""
    assert not windows_run.ON_WINDOWS, "a test with the stand-ins is missing from NOT_ON_WINDOWS"
    system32 = Path(prefix) / "drive_c" / "windows" / "system32"
    names = ["hid.dll", "setupapi.dll"]

    def put_back():
        for name in names:
            saved = system32 / (name + ".wine")
            if saved.exists():
                saved.replace(system32 / name)

    put_back()
    try:
        for name in names:
            if (system32 / name).exists():
                (system32 / name).replace(system32 / (name + ".wine"))
            shutil.copy2(HID_STANDINS / name, system32 / name)
        yield {"WINEDLLOVERRIDES": HID_OVERRIDES}
    finally:
        for name in names:
            (system32 / name).unlink(missing_ok=True)
        put_back()


def main():
    windows_run.unittest_main()
