#!/usr/bin/env python3
"""What is installed and packaged: strangers' programs build against it and run, pages and units are in order."""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from room import BUILD, differences, free_port, write

SOURCE = Path(__file__).resolve().parents[2]
EXAMPLES = SOURCE / "examples"


def run(*words, cwd=None, **environment):
    done = subprocess.run([str(word) for word in words], cwd=cwd, env={**os.environ, **environment}, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise AssertionError(f"{words} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def needs(*tools):
    missing = [tool for tool in tools if not shutil.which(tool)]
    return unittest.skipIf(missing, f"not installed: {', '.join(missing)}")


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.path = Path(tempfile.mkdtemp(prefix="quorl-package-"))
        cls.addClassCleanup(shutil.rmtree, cls.path)
        run("cmake", "--install", BUILD, "--prefix", cls.path / "first")
        # Nothing in it may know where it was put.
        cls.prefix = (cls.path / "first").rename(cls.path / "moved")
        cls.library = {"LD_LIBRARY_PATH": str(cls.prefix / "lib")}

    def host(self, *words):
        process = subprocess.Popen([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   text=True, env={**os.environ, **self.library})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        return process

    @needs("cc", "pkg-config")
    def test_hosts_in_three_languages_and_a_transfer_between_them(self):
        flags = run("pkg-config", "--cflags", "--libs", "quorl",
                    PKG_CONFIG_PATH=str(self.prefix / "lib" / "pkgconfig")).split()
        run("cc", "-Wall", "-Wextra", "-Werror", EXAMPLES / "send.c", *flags, "-o", self.path / "send")
        run("cmake", "-S", EXAMPLES, "-B", self.path / "hosts", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", self.path / "hosts")

        source, targets, port = self.path / "source", [self.path / "cpp", self.path / "python"], free_port()
        for name, size in {"big": 1_000_000, "a/b/deep": 4254, "a/empty": 0}.items():
            write(source / "tree" / name, size)
        for target in targets:
            target.mkdir()
        receivers = [self.host(self.path / "hosts" / "receive", targets[0], "127.0.0.2", port),
                     self.host("python3", EXAMPLES / "watch.py", targets[1], "127.0.0.3", port)]
        for receiver in receivers:
            self.assertEqual(receiver.stdout.readline(), "listening\n")
        sender = self.host(self.path / "send", source, "tree", "127.0.0.1", port)
        self.assertEqual(sender.communicate(timeout=60)[0], "0 of 2 receivers failed\n")
        for receiver, target in zip(receivers, targets):
            said = receiver.communicate(timeout=60)[0]
            self.assertEqual(receiver.returncode, 0, said)
            self.assertIn("239 of 239 blocks stored", said)
            self.assertEqual(differences(source, target), [])

    def test_the_library_exports_what_its_headers_declare(self):
        # Type A is the name of the version itself.
        exported = {row.split()[-1].split("@")[0] for row in run("nm", "-D", "--defined-only", BUILD / "libquorl.so")
                    .splitlines() if row.split()[-2] != "A"}
        own, additions = (set(re.findall(r"^QUORL_EXPORT [^;(]*?(\w+)\s*\(", (SOURCE / "include/quorl" / header)
                                         .read_text(), re.MULTILINE)) for header in ("quorl.h", "host.h"))
        self.assertEqual((exported, len(own)), (own | additions, 13))

    def test_the_guide_shows_code_that_runs(self):
        programs = "\n".join(path.read_text() for path in EXAMPLES.rglob("*") if path.is_file())
        guide = (SOURCE / "docs" / "hosts.md").read_text()
        blocks = re.findall(r"(?s)```(?:c|cpp|cmake|python)\n(.*?)```", guide)
        self.assertGreater(len(blocks), 4)
        for block in blocks:
            self.assertIn(block, programs)

    def test_manual_and_completion_know_every_option(self):
        table = json.loads(run(BUILD / "cli" / "print_options"))
        known = {row["name"]: {option["name"] for option in row["options"]} for row in table["commands"]}
        completion = {path: (self.prefix / "share" / path).read_text()
                      for path in ("bash-completion/completions/quorl", "zsh/site-functions/_quorl")}
        for command, options in known.items():
            page = self.prefix / f"share/man/man1/quorl-{command}.1"
            for name in options:
                if command != "demo":
                    self.assertIn(name.replace("-", "\\-") + "\\fR", page.read_text())
                for path, text in completion.items():
                    self.assertIn(name, text, path)
        # And nothing that is written for people names one that does not exist.
        texts = [SOURCE / "README.md", *(SOURCE / "docs").glob("*.md"), *(SOURCE / "packaging/manual").glob("*.in")]
        for path in texts:
            for command, rest in re.findall(r"quorl (send|receive|list|doctor|demo)\b([^\n`\"]*)", path.read_text()):
                named = set(re.findall(r"(--[a-z-]+)", rest.replace("\\-", "-")))
                self.assertEqual(named - known[command] - {"--help"}, set(), path)

    def test_completion_in_bash(self):
        script = f"source {self.prefix}/share/bash-completion/completions/quorl\n" \
                 'for word; do COMP_WORDS=(quorl $word); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quorl\n' \
                 'echo "${COMPREPLY[*]}"; done'
        asked = ["rec", "send --wait-", "receive --existing o", "receive -e s", "list -i l", "doctor --inter"]
        self.assertEqual(run("bash", "-c", script, "_", *asked).splitlines(),
                         ["receive", "--wait-for", "overwrite", "skip", "lo", "--interface"])

    @needs("mandoc")
    def test_pages_are_well_formed(self):
        self.assertEqual(run("mandoc", "-T", "lint", "-W", "warning", *self.prefix.glob("share/man/man1/*.1")), "")

    @needs("systemd-analyze")
    def test_the_units_are_in_order(self):
        for kind in ("system", "user"):
            unit = self.path / kind / "quorl-receive.service"
            unit.parent.mkdir()
            # The command and its manual page are looked for on this machine, where they are not.
            unit.write_text((self.prefix / "lib/systemd" / kind / unit.name).read_text()
                            .replace("=quorl ", f"={self.prefix}/bin/quorl ").replace("Documentation=", "#"))
            self.assertEqual(run("systemd-analyze", "verify", "--man=no", f"--{kind}", unit,
                                 XDG_RUNTIME_DIR=str(self.path)), "")
        run("systemd-analyze", "security", "--offline=true", "--threshold=20", self.path / "system" / unit.name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
