#!/usr/bin/env python3
"""Packs the skin document into the zip that calder.exe carries as resource
ZIPRES 107: one deflated entry named after the file, with a fixed timestamp so
the build is reproducible.  Usage: pack_skin.py SKIN_XML OUTPUT_ZIP"""
import os
import sys
import zipfile


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    source, target = sys.argv[1], sys.argv[2]
    with open(source, "rb") as f:
        content = f.read()
    info = zipfile.ZipInfo(os.path.basename(source), date_time=(2026, 1, 1, 0, 0, 0))
    info.compress_type = zipfile.ZIP_DEFLATED
    info.external_attr = 0o644 << 16
    temp = target + ".tmp"
    with zipfile.ZipFile(temp, "w") as z:
        z.writestr(info, content, compresslevel=9)
    os.replace(temp, target)


if __name__ == "__main__":
    main()
