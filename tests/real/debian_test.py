#!/usr/bin/env python3
"""The Debian packages that ./dev package has made: their contents, their dependencies, and that the command starts.
debian_test.py DIRECTORY"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

# A package's dependency, and files that it must have.
WANTED = {
    "libquorl1": ("libc6", [r"usr/lib/[^/]+/libquorl\.so\.1"]),
    "libquorl-dev": (r"libquorl1 \(= ", [r"usr/include/quorl/host\.h", r"usr/lib/[^/]+/libquorl\.so",
                                         r"usr/lib/[^/]+/pkgconfig/quorl\.pc", r".*/QuorlConfig\.cmake"]),
    "quorl": (r"libquorl1 \(>= ", [r"usr/bin/quorl", r"usr/lib/systemd/system/quorl-receive\.service",
                                   r"usr/lib/sysusers\.d/quorl\.conf", r"usr/lib/sysctl\.d/60-quorl\.conf",
                                   r"usr/share/man/man1/quorl-send\.1\.gz"]),
}


def output(*words, **environment):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, **environment).stdout


def check(name, package):
    dependency, files = WANTED[name]
    assert re.search(dependency, output("dpkg-deb", "-f", package, "Depends")), f"{name} needs no {dependency}"
    contents = [line.split()[5] for line in output("dpkg-deb", "-c", package).splitlines()]
    for file in [*files, f"usr/share/doc/{name}/copyright", f"usr/share/doc/{name}/changelog\\.gz"]:
        assert any(re.fullmatch(r"\./" + file, there) for there in contents), f"{name} lacks {file}"


def main(directory):
    packages = {path.name.split("_")[0]: path for path in Path(directory).glob("*.deb")}
    assert set(packages) == set(WANTED), sorted(packages)
    with tempfile.TemporaryDirectory(prefix="quorl-packages-") as root:
        for name, package in packages.items():
            check(name, package)
            subprocess.run(["dpkg-deb", "-x", package, root], check=True)
        library = next(Path(root).glob("usr/lib/*/libquorl.so.1")).parent
        version = output(Path(root) / "usr/bin/quorl", "--version", env={"LD_LIBRARY_PATH": str(library)})
        assert version.startswith("quorl "), version
    print("the packages hold what they must")


if __name__ == "__main__":
    main(*sys.argv[1:])
