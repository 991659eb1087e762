#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""sbom_test.py SOURCE BUILD: the list of materials holds together and is of this tree, and always the same."""

import hashlib
import json
import os
import subprocess
import sys

source, build = sys.argv[1:]


def materials():
    """The list as it is printed."""
    environment = {**os.environ, "SOURCE_DATE_EPOCH": "1795651200"}
    return subprocess.run([f"{source}/scripts/sbom", build], env=environment, check=True, capture_output=True).stdout


def content(name):
    """A file of the tree."""
    with open(f"{source}/{name}", "rb") as file:
        return file.read()


printed = materials()
assert printed == materials()
listed = json.loads(printed)
files = listed["files"]
packages = {package["name"]: package for package in listed["packages"]}
things = [thing["SPDXID"] for thing in [listed, *files, *packages.values()]]
assert len(things) == len(set(things)), "two things have one name"
assert listed["creationInfo"]["created"] == "2026-11-26T00:00:00Z"

related = {tuple(relation.values()) for relation in listed["relationships"]}
program = packages.pop("tavrisk")["SPDXID"]
assert related == {
    (listed["SPDXID"], "DESCRIBES", program),
    *((program, "CONTAINS", file["SPDXID"]) for file in files),
    *((program, "DEPENDS_ON", package["SPDXID"]) for package in packages.values()),
}
assert set(packages) == {"libsystemd", "libcrypto", "jsoncpp", "sqlite3"}, set(packages)

names = {file["fileName"] for file in files}
assert {"./src/daemon/service/main.cpp", "./src/platform/kelp/kelp.cpp", "./src/zel/store.cpp"} <= names
assert not [name for name in names if name.startswith(("./tests", "./samples"))]
for file in files:
    assert file["licenseConcluded"] == "Apache-2.0", file
    assert file["checksums"][1]["checksumValue"] == hashlib.sha256(content(file["fileName"])).hexdigest(), file
