#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the wheel of the built package: a zip archive with metadata (PEP 427), with Python's own library only.

    make_wheel.py --package build/bindings/python/zephly --version 1.0 --output dist

Prints the path of the file. The same package gives the same bytes again.
"""

import argparse
import base64
import hashlib
import pathlib
import sys
import sysconfig
import zipfile

METADATA = """Metadata-Version: 2.1
Name: zephly
Version: {version}
Summary: The Zephly chest strap: its session, and its signal processing on NumPy arrays
License: MIT
License-File: LICENSE
Requires-Python: >=3.9
Requires-Dist: numpy
"""

LICENSE = pathlib.Path(__file__).resolve().parents[2] / "LICENSE"

WHEEL = """Wheel-Version: 1.0
Generator: zephly
Root-Is-Purelib: false
Tag: {tag}
"""


def wheel_tag():
    """Interpreter, ABI and platform of the Python that runs this, for example cp311-cp311-linux_x86_64."""
    interpreter = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = sysconfig.get_platform().replace("-", "_").replace(".", "_")
    return f"{interpreter}-{interpreter}-{platform}"


def package_files(package):
    """Name in the archive and content of each file of the package."""
    suffix = sysconfig.get_config_var("EXT_SUFFIX")
    wanted = ["__init__.py", "__init__.pyi", "offline.pyi", "py.typed", "_zephly" + suffix]
    wanted += sorted("cohort/" + path.name for path in (package / "cohort").glob("*.py"))
    return [("zephly/" + name, (package / name).read_bytes()) for name in wanted]


def record_line(name, content):
    digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
    return f"{name},sha256={digest},{len(content)}\n"


def write_wheel(package, version, output):
    tag = wheel_tag()
    information = f"zephly-{version}.dist-info/"
    files = package_files(package)
    files.append((information + "METADATA", METADATA.format(version=version).encode()))
    files.append((information + "LICENSE", LICENSE.read_bytes()))
    files.append((information + "WHEEL", WHEEL.format(tag=tag).encode()))
    record = "".join(record_line(name, content) for name, content in files) + information + "RECORD,,\n"
    files.append((information + "RECORD", record.encode()))

    output.mkdir(parents=True, exist_ok=True)
    path = output / f"zephly-{version}-{tag}.whl"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in files:
            entry = zipfile.ZipInfo(name)  # dated 1980: the file does not depend on when it is written
            entry.external_attr = 0o644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, content)
    return path


def main():
    parser = argparse.ArgumentParser(description="Writes the wheel of the built package.")
    parser.add_argument("--package", type=pathlib.Path, required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--output", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    try:
        print(write_wheel(arguments.package, arguments.version, arguments.output))
    except OSError as error:
        sys.exit(f"make_wheel: {error}")


if __name__ == "__main__":
    main()
