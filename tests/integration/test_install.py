"""The installed tree as a package or `make install` lays it out: every file in its place,
the unit verified by systemd-analyze and rated 3.0 or better by its security check, the
bus files well formed, the programs answering --version and --help without touching any
state, and the Debian package carrying the same files and its library dependencies."""

import configparser
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ET


BUILD = pathlib.Path(os.environ.get("QUILLON_BUILD_DIR", ""))
PREFIX = os.environ.get("QUILLON_INSTALL_PREFIX", "/usr/local").lstrip("/")

EXPECTED = {
    "bin/quillonctl", "bin/quillon-platform", "bin/quillon-ux", "bin/quillon-devices",
    "libexec/quillon",
    "lib/systemd/system/quillon.service", "lib/sysusers.d/quillon.conf",
    "share/dbus-1/system.d/org.nuvak.quillon.conf",
    "share/dbus-1/system-services/org.nuvak.quillon.service",
    "share/quillon/apps/org.nuvak.quillon-ux",
    "share/applications/org.nuvak.quillon-devices.desktop",
    "share/bash-completion/completions/quillonctl",
    "share/man/man8/quillon.8", "share/man/man1/quillonctl.1",
    "share/man/man1/quillon-platform.1", "share/man/man1/quillon-ux.1",
    "share/man/man1/quillon-devices.1",
}
PROGRAMS = sorted(p for p in EXPECTED if p.startswith(("bin/", "libexec/")))


@unittest.skipUnless((BUILD / "cmake_install.cmake").exists(), "needs QUILLON_BUILD_DIR")
class Installed(unittest.TestCase):

    def setUp(self):
        self.stage = pathlib.Path(tempfile.mkdtemp(prefix="quillon-install-"))
        self.addCleanup(shutil.rmtree, self.stage, True)

    def files_under(self, root):
        base = root / PREFIX
        return {str(p.relative_to(base)) for p in base.rglob("*") if p.is_file()}

    def test_the_installed_tree_unit_and_programs(self):
        subprocess.run(["cmake", "--install", str(BUILD)], check=True, capture_output=True,
                       env=dict(os.environ, DESTDIR=str(self.stage)))
        self.assertEqual(EXPECTED, self.files_under(self.stage))
        prefix = "/" + PREFIX
        base = self.stage / PREFIX
        self.assertEqual(f"{prefix}/bin/quillon-ux\n",
                         (base / "share/quillon/apps/org.nuvak.quillon-ux").read_text())
        desktop = configparser.ConfigParser(interpolation=None)
        desktop.read(base / "share/applications/org.nuvak.quillon-devices.desktop")
        self.assertEqual(f"{prefix}/bin/quillon-devices", desktop["Desktop Entry"]["Exec"])
        ET.parse(base / "share/dbus-1/system.d/org.nuvak.quillon.conf")
        activation = (base / "share/dbus-1/system-services/org.nuvak.quillon.service").read_text()
        self.assertIn("SystemdService=quillon.service", activation)

        unit = base / "lib/systemd/system/quillon.service"
        text = unit.read_text()
        self.assertIn(f"ExecStart={prefix}/libexec/quillon\n", text)
        self.assertIn(f"ExecStartPre={prefix}/bin/quillon-platform init --repair\n", text)
        watchdog = int(re.search(r"^WatchdogSec=(\d+)$", text, re.M).group(1))
        self.assertGreaterEqual(watchdog, 2 * 15, "at least twice the 15 s ping")

        if shutil.which("systemd-analyze"):
            # The staged root needs the targets the unit orders itself against.
            units = self.stage / "usr/lib/systemd/system"
            units.mkdir(parents=True, exist_ok=True)
            for name in os.listdir("/lib/systemd/system"):
                if name.endswith((".target", ".slice")) or name.startswith("dbus."):
                    shutil.copy(os.path.join("/lib/systemd/system", name), units / name)
            if unit != units / "quillon.service":
                shutil.copy(unit, units / "quillon.service")
            verify = subprocess.run(["systemd-analyze", "verify", "--man=no",
                                     f"--root={self.stage}", str(units / "quillon.service")],
                                    capture_output=True, text=True)
            self.assertEqual(0, verify.returncode, verify.stderr)
            security = subprocess.run(["systemd-analyze", "security", "--offline=yes",
                                       f"--root={self.stage}", "quillon.service"],
                                      capture_output=True, text=True)
            level = re.search(r"Overall exposure level for quillon.service: ([0-9.]+)",
                              security.stdout)
            self.assertIsNotNone(level, security.stdout + security.stderr)
            self.assertLessEqual(float(level.group(1)), 3.0, security.stdout)

        # The programs run, and --version and --help answer without touching any state.
        state = self.stage / "state"
        env = dict(os.environ, QUILLON_PLATFORM_ROOT=str(state))
        for program in PROGRAMS:
            result = subprocess.run([str(base / program), "--version"], env=env,
                                    capture_output=True, text=True, timeout=10)
            name = os.path.basename(program)
            self.assertEqual((0, f"{name} 0.1\n"), (result.returncode, result.stdout))
        daemon = str(base / "libexec/quillon")
        self.assertEqual(0, subprocess.run([daemon, "--help"], env=env, capture_output=True,
                                           timeout=10).returncode)
        self.assertEqual(2, subprocess.run([daemon, "--frob"], env=env, capture_output=True,
                                           timeout=10).returncode)
        self.assertFalse(state.exists())

    @unittest.skipUnless(shutil.which("cpack") and shutil.which("dpkg-shlibdeps"),
                         "needs cpack and dpkg-dev")
    def test_the_debian_package_carries_the_tree_and_its_dependencies(self):
        subprocess.run(["cpack", "-G", "DEB", "--config", str(BUILD / "CPackConfig.cmake"),
                        "-B", str(self.stage / "out")], check=True, capture_output=True)
        package = next((self.stage / "out").glob("quillon_*.deb"))
        subprocess.run(["dpkg", "-x", str(package), str(self.stage / "root")], check=True)
        self.assertEqual(EXPECTED, self.files_under(self.stage / "root"))
        depends = subprocess.check_output(["dpkg-deb", "-f", str(package), "Depends"],
                                          text=True)
        for library in ("libglib2.0", "libsodium", "libsqlite3", "libjsoncpp", "libsystemd",
                        "dbus"):
            self.assertIn(library, depends)
        self.assertIn("postinst", subprocess.check_output(
            ["dpkg-deb", "--ctrl-tarfile", str(package)]).decode(errors="replace"))


if __name__ == "__main__":
    unittest.main()
