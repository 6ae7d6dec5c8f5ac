#!/usr/bin/env python3
"""Writes the release package's THIRD-PARTY-NOTICES.txt, calder.cdx.json
(CycloneDX 1.5) and SHA256SUMS, and zips the package; scripts/release runs it.

    release_package.py manifests OUT --deps PREFIX --version V --epoch SECONDS --commit HASH [--dirty]
    release_package.py notices FILE --deps PREFIX
    release_package.py zip OUT ZIP --epoch SECONDS

Versions and licence texts come from the installed Debian packages (and, for
what the dependency prefix built from Debian sources, from the source record
it kept), so the notices say what was built, not what was meant to be."""

import argparse
import hashlib
import json
import subprocess
import sys
import time
import uuid
import zipfile
from pathlib import Path

GCC = "g++-mingw-w64-x86-64-posix"
LINKED_IN_ALL = ["calder.exe", "rlottie.dll", "calder-check.exe"]


class Component:
    def __init__(self, key, name, package, licence, files, source=None, note=""):
        self.key = key
        self.name = name
        self.package = package  # the installed Debian package with the copyright file
        self.licence = licence  # an SPDX id or expression
        self.files = files  # the shipped files it is linked into
        self.source = source  # Debian source package the prefix built it from
        self.note = note


COMPONENTS = [
    Component("rlottie", "rlottie", "librlottie-dev",
              "LGPL-2.1-or-later AND FTL AND BSD-3-Clause AND (MPL-1.1 OR GPL-2.0-or-later OR "
              "LGPL-2.1-or-later)", ["rlottie.dll"], source="rlottie",
              note="The Lottie renderer, with its bundled FreeType rasteriser, arena allocator "
                   "and interpolator (each under the licence the copyright file names)."),
    Component("rapidjson", "RapidJSON", "rapidjson-dev", "MIT", ["rlottie.dll"],
              note="Header-only JSON parser compiled into rlottie."),
    Component("stb_image", "stb_image", "libstb-dev", "MIT OR Unlicense", ["rlottie.dll"],
              note="Header-only image decoder compiled into rlottie."),
    Component("easyloggingpp", "Easylogging++", "libeasyloggingpp-dev", "MIT",
              ["calder.exe", "calder-check.exe"]),
    Component("nlohmann-json", "JSON for Modern C++", "nlohmann-json3-dev", "MIT", ["calder-check.exe"],
              note="Header-only JSON parser compiled into calder-check, which reads the SBOM."),
    Component("pugixml", "pugixml", "libpugixml-dev", "MIT", ["calder.exe"], source="pugixml"),
    Component("mbedtls", "Mbed TLS", "libmbedtls-dev", "Apache-2.0", ["calder-check.exe"], source="mbedtls",
              note="Signatures, certificates and digests in calder-check, linked statically."),
    Component("zlib", "zlib", "libz-mingw-w64-dev", "Zlib", ["calder.exe"]),
    Component("gcc-runtime", "GCC runtime libraries (libstdc++, libgcc)", GCC,
              "GPL-3.0-or-later WITH GCC-exception-3.1", LINKED_IN_ALL,
              note="Linked statically under the GCC Runtime Library Exception."),
    Component("mingw-w64-runtime", "mingw-w64 runtime (start-up code, winpthreads)",
              "mingw-w64-x86-64-dev", "ZPL-2.1 AND MIT AND BSD-3-Clause", LINKED_IN_ALL),
]


def installed_version(package):
    result = subprocess.run(["dpkg-query", "-W", "-f=${Version}", package],
                            capture_output=True, text=True)
    if result.returncode != 0 or not result.stdout:
        sys.exit(f"release_package: Debian package {package} is not installed")
    return result.stdout


def source_record(deps, package):
    """Source, Version, Dsc and Dsc-SHA256 of what build-mingw-deps built."""
    path = Path(deps) / "share" / "calder-deps" / f"{package}.source"
    if not path.exists():
        sys.exit(f"release_package: {path} missing; run scripts/build-mingw-deps")
    return dict(line.split(": ", 1) for line in path.read_text().splitlines() if ": " in line)


def resolve(deps):
    """(component, version as built, source record or None) for every component."""
    resolved = []
    for c in COMPONENTS:
        record = source_record(deps, c.source) if c.source else None
        version = record["Version"] if record else installed_version(c.package)
        resolved.append((c, version, record))
    return resolved


def copyright_text(package):
    path = Path("/usr/share/doc") / package / "copyright"
    if not path.exists():
        sys.exit(f"release_package: {path} missing")
    return path.read_text(errors="replace")


def rlottie_section(version, record):
    return f"""Built from the Debian source package {record['Source']} {version}
({record['Dsc']}, SHA-256 {record['Dsc-SHA256']}), fetched with
"apt-get source {record['Source']}={version}" (also kept at snapshot.debian.org) and
built by scripts/build-mingw-deps of Calder's source as a shared library for
x86-64 Windows with mingw-w64 GCC 12 (posix threads, C++ library linked in).

Replacing rlottie.dll: calder.exe imports rlottie.dll from its own folder and
uses rlottie's C++ interface (rlottie::Animation). Build rlottie from this or a
modified source with the same toolchain, e.g. with scripts/build-mingw-deps
(the result is bin/rlottie.dll in its prefix), and put the new rlottie.dll in
place of the one beside calder.exe. The package's SHA256SUMS, SBOM and
signature describe the shipped file, so calder-check will then report the
package as changed.
"""


def notices(deps, dirty_commit=None):
    parts = ["Third-party software in this package\n",
             f"Built from commit {dirty_commit}, dirty: with changes that are not in it\n"
             if dirty_commit else "",
             "calder.exe, rlottie.dll and calder-check.exe (beside the package, for release\n"
             "engineers) contain the components below. loading_dark.json\n"
             "is Calder's own. btl_upgrade.dll, btl_hid_transfer.dll and the firmware in\n"
             "TP\\ and Force\\ are the chip vendor's, delivered under the maker's agreement\n"
             "with the vendor, and are not described here.\n"]
    for c, version, record in resolve(deps):
        rule = "=" * 78
        parts.append(f"\n{rule}\n{c.name} {version}\n{rule}\n"
                     f"Inside:  {', '.join(c.files)}\n"
                     f"Licence: {c.licence}\n"
                     f"From:    Debian package {c.package}"
                     + (f" (source {record['Source']} {version})" if record else f" {version}")
                     + "\n")
        if c.note:
            parts.append(c.note + "\n")
        if c.key == "rlottie":
            parts.append("\n" + rlottie_section(version, record))
        parts.append(f"\nThe package's copyright file (/usr/share/doc/{c.package}/copyright):\n\n")
        parts.append(copyright_text(c.package))
    return "".join(parts)


def sha256(path):
    return hashlib.sha256(Path(path).read_bytes()).hexdigest()


def shipped(out):
    """Every regular file under OUT but SHA256SUMS, as sorted relative paths."""
    files = [p.relative_to(out).as_posix() for p in Path(out).rglob("*") if p.is_file()]
    return sorted((f for f in files if f != "SHA256SUMS"), key=lambda f: f.encode())


def licence_entry(expression):
    if any(word in expression.split() for word in ("AND", "OR", "WITH")):
        return [{"expression": expression}]
    return [{"license": {"id": expression}}]


def sbom(out, deps, version, epoch, commit, dirty=False):
    inside = resolve(deps)
    components = []
    for path in shipped(out):
        if path == "calder.cdx.json":
            continue
        kind = "application" if path.endswith(".exe") else (
            "library" if path.endswith(".dll") else "file")
        entry = {"type": kind, "bom-ref": f"file:{path}", "name": path,
                 "hashes": [{"alg": "SHA-256", "content": sha256(Path(out) / path)}]}
        nested = [{"type": "library", "bom-ref": f"file:{path}#{c.key}", "name": c.name,
                   "version": v, "licenses": licence_entry(c.licence),
                   "purl": f"pkg:deb/debian/{record['Source']}@{v}?arch=source" if record
                   else f"pkg:deb/debian/{c.package}@{v}"}
                  for c, v, record in inside if path in c.files]
        if nested:
            entry["components"] = nested
        components.append(entry)
    content = json.dumps(components, sort_keys=True).encode()
    return {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        # Derived from the content, so the same release gives the same SBOM.
        "serialNumber": uuid.uuid5(uuid.NAMESPACE_URL, hashlib.sha256(content).hexdigest()).urn,
        "version": 1,
        "metadata": {
            "timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(epoch)),
            "tools": {"components": [{"type": "application", "name": "scripts/release",
                                      "version": version}]},
            "component": {"type": "application", "bom-ref": "calder", "name": "Calder",
                          "version": version, "supplier": {"name": "KORU"},
                          "properties": [{"name": "calder:commit", "value": commit}]
                          + ([{"name": "calder:tree", "value": "dirty"}] if dirty else [])},
        },
        "components": components,
    }


def write_manifests(args):
    out = Path(args.out)
    (out / "THIRD-PARTY-NOTICES.txt").write_text(notices(args.deps, args.commit if args.dirty else None))
    bom = sbom(out, args.deps, args.version, args.epoch, args.commit, args.dirty)
    (out / "calder.cdx.json").write_text(json.dumps(bom, indent=2) + "\n")
    lines = [f"{sha256(out / path)}  {path}\n" for path in shipped(out)]
    (out / "SHA256SUMS").write_text("".join(lines))


def write_zip(args):
    """Entries in path order, dated from the commit, so the zip is reproducible."""
    out = Path(args.out)
    stamp = time.gmtime(max(args.epoch, 315532800))[:6]  # zip dates start in 1980
    files = sorted((p.relative_to(out).as_posix() for p in out.rglob("*") if p.is_file()),
                   key=lambda f: f.encode())
    temp = Path(str(args.zip) + ".tmp")
    with zipfile.ZipFile(temp, "w") as z:
        for path in files:
            info = zipfile.ZipInfo(path, date_time=stamp)
            info.compress_type = zipfile.ZIP_DEFLATED
            info.external_attr = 0o644 << 16
            z.writestr(info, (out / path).read_bytes(), compresslevel=9)
    temp.replace(args.zip)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    sub = parser.add_subparsers(dest="command", required=True)
    m = sub.add_parser("manifests")
    m.add_argument("out")
    m.add_argument("--deps", required=True)
    m.add_argument("--version", required=True)
    m.add_argument("--epoch", type=int, required=True)
    m.add_argument("--commit", required=True)
    m.add_argument("--dirty", action="store_true", help="the tree held changes not in the commit")
    n = sub.add_parser("notices")
    n.add_argument("file")
    n.add_argument("--deps", required=True)
    z = sub.add_parser("zip")
    z.add_argument("out")
    z.add_argument("zip")
    z.add_argument("--epoch", type=int, required=True)
    args = parser.parse_args()
    if args.command == "manifests":
        write_manifests(args)
    elif args.command == "notices":
        Path(args.file).write_text(notices(args.deps))
    else:
        write_zip(args)


if __name__ == "__main__":
    main()
