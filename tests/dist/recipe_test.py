#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""recipe_test.py RECIPE BUILD: each file that Meson installs goes into the recipe's package of its tag."""

import fnmatch
import json
import re
import sys

recipe_path, build = sys.argv[1:]
# As bitbake.conf has them, with a merged /usr.
variables = {
    "PN": "tavrisk", "SOLIBS": ".so.*", "bindir": "/usr/bin", "libdir": "/usr/lib", "datadir": "/usr/share",
    "libexecdir": "/usr/libexec", "mandir": "/usr/share/man", "nonarch_libdir": "/usr/lib",
    "systemd_system_unitdir": "/usr/lib/systemd/system",
}
with open(recipe_path, encoding="utf-8") as file:
    recipe = re.sub(r"\$\{(\w+)\}", lambda name: variables.get(name[1], name[0]), file.read().replace("\\\n", " "))


def stated(variable):
    """The words of what the recipe gives a variable, or adds to it."""
    return re.search(rf'^{re.escape(variable)} \+?= "([^"]*)"', recipe, re.MULTILINE)[1].split()


# In the order in which they take files. The classes and bitbake.conf give the last three theirs.
packages = {
    "embedded": stated("FILES:tavrisk-platform"),
    "development": stated("FILES_SOLIBSDEV"),
    "any": ["/usr/share/man", "/usr/share/bash-completion"],
    "daemon": [*stated("FILES:tavrisk"), "/usr/bin/*", "/usr/lib/systemd/system/" + stated("SYSTEMD_SERVICE:tavrisk")[0]],
}


def package_of(path):
    """The first package that has the file, or a directory that it is in."""
    for package, patterns in packages.items():
        if any(fnmatch.fnmatch(path, pattern) or path.startswith(pattern + "/") for pattern in patterns):
            return package
    return None


with open(f"{build}/meson-info/intro-install_plan.json", encoding="utf-8") as file:
    installed = [entry for kind in json.load(file).values() for entry in kind.values()]
wrong = []
for entry in installed:
    place = entry["destination"].replace("{libdir_shared}", "{libdir}").replace("{prefix}", "/usr")
    place = re.sub(r"\{(\w+)\}", lambda name: variables[name[1]], place)
    place = re.sub(r"^/lib/|^(?!/)", lambda start: "/usr" + (start[0] or "/"), place).replace("/usr/lib/x86_64-linux-gnu/", "/usr/lib/")
    tag = {"app": "embedded", "licence": "daemon"}.get(entry["tag"], entry["tag"])
    if package_of(place) not in (tag, "any"):
        wrong.append(f"{place}, of {tag}: in {package_of(place)}")
print("\n".join(wrong) or f"{len(installed)} files, each where it belongs")
sys.exit(bool(wrong) or len(installed) < 20)
