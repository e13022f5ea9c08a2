"""Shared helpers for the integration tests: a private platform root, quillon-platform,
a private system-type dbus-daemon with the project's policy, the quillon daemon with its
stderr captured, and a NOTIFY_SOCKET receiver standing in for systemd.

Every helper waits for events with a timeout; none sleeps for a fixed time. Run with
Debian's /usr/bin/python3 (python3-gi and python3-dbus live there).
"""

import fcntl
import getpass
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

BUS_NAME = "org.nuvak.quillon"
OBJECT_PATH = "/org/nuvak/quillon"
SET_INTERFACE = "org.nuvak.quillon.SetInterface"
GET_INTERFACE = "org.nuvak.quillon.GetInterface"
UX_INTERFACE = "org.nuvak.quillon.UxInterface"
STORAGE_ITEM = "PXM_DEVICE_LIST"
UX_APP_ID = "org.nuvak.quillon-ux"

# Log lines the daemon writes once it serves the bus, and when it ends.
LOG_NAME_ACQUIRED = "[DBusServer] on_name_acquired name org.nuvak.quillon"
LOG_REGISTERED = "[DBusServer] register_object completed"
LOG_RUNNING = "[DAEMON] Quillon service is running"
LOG_INACTIVE = "[DAEMON] Quillon service is inactive"


def source_dir():
    """The repository root: $QUILLON_SOURCE_DIR, else two levels above this file."""
    env = os.environ.get("QUILLON_SOURCE_DIR")
    return pathlib.Path(env) if env else pathlib.Path(__file__).resolve().parents[2]


def program(name):
    """A built program: from $QUILLON_BIN_DIR, else build/bin of the repository."""
    env = os.environ.get("QUILLON_BIN_DIR")
    path = (pathlib.Path(env) if env else source_dir() / "build" / "bin") / name
    if not path.exists():
        raise unittest.SkipTest(f"{path} is not built")
    return str(path)


def system_account(name, groups=None, group_only=False):
    """(uid, gid) of a system user (or gid of a group) the package's sysusers file would
    make, made when missing. Never removed: tests in other processes may be using it, and
    creation is serialised across them."""
    with open("/tmp/quillon-test-accounts.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        database = "group" if group_only else "passwd"
        if subprocess.run(["getent", database, name], capture_output=True).returncode != 0:
            if group_only:
                subprocess.run(["groupadd", "--system", name], check=True)
            else:
                subprocess.run(["useradd", "--system", "--no-create-home", "--user-group",
                                "--shell", "/usr/sbin/nologin", name], check=True)
        if groups:
            subprocess.run(["usermod", "--append", "--groups", groups, name], check=True)
    if group_only:
        return int(subprocess.check_output(["getent", "group", name]).split(b":")[2])
    return (int(subprocess.check_output(["id", "-u", name])),
            int(subprocess.check_output(["id", "-g", name])))


def wait_until(condition, timeout):
    """Polls condition() until it is truthy; its value, or None after timeout seconds. For
    state another process keeps on disk, which announces nothing."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value or time.monotonic() >= deadline:
            return value or None
        time.sleep(0.05)


class PlatformRoot:
    """A temporary QUILLON_PLATFORM_ROOT, removed again by cleanup()."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="quillon-root-"))

    def env(self, extra=None):
        env = dict(os.environ)
        env["QUILLON_PLATFORM_ROOT"] = str(self.path)
        env.update(extra or {})
        return env

    def platform(self, *args, check=True, timeout=30):
        """Runs quillon-platform ARGS on this root; returns the CompletedProcess."""
        result = subprocess.run([program("quillon-platform"), *map(str, args)],
                                env=self.env(), capture_output=True, text=True,
                                timeout=timeout)
        if check and result.returncode != 0:
            raise AssertionError(f"quillon-platform {' '.join(map(str, args))} exited "
                                 f"{result.returncode}: {result.stderr.strip()}")
        return result

    def init(self):
        """Seeds the default settings, as a fresh TV has them."""
        return self.platform("init")

    def stored(self):
        """The stored device list as text, or None when there is no item."""
        result = self.platform("secure-read", STORAGE_ITEM, check=False)
        return result.stdout if result.returncode == 0 else None

    def verdicts(self):
        """The stored list as {Wi-Fi address: status}; {} when nothing is stored. Fails
        unless the item is the current format: "2", a line feed and a JSON array."""
        text = self.stored()
        if text is None:
            return {}
        if not text.startswith("2\n"):
            raise AssertionError(f"the stored list is not in the current format: {text[:80]!r}")
        return {e["item_data"]["wifi_mac"]: e["item_data"]["devstatus"]
                for e in json.loads(text[2:])}

    def seed(self, text):
        """Stores text as the device list, as an older daemon would have left it."""
        path = self.path.parent / (self.path.name + ".seed")
        path.write_text(text)
        try:
            self.platform("secure-write", STORAGE_ITEM, path)
        finally:
            path.unlink()

    def wake_tables(self):
        """The addresses in the Bluetooth power-on table and in the Wake-on-WLAN table."""
        tables = json.loads(self.platform("wake-tables", "--json").stdout)
        return ({d["address"].upper() for d in tables["bt_headless"]},
                {w["address"].upper() for w in tables["wowl_wakers"]})

    def temporaries(self, keep_pid=None):
        """Temporary files (".tmp-<pid>-*") in secure/ and settings/, as "folder/name"; those
        of keep_pid, a writer still running, are left out."""
        live = f".tmp-{keep_pid}-"
        return sorted(f"{folder}/{entry.name}" for folder in ("secure", "settings")
                      if (self.path / folder).is_dir()
                      for entry in (self.path / folder).iterdir()
                      if entry.name.startswith(".tmp-") and not entry.name.startswith(live))

    def cleanup(self):
        shutil.rmtree(self.path, ignore_errors=True)


class LineCollector:
    """Reads a stream on a thread of its own and keeps its lines; waits for a line."""

    def __init__(self, stream):
        self._lines = []
        self._closed = False
        self._cond = threading.Condition()
        self._thread = threading.Thread(target=self._read, args=(stream,), daemon=True)
        self._thread.start()

    def _read(self, stream):
        for raw in iter(stream.readline, b""):
            with self._cond:
                self._lines.append(raw.decode("utf-8", "replace").rstrip("\n"))
                self._cond.notify_all()
        with self._cond:
            self._closed = True
            self._cond.notify_all()

    def lines(self):
        with self._cond:
            return list(self._lines)

    def text(self):
        return "\n".join(self.lines())

    def wait_for(self, text, timeout=10.0, start=0):
        """The first line at index >= start containing text, or None after timeout
        (or when the stream closed without it)."""
        deadline = time.monotonic() + timeout
        with self._cond:
            index = start
            while True:
                while index < len(self._lines):
                    if text in self._lines[index]:
                        return self._lines[index]
                    index += 1
                remaining = deadline - time.monotonic()
                if self._closed or remaining <= 0:
                    return None
                self._cond.wait(remaining)

    def join(self, timeout=5.0):
        self._thread.join(timeout)


class PrivateSystemBus:
    """A dbus-daemon of system type on a private socket, configured from
    data/dbus-dev-system.conf.in so that data/org.nuvak.quillon.conf is in force."""

    def __init__(self, workdir):
        self.workdir = pathlib.Path(workdir)
        self.workdir.mkdir(parents=True, exist_ok=True)
        template = (source_dir() / "data" / "dbus-dev-system.conf.in").read_text()
        config = (template
                  .replace("@LISTEN@", f"unix:path={self.workdir / 'system_bus_socket'}")
                  .replace("@POLICY_FILE@",
                           str(source_dir() / "data" / "org.nuvak.quillon.conf"))
                  .replace("@USER@", getpass.getuser()))
        config_path = self.workdir / "system-bus.conf"
        config_path.write_text(config)
        dbus_daemon = shutil.which("dbus-daemon")
        if dbus_daemon is None:
            raise unittest.SkipTest("dbus-daemon is not installed")
        self.process = subprocess.Popen(
            [dbus_daemon, f"--config-file={config_path}", "--nofork", "--print-address=1"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        # It prints its address once it listens.
        ready, _, _ = select.select([self.process.stdout], [], [], 10.0)
        self.address = self.process.stdout.readline().decode().strip() if ready else ""
        if not self.address:
            err = self.process.stderr.read().decode() if self.process.poll() is not None else ""
            self.stop()
            raise AssertionError(f"dbus-daemon printed no address: {err}")

    def env(self):
        """What a client of this bus needs: GLib and libdbus honour this variable."""
        return {"DBUS_SYSTEM_BUS_ADDRESS": self.address}

    def gdbus(self, *args, timeout=30):
        """Runs `gdbus ARGS --address ADDRESS`; returns the CompletedProcess."""
        command, rest = args[0], args[1:]
        return subprocess.run(["gdbus", command, "--address", self.address, *rest],
                              capture_output=True, text=True, timeout=timeout)

    def name_has_owner(self, name=BUS_NAME):
        result = self.gdbus("call", "--dest", "org.freedesktop.DBus", "--object-path",
                            "/org/freedesktop/DBus", "--method",
                            "org.freedesktop.DBus.NameHasOwner", name)
        if result.returncode != 0:
            raise AssertionError(f"NameHasOwner failed: {result.stderr}")
        return result.stdout.strip() == "(true,)"

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process.stdout.close()
        self.process.stderr.close()


class NotifySocket:
    """A datagram socket standing in for systemd's NOTIFY_SOCKET."""

    def __init__(self, workdir):
        self.path = str(pathlib.Path(workdir) / "notify.sock")
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(self.path)

    def env(self):
        return {"NOTIFY_SOCKET": self.path}

    def wait_for(self, text, timeout):
        """The first datagram containing text within timeout, or None."""
        deadline = time.monotonic() + timeout
        while True:
            remaining = deadline - time.monotonic()
            if remaining <= 0 or not select.select([self.sock], [], [], remaining)[0]:
                return None
            message = self.sock.recv(4096).decode("utf-8", "replace")
            if text in message:
                return message

    def close(self):
        self.sock.close()


class Daemon:
    """build/bin/quillon as a child process with its stderr captured line by line."""

    def __init__(self, env, prefix=()):
        # prefix: a command that runs the daemon, e.g. setpriv as another user.
        self.process = subprocess.Popen([*prefix, program("quillon")], env=env,
                                        stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.log = LineCollector(self.process.stderr)

    def wait_for_log(self, text, timeout=10.0):
        return self.log.wait_for(text, timeout)

    def wait_exit(self, timeout=15.0):
        """The exit status (negative: killed by that signal), or None if still running."""
        try:
            return self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            return None

    def stop(self, sig=signal.SIGTERM, timeout=15.0):
        """Sends sig and waits for the exit; kills after timeout. Returns the status."""
        if self.process.poll() is None:
            self.process.send_signal(sig)
        status = self.wait_exit(timeout)
        if status is None:
            self.process.kill()
            status = self.process.wait()
        self.log.join()
        self.process.stderr.close()
        return status


def output_dir():
    """Where a test leaves what a person may want to look at (screenshots):
    $QUILLON_TEST_OUTPUT, else test-output/ of the working folder."""
    path = pathlib.Path(os.environ.get("QUILLON_TEST_OUTPUT", "test-output")).resolve()
    path.mkdir(parents=True, exist_ok=True)
    return path


X_TOOLS = ("Xvfb", "xdotool", "import")


class XServer:
    """Xvfb on a free display (the server picks it) at a TV's 1280x720, and X clients
    (xdotool, import) run against it."""

    def __init__(self):
        read, write = os.pipe()
        self.process = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write), "-screen", "0", "1280x720x24", "-nolisten",
             "tcp"], pass_fds=(write,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write)
        with os.fdopen(read) as number:
            self.display = ":" + number.readline().strip()
        if self.display == ":":
            self.stop()
            raise AssertionError("Xvfb gave no display")

    def run(self, *args, timeout=20):
        return subprocess.run(list(args), env=dict(os.environ, DISPLAY=self.display),
                              capture_output=True, text=True, timeout=timeout)

    def find_window(self, title, sync=True):
        """The id of the first window with this title (waiting for it with sync), or None."""
        found = self.run("xdotool", "search", *(["--sync"] if sync else []), "--name", title)
        return found.stdout.split()[0] if found.returncode == 0 else None

    def screenshot(self, name):
        """The whole screen as output_dir()/name; its path."""
        shot = output_dir() / name
        result = self.run("import", "-window", "root", str(shot))
        if result.returncode != 0:
            raise AssertionError(f"import failed: {result.stderr}")
        return shot

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


class QuillonTestCase(unittest.TestCase):
    """Gives each test its own root, and starts a bus and the daemon on request; all of it
    is stopped and removed when the test ends, also when it fails."""

    def setUp(self):
        self.root = PlatformRoot()
        self.addCleanup(self.root.cleanup)
        self.workdir = pathlib.Path(tempfile.mkdtemp(prefix="quillon-run-"))
        self.addCleanup(shutil.rmtree, self.workdir, True)
        self.bus = None

    def start_x(self):
        """An X server for this test; skips the test when Xvfb or its tools are missing."""
        if not all(shutil.which(tool) for tool in X_TOOLS):
            raise unittest.SkipTest("needs Xvfb, xdotool and ImageMagick's import (make deps)")
        self.xserver = XServer()
        self.addCleanup(self.xserver.stop)
        return self.xserver

    def start_bus(self):
        self.bus = PrivateSystemBus(self.workdir / "bus")
        self.addCleanup(self.bus.stop)
        return self.bus

    def daemon_env(self, extra=None):
        env = self.root.env()
        # Without a bus of its own a test must not reach the machine's system bus.
        env["DBUS_SYSTEM_BUS_ADDRESS"] = (self.bus.address if self.bus else
                                          f"unix:path={self.workdir}/no-bus")
        env.pop("NOTIFY_SOCKET", None)
        env.update(extra or {})
        return env

    def start_daemon(self, extra_env=None, wait_for=None, timeout=15.0, prefix=()):
        """Starts quillon; with wait_for, fails unless that log line appears in time."""
        daemon = Daemon(self.daemon_env(extra_env), prefix)
        self.addCleanup(daemon.stop, signal.SIGTERM, 10.0)
        if wait_for is not None and daemon.wait_for_log(wait_for, timeout) is None:
            self.fail(f"no '{wait_for}' from quillon; its log:\n{daemon.log.text()}")
        return daemon

    def start_serving_daemon(self, extra_env=None, prefix=()):
        """A bus, an initialised root and a daemon that owns its name and object."""
        if self.bus is None:
            self.start_bus()
        self.root.init()
        daemon = self.start_daemon(extra_env, wait_for=LOG_REGISTERED, prefix=prefix)
        if daemon.wait_for_log(LOG_NAME_ACQUIRED, 15.0) is None:
            self.fail(f"quillon did not get its name; its log:\n{daemon.log.text()}")
        return daemon

    def assert_logged(self, daemon, *texts):
        """Each text in a line of the daemon's log, in this order."""
        lines, at = daemon.log.lines(), 0
        for text in texts:
            found = next((i for i in range(at, len(lines)) if text in lines[i]), -1)
            self.assertGreaterEqual(found, 0, f"'{text}' missing or out of order in:\n"
                                    + "\n".join(lines))
            at = found + 1
