"""calder-report as its users run it: exit codes, and the HTML page of a
known small fleet rendered in a real browser (Debian's chromium, headless):
the fleet's numbers are in the page's DOM and the screenshot is not blank."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD = Path(os.environ.get("CALDER_BUILD", "build/host"))
REPORT = BUILD / "calder-report"
FLEET = BUILD / "calder-fleet"
CHROMIUM = shutil.which("chromium")
CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync"]


def report(*args):
    return subprocess.run([str(REPORT), *map(str, args)], capture_output=True, text=True, timeout=60)


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = Path(tempfile.mkdtemp(prefix="calder-report-page-"))
        cls.fleet = cls.tmp / "fleet"
        subprocess.run([str(FLEET), str(cls.fleet), "60", "--distinct", "60", "--seed", "7"], check=True,
                       capture_output=True, timeout=120)
        records = report("--json", cls.fleet)
        assert records.returncode == 0, records.stderr
        cls.records = [json.loads(line) for line in records.stdout.splitlines()]

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def test_exit_codes(self):
        updates = [r for r in self.records if r["kind"] == "update"]
        success = sum(r["outcome"] == "success" for r in updates)
        conclusive = sum(r["outcome"] in ("success", "failure", "interrupted") for r in updates)
        self.assertTrue(0 < success < conclusive, "the fleet needs successes and failures")
        rate = 100.0 * success / conclusive
        cases = [(["--help"], 0), (["--version"], 0), ([], 2), (["--bogus", self.fleet], 2),
                 (["--gate", "101", self.fleet], 2), ([self.tmp / "missing"], 2),
                 (["--gate", f"{rate - 0.5:.1f}", self.fleet], 0), (["--gate", f"{rate + 0.5:.1f}", self.fleet], 3)]
        for args, code in cases:
            with self.subTest(args=args):
                self.assertEqual(report(*args).returncode, code)
        self.assertIn("calder-report 20260422-01", report("--version").stdout)
        self.assertIn("usage: calder-report", report("--help").stdout)

    def test_arguments_refused_with_their_reason(self):
        cases = [(["--gate"], 2, "--gate needs a value"), (["--html"], 2, "--html needs a value"),
                 (["-x", self.fleet], 2, "unknown option -x"), (["--gate", "0", self.fleet], 0, ""),
                 (["--gate", "100", self.fleet], 3, "is below 100 %"), (["--gate", "-1", self.fleet], 2, "0 to 100"),
                 (["--gate", "100.1", self.fleet], 2, "0 to 100"), (["--gate", "5x", self.fleet], 2, "0 to 100"),
                 (["--html", self.tmp / "none" / "p.html", self.fleet], 2, "cannot write"),
                 ([self.tmp / "empty.log"], 2, "no input could be read")]
        (self.tmp / "empty.log").mkdir(exist_ok=True)
        for args, code, reason in cases:
            with self.subTest(args=args):
                result = report(*args)
                self.assertEqual((result.returncode, reason in result.stderr), (code, True), result.stderr)
        # Without --json the summary, not the records, is what it prints.
        self.assertTrue(report(self.fleet).stdout.startswith("calder-report "))

    @unittest.skipUnless(CHROMIUM, "chromium is not installed")
    def test_page_in_a_browser(self):
        page = self.tmp / "report.html"
        self.assertEqual(report("--html", page, self.fleet).returncode, 0)
        html = page.read_text(encoding="utf-8")
        self.assertNotRegex(html, r"(?i)(src|href)=|https?:|<script|@import|url\(")

        profile = self.tmp / "profile"
        dom = subprocess.run([CHROMIUM, *CHROMIUM_FLAGS, f"--user-data-dir={profile}", "--dump-dom",
                              page.as_uri()], capture_output=True, text=True, timeout=120).stdout
        updates = [r for r in self.records if r["kind"] == "update"]
        success = sum(r["outcome"] == "success" for r in updates)
        conclusive = sum(r["outcome"] in ("success", "failure", "interrupted") for r in updates)
        self.assertIn(f'<span id="runs">{len(self.records)}</span>', dom)
        self.assertIn(f"{100.0 * success / conclusive:.1f} %", dom)
        self.assertIn(f"success rate of {conclusive} conclusive updates", dom)
        causes = {}
        for r in self.records:
            if r["cause"]:
                causes[r["cause"]] = causes.get(r["cause"], 0) + 1
        for cause, count in causes.items():
            self.assertRegex(dom, rf"<td>{cause}</td><td class=\"n\">{count}</td>")
        self.assertGreaterEqual(dom.count("<svg"), 3)

        shot = self.tmp / "report.png"
        subprocess.run([CHROMIUM, *CHROMIUM_FLAGS, f"--user-data-dir={profile}", f"--screenshot={shot}",
                        "--window-size=1000,1400", page.as_uri()], capture_output=True, timeout=120)
        spread = subprocess.run(["convert", str(shot), "-colorspace", "gray", "-format", "%[fx:standard_deviation]",
                                 "info:"], capture_output=True, text=True, check=True).stdout
        self.assertGreater(float(spread), 0.02, "the screenshot is blank")


if __name__ == "__main__":
    unittest.main(verbosity=2)
