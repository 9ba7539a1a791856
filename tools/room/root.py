"""Steps that only root may take, for a user who is not root: through sudo, where it does not ask for a password."""
import os
import shutil
import subprocess
import sys

AS_ROOT = () if os.geteuid() == 0 else ("sudo", "-n")
# Where a user's search path lacks the system's tools.
os.environ["PATH"] += ":/usr/sbin:/sbin"


def no_root():
    """Why nothing can be done as root; None when it can."""
    if os.geteuid() == 0:
        return None
    if not shutil.which("sudo"):
        return "needs root, and there is no sudo"
    if subprocess.run([*AS_ROOT, "true"], capture_output=True).returncode != 0:
        return "needs root, and sudo asks for a password"
    return None


def environment():
    """The beginning of a command line for sudo, which leaves a program none of the variables."""
    return ["env", *(f"{name}={value}" for name, value in os.environ.items())]


def continue_as_root():
    """Starts this program anew as root, unless it is root's already."""
    if os.geteuid() != 0:
        os.execvp("sudo", [*AS_ROOT, *environment(), sys.executable, *sys.argv])


def as_user():
    """The beginning of a command line with which root starts a program for the user of this one."""
    if os.geteuid() == 0:
        return []
    return ["setpriv", f"--reuid={os.getuid()}", f"--regid={os.getgid()}", "--init-groups", *environment()]


def mount_small(test, directory, options):
    """Puts a file system of its own on a directory until the end of a test, which is skipped where that cannot be."""
    why = no_root()
    if why:
        test.skipTest(why)
    owner = f"uid={os.getuid()},gid={os.getgid()}"
    done = subprocess.run([*AS_ROOT, "mount", "-t", "tmpfs", "-o", f"{options},{owner}", "tmpfs", directory],
                          capture_output=True)
    if done.returncode != 0:
        test.skipTest("file systems cannot be mounted here")
    test.addCleanup(subprocess.run, [*AS_ROOT, "umount", "-l", directory], check=True)
