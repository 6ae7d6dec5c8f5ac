"""calder-replay as its users run it, on the committed traces (written by the
real recorders) and on copies damaged as the world damages them: each exit
code with its message, --json and --decode."""
import json
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

BUILD = Path(os.environ.get("CALDER_BUILD", "build/host"))
TRACES = Path(__file__).resolve().parents[1] / "traces"
PACKAGE = TRACES / "package"
BRIDGE, UPGRADE = TRACES / "clean-update.bridge.ndjson", TRACES / "clean-update.upgrade.ndjson"
WRITE_FLASH = re.compile(r'"in":"ff570000..01810301')  # a Write flash command frame


def replay(*args):
    return subprocess.run([str(BUILD / "calder-replay"), *map(str, args)], capture_output=True,
                          text=True, timeout=60)


class ReplayCommand(unittest.TestCase):
    def setUp(self):
        self.tmp = Path(tempfile.mkdtemp(prefix="calder-replay-command-"))

    def changed(self, change):
        """The bridge trace with its lines changed, in a file of its own."""
        lines = BRIDGE.read_text().splitlines(keepends=True)
        path = self.tmp / f"changed-{len(list(self.tmp.iterdir()))}.ndjson"
        path.write_text("".join(change(lines)))
        return path

    def test_each_exit_with_what_it_says(self):
        lines = BRIDGE.read_text().splitlines(keepends=True)
        flash = next(i for i, line in enumerate(lines) if WRITE_FLASH.search(line))
        seq = json.loads(lines[flash])["seq"]
        flipped = lambda ls: ls[:flash] + [ls[flash].replace('"in":"ff', '"in":"fe', 1)] + ls[flash + 1:]
        refused = ('{"seq":1,"t_us":0,"refused":"vendor\\\\btl_hid_transfer.dll",'
                   '"why":"Users may write to it"}\n')
        cases = [
            ([BRIDGE, UPGRADE], 0, "stdout", "the run made exactly the recorded calls\nupdate returned 0; exit 0\n"),
            ([self.changed(flipped), UPGRADE], 4, "stdout", f"divergence at call {seq}: "),
            ([self.changed(lambda ls: ls[:flash]), UPGRADE], 5, "stdout", "(a cut-off recording)"),
            ([self.changed(lambda ls: ls[:flash] + ls[flash + 1:]), UPGRADE], 2, "stderr",
             f"line {flash + 1}: seq {seq + 1} where {seq} belongs"),
            ([self.changed(lambda ls: ls[:1] + [refused]), UPGRADE], 3, "stderr",
             "the recorder refused to load the vendor library (vendor\\btl_hid_transfer.dll: "
             "Users may write to it); the trace holds no call to replay"),
            ([BRIDGE, self.changed(lambda ls: ls)], 2, "stderr",
             "two traces of btl_hid_transfer.dll (" + str(BRIDGE)),
            ([self.tmp / "missing.ndjson"], 2, "stderr", "missing.ndjson: cannot be read"),
        ]
        for traces, code, stream, text in cases:
            result = replay("--package", PACKAGE, *traces)
            self.assertEqual(result.returncode, code, result.stdout + result.stderr)
            self.assertIn(text, getattr(result, stream))
            self.assertNotIn("pacing warning", result.stdout)

    def test_json_says_what_the_text_says(self):
        result = replay("--json", "--package", PACKAGE, BRIDGE, UPGRADE)
        report = json.loads(result.stdout)
        calls = [sum(1 for line in path.read_text().splitlines()[1:] if '"fn"' in line)
                 for path in (BRIDGE, UPGRADE)]
        self.assertEqual((result.returncode, report["result"], report["exit"], report["pacing"]),
                         (0, "match", 0, []))
        self.assertEqual([(t["calls"], t["matched"]) for t in report["traces"]], [(n, n) for n in calls])

    def test_decode_reads_the_frames_of_both_libraries_in_the_laptops_order(self):
        text = replay("--decode", BRIDGE, UPGRADE)
        rows = text.stdout.splitlines()
        self.assertEqual(text.returncode, 0, text.stderr)
        for row in ["bridge  write 13: connect -> ok", "upgrade  btl_upgrade_from_file TP\\tp_fw.bin"]:
            self.assertTrue(any(row in r for r in rows), row)
        times = [float(r.split()[0]) for r in rows if r.strip()[:1].isdigit()]
        self.assertEqual(times, sorted(times))
        decoded = json.loads(replay("--decode", "--json", BRIDGE, UPGRADE).stdout)
        self.assertEqual(len(decoded["lines"]), len(times))
        self.assertEqual([line["t_us"] for line in decoded["lines"]],
                         sorted(line["t_us"] for line in decoded["lines"]))


if __name__ == "__main__":
    unittest.main()
