"""scripts/release end to end: a package signed with a throwaway certificate,
read back as the laptop maker's release review would. The SBOM must validate
against the official CycloneDX 1.5 schema (offline, from
scripts/install-sbom-schema), osslsigncode must accept the signatures and
refuse a changed byte, the sums and the SBOM must list every shipped file, the
binaries must be stripped with their symbols beside the release, and the
notices must name every component with its licence text. The release is made
from a clone of the commit with a file added: refused, then made with
--allow-dirty from the suite's own mingw tree (CALDER_RELEASE_BUILD) and marked
so; the release's copy of the sources, configured afresh at another path,
compiles the same objects and never sees an ignored source file planted beside
the others."""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import warnings
import zipfile
from pathlib import Path

SOURCE = Path(os.environ.get("CALDER_SOURCE", Path(__file__).resolve().parents[2]))
BUILD = Path(os.environ.get("CALDER_BUILD", SOURCE / "build" / "win"))
HOST_BUILD = Path(os.environ.get("CALDER_HOST_BUILD", SOURCE / "build" / "host"))
SCHEMAS = SOURCE / "build" / "cyclonedx-schema"
sys.path.insert(0, str(SOURCE / "tools"))
import windows_run  # noqa: E402
SIGNED = ["calder.exe", "rlottie.dll"]


def run(*args, **kwargs):
    return subprocess.run([str(a) for a in args], capture_output=True, text=True, **kwargs)


def cyclonedx_validator():
    import jsonschema
    schemas = {p.name: json.loads(p.read_text()) for p in SCHEMAS.glob("*.schema.json")}
    bom = schemas["bom-1.5.SNAPSHOT.schema.json"]
    # The schema refers to its neighbours by file name: resolve them locally.
    store = {}
    for name, schema in schemas.items():
        store[schema["$id"]] = schema
        store["http://cyclonedx.org/schema/" + name] = schema
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        resolver = jsonschema.RefResolver.from_schema(bom, store=store)
        return jsonschema.Draft7Validator(bom, resolver=resolver)


def version_strings(data):
    """The StringFileInfo values of a version resource, read as UTF-16LE key,
    NUL padding, value."""
    text = data.decode("utf-16-le", errors="replace")
    found = {}
    for key in ["FileVersion", "ProductVersion", "ProductName", "CompanyName",
                "FileDescription", "OriginalFilename", "LegalCopyright"]:
        match = re.search(key + "\0+([^\0]+)\0", text) or re.search(
            key + "\0+([^\0]+)\0", data[1:].decode("utf-16-le", errors="replace"))
        found[key] = match.group(1) if match else None
    return found


class ReleaseTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = Path(tempfile.mkdtemp(prefix="calder-release-"))
        run(SOURCE / "scripts" / "throwaway-certificate", cls.work / "cert")
        vendor = cls.work / "vendor"
        vendor.mkdir()
        # The stand-ins play the vendor's libraries, signed as the vendor would
        # sign them: here by the certificate the release trusts.
        for dll in [BUILD / "sim" / "btl_upgrade" / "btl_upgrade.dll", BUILD / "stand-ins" / "btl_hid_transfer.dll"]:
            run("osslsigncode", "sign", "-h", "sha256", "-key", cls.work / "cert" / "key.pem",
                "-certs", cls.work / "cert" / "cert.pem", "-in", dll, "-out", vendor / dll.name, check=True)
        (cls.work / "tp_fw.bin").write_bytes(bytes((i * 13 + 5) % 256 for i in range(0x4000)))
        (cls.work / "1.0.2.3.bin").write_bytes(bytes((i * 7 + 1) % 251 + 1 for i in range(0x6000)))
        cls.out = cls.work / "OUT"
        cls.args = ["--tp", cls.work / "tp_fw.bin", "--force", cls.work / "1.0.2.3.bin",
                    "--vendor", vendor]
        tree = cls.work / "tree"
        run("git", "clone", "-q", SOURCE, tree, check=True)
        (tree / "build").mkdir()
        (tree / "build" / "host").symlink_to(HOST_BUILD)  # the suite's calder-check
        (tree / "NOTES.txt").write_text("not in the commit\n")
        # Ignored (crash-*), yet in a folder the build globs: it must never be compiled.
        (tree / "driver" / "crash-x.cpp").write_text('#error "an ignored file reached the build"\n')
        cls.commit = run("git", "-C", tree, "rev-parse", "HEAD").stdout.strip()
        cls.refused = run(tree / "scripts" / "release", *cls.args, cls.work / "refused")
        cls.release = run(tree / "scripts" / "release", *cls.args, "--allow-dirty",
                          "--sign-key", cls.work / "cert" / "key.pem",
                          "--sign-cert", cls.work / "cert" / "cert.pem", cls.out,
                          env=dict(os.environ, CALDER_RELEASE_BUILD=str(BUILD)))

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def setUp(self):
        self.assertEqual(self.release.returncode, 0, self.release.stdout + self.release.stderr)

    def shipped(self):
        return sorted((p.relative_to(self.out).as_posix() for p in self.out.rglob("*")
                       if p.is_file() and p.name != "SHA256SUMS"), key=str.encode)

    def test_sums_and_sbom_list_every_shipped_file_and_the_sbom_is_cyclonedx_1_5(self):
        self.assertEqual(self.shipped(), sorted(
            ["calder.exe", "rlottie.dll", "loading_dark.json", "btl_upgrade.dll",
             "btl_hid_transfer.dll", "TP/tp_fw.bin", "Force/1.0.2.3.bin",
             "THIRD-PARTY-NOTICES.txt", "calder.cdx.json"], key=str.encode))
        digest = {p: hashlib.sha256((self.out / p).read_bytes()).hexdigest()
                  for p in self.shipped()}
        self.assertEqual((self.out / "SHA256SUMS").read_text(),
                         "".join(f"{digest[p]}  {p}\n" for p in self.shipped()))
        bom = json.loads((self.out / "calder.cdx.json").read_text())
        errors = [e.message for e in cyclonedx_validator().iter_errors(bom)]
        self.assertEqual(errors, [])
        listed = {c["name"]: c for c in bom["components"]}
        self.assertEqual({n: c["hashes"] for n, c in listed.items()},
                         {p: [{"alg": "SHA-256", "content": digest[p]}]
                          for p in self.shipped() if p != "calder.cdx.json"})
        inside = {n: {i["name"]: i for i in c.get("components", [])} for n, c in listed.items()}
        self.assertEqual(inside["rlottie.dll"]["rlottie"]["version"], "0.1+dfsg-4+deb12u2")
        self.assertIn("LGPL-2.1-or-later", inside["rlottie.dll"]["rlottie"]["licenses"][0]["expression"])
        self.assertEqual(sorted(inside["calder.exe"]), sorted(
            ["Easylogging++", "pugixml", "zlib", "GCC runtime libraries (libstdc++, libgcc)",
             "mingw-w64 runtime (start-up code, winpthreads)"]))
        self.assertEqual([n for n, i in inside.items() if i and not n.endswith((".exe", ".dll"))], [])

    def test_signatures_verify_and_a_changed_byte_does_not(self):
        binaries = [self.out / n for n in SIGNED] + [self.out.with_name("OUT-check") / "calder-check.exe"]
        for binary in binaries:
            result = run("osslsigncode", "verify", "-CAfile", self.work / "cert" / "cert.pem",
                         "-in", binary)
            self.assertEqual(result.returncode, 0, binary.name + result.stdout + result.stderr)
        tampered = self.work / "tampered.exe"
        data = bytearray((self.out / "calder.exe").read_bytes())
        data[0x400] ^= 1
        tampered.write_bytes(data)
        result = run("osslsigncode", "verify", "-CAfile", self.work / "cert" / "cert.pem",
                     "-in", tampered)
        self.assertNotEqual(result.returncode, 0)

    def test_calder_check_exe_refuses_a_package_re_signed_with_another_certificate(self):
        run(SOURCE / "scripts" / "throwaway-certificate", self.work / "other")
        shutil.copytree(self.out, self.work / "re-signed")
        for name in SIGNED:
            path, bare = self.work / "re-signed" / name, self.work / ("bare-" + name)
            # osslsigncode does not overwrite its output.
            for args, output in [(("remove-signature", "-in", path), bare),
                                 (("sign", "-h", "sha256", "-key", self.work / "other" / "key.pem",
                                   "-certs", self.work / "other" / "cert.pem", "-in", bare), path)]:
                result = run("osslsigncode", *args, "-out", output.with_suffix(".new"))
                self.assertEqual(result.returncode, 0, result.stderr)
                output.with_suffix(".new").replace(output)
        check = self.out.with_name("OUT-check") / "calder-check.exe"
        # A Wine prefix of its own (a copy of the run's when there is one).
        prefix = self.work / "wineprefix"
        self.addCleanup(run, "wineserver", "-k", env=windows_run.environment(prefix=prefix))
        for package, rc, verdict in [("OUT", 0, "ship"), ("re-signed", 1, "do-not-ship")]:
            # Paths relative to the folder Wine starts in.
            args = [check, "--release", "--trust", "cert/cert.pem", "--json", package]
            result = windows_run.run(*args, prefix=prefix, cwd=self.work, capture_output=True, text=True)
            if result.returncode not in (0, 1):  # Wine itself failed to start it
                result = windows_run.run(*args, prefix=prefix, cwd=self.work, capture_output=True,
                                         text=True)
            report = json.loads(result.stdout)
            untrusted = sorted(f["path"] for f in report["findings"] if f["code"] == "signer-untrusted")
            self.assertEqual((result.returncode, report["verdict"], untrusted),
                             (rc, verdict, SIGNED if rc else []), result.stdout)

    def test_binaries_are_stripped_with_symbols_beside_the_release_and_carry_the_version(self):
        symbols = self.out.with_name("OUT-symbols")
        check = self.out.with_name("OUT-check") / "calder-check.exe"
        for binary in [self.out / "calder.exe", self.out / "rlottie.dll", check]:
            sections = run("x86_64-w64-mingw32-objdump", "-h", binary).stdout
            self.assertNotIn(".debug_", sections, binary.name)
            link = run("x86_64-w64-mingw32-objcopy", "--dump-section",
                       f".gnu_debuglink={self.work / 'link'}", binary, self.work / "scratch")
            self.assertEqual(link.returncode, 0, link.stderr)
            name = (self.work / "link").read_bytes().split(b"\0")[0].decode()
            self.assertEqual(name, binary.name + ".debug")
            self.assertIn(".debug_info", run("x86_64-w64-mingw32-objdump", "-h",
                                             symbols / name).stdout)
        self.assertFalse(list(self.out.rglob("*.debug")))
        # One C runtime heap for both sides of the DLL boundary, and no C++
        # runtime DLL: what rlottie allocates, calder.exe frees.
        imports = {b.name: sorted(re.findall(r"DLL Name: (\S+)", run(
            "x86_64-w64-mingw32-objdump", "-p", b).stdout)) for b in [self.out / "calder.exe",
                                                                    self.out / "rlottie.dll", check]}
        self.assertEqual(imports["rlottie.dll"], ["KERNEL32.dll", "msvcrt.dll"])
        for name in ["calder.exe", "calder-check.exe"]:
            self.assertEqual([d for d in imports[name] if d in ("msvcrt.dll", "rlottie.dll")
                              or d.startswith("lib")], ["msvcrt.dll", "rlottie.dll"], name)
        for binary, name, description in [
                (self.out / "calder.exe", "calder.exe", "Calder touch input firmware update"),
                (check, "calder-check.exe", "Calder release package checker")]:
            self.assertEqual(version_strings(binary.read_bytes()), {
                "FileVersion": "2026.4.22.1", "ProductVersion": "2026.4.22.1",
                "ProductName": "Calder", "CompanyName": "KORU", "FileDescription": description,
                "OriginalFilename": name, "LegalCopyright": "Copyright (C) 2026 KORU"})

    def test_notices_name_each_component_with_its_licence_text_and_rlottie_replacement(self):
        notices = (self.out / "THIRD-PARTY-NOTICES.txt").read_text()
        for title, package in [("rlottie 0.1+dfsg-4+deb12u2", "librlottie-dev"),
                               ("pugixml 1.13", "libpugixml-dev"),
                               ("Mbed TLS 2.28", "libmbedtls-dev"),
                               ("Easylogging++", "libeasyloggingpp-dev"),
                               ("zlib", "libz-mingw-w64-dev"), ("RapidJSON", "rapidjson-dev"),
                               ("stb_image", "libstb-dev"),
                               ("GCC runtime libraries", "g++-mingw-w64-x86-64-posix"),
                               ("mingw-w64 runtime", "mingw-w64-x86-64-dev")]:
            self.assertRegex(notices, "\n" + re.escape(title) + ".*\n={78}\n")
            self.assertIn(Path(f"/usr/share/doc/{package}/copyright").read_text(errors="replace"),
                          notices)
        self.assertIn("Debian source package rlottie 0.1+dfsg-4+deb12u2", notices)
        self.assertIn("Replacing rlottie.dll", notices)
        with zipfile.ZipFile(self.out.with_name("OUT.zip")) as z:
            self.assertEqual(sorted(z.namelist(), key=str.encode),
                             sorted(self.shipped() + ["SHA256SUMS"], key=str.encode))

    def test_a_tree_that_is_not_its_commit_is_refused_or_marked_dirty(self):
        self.assertEqual(self.refused.returncode, 1, self.refused.stderr)
        self.assertIn("\n?? NOTES.txt\n", self.refused.stderr)
        self.assertNotIn("crash-x", self.refused.stderr + self.release.stderr)  # built all the same (setUp)
        self.assertFalse(self.work.joinpath("refused.zip").exists())
        bom = json.loads((self.out / "calder.cdx.json").read_text())
        self.assertEqual(bom["metadata"]["component"]["properties"],
                         [{"name": "calder:commit", "value": self.commit},
                          {"name": "calder:tree", "value": "dirty"}])
        self.assertIn(f"\nBuilt from commit {self.commit}, dirty",
                      (self.out / "THIRD-PARTY-NOTICES.txt").read_text())

    def test_a_tree_configured_afresh_at_another_path_compiles_the_same_objects(self):
        # Whole releases built twice are scripts/check-reproducible's to compare.
        fresh = self.work / "tree" / "build" / "fresh"
        src = self.work / "tree" / "build" / f"release-{self.commit}" / "src"
        self.assertTrue((src / "driver" / "calder.cpp").is_file())
        self.assertFalse((src / "driver" / "crash-x.cpp").exists())
        env = {k: v for k, v in os.environ.items() if not k.endswith("_COMPILER_LAUNCHER")}
        run("cmake", "-S", src, "-B", fresh, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
            "-DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake", env=env, check=True)
        objects = ["CMakeFiles/calder.dir/app/win32/calder.cpp.obj", "CMakeFiles/calder-check.dir/check/main.cpp.obj"]
        run("nice", "-n", "10", "ninja", "-C", fresh, *objects, env=env, check=True)
        for name in objects:
            self.assertEqual((fresh / name).read_bytes(), (BUILD / name).read_bytes(), name)
        self.assertNotIn("crash-x", (fresh / "build.ninja").read_text())

    def test_mistakes_on_the_command_line_stop_before_anything_is_built(self):
        taken = self.work / "taken"
        (taken / "x").mkdir(parents=True)
        for args, rc, message in [
                (self.args, 2, "Usage"),
                (self.args + ["--sign-key", self.work / "cert" / "key.pem", self.work / "o"], 1,
                 "--sign-key and --sign-cert go together"),
                (self.args + [taken], 1, "exists and is not empty"),
                (["--tp", self.work / "none.bin"] + self.args[2:] + [self.work / "o"], 1,
                 "not found")]:
            result = run(SOURCE / "scripts" / "release", *args)
            self.assertEqual((result.returncode, message in result.stderr), (rc, True),
                             result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
