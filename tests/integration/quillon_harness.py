"""The integration tests' harness: a private platform root, a private system-type bus with
the project's policy, the daemon with its stderr captured, Xvfb. Every wait has a timeout;
nothing sleeps for a fixed time. Run with Debian's /usr/bin/python3."""

import collections
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

from gi.repository import Gio, GLib

BUS_NAME = "org.nuvak.quillon"
OBJECT_PATH = "/org/nuvak/quillon"
SET_INTERFACE = "org.nuvak.quillon.SetInterface"
GET_INTERFACE = "org.nuvak.quillon.GetInterface"
UX_INTERFACE = "org.nuvak.quillon.UxInterface"
STORAGE_ITEM = "PXM_DEVICE_LIST"
UX_APP_ID = "org.nuvak.quillon-ux"

# Log lines the daemon writes once it serves the bus, and when it ends.
LOG_NAME_ACQUIRED = "[DBusServer] on_name_acquired name org.nuvak.quillon"
LOG_RUNNING = "[DAEMON] Quillon service is running"
LOG_INACTIVE = "[DAEMON] Quillon service is inactive"
STATUS_CHANGED = "pxm_signal_status_changed"
MIRRORING_CHANGED = "pxm_signal_tv_init_mirroring_changed"
INVALID_ARGS = "org.freedesktop.DBus.Error.InvalidArgs"


def source_dir():
    env = os.environ.get("QUILLON_SOURCE_DIR")
    return pathlib.Path(env) if env else pathlib.Path(__file__).resolve().parents[2]


def program(name):
    env = os.environ.get("QUILLON_BIN_DIR")
    path = (pathlib.Path(env) if env else source_dir() / "build" / "bin") / name
    if not path.exists():
        raise unittest.SkipTest(f"{path} is not built")
    return str(path)


def system_account(name, groups=None, group_only=False):
    """(uid, gid) of a system user (or gid of a group), made when missing, never removed:
    tests in other processes may be running as it."""
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
    """condition()'s first truthy value, tried at each event of the default main context
    (bus answers and signals arrive meanwhile) and every 50 ms; None after timeout seconds."""
    deadline = time.monotonic() + timeout
    tick = GLib.timeout_add(50, lambda: True)
    try:
        while True:
            value = condition()
            if value or time.monotonic() >= deadline:
                return value or None
            GLib.MainContext.default().iteration(True)
    finally:
        GLib.source_remove(tick)


class PlatformRoot:
    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="quillon-root-"))

    def env(self, extra=None):
        env = dict(os.environ)
        env["QUILLON_PLATFORM_ROOT"] = str(self.path)
        env.update(extra or {})
        return env

    def platform(self, *args, check=True, timeout=30, env=None):
        result = subprocess.run([program("quillon-platform"), *map(str, args)],
                                env=self.env(env), capture_output=True, text=True,
                                timeout=timeout)
        if check and result.returncode != 0:
            raise AssertionError(f"quillon-platform {' '.join(map(str, args))} exited "
                                 f"{result.returncode}: {result.stderr.strip()}")
        return result

    def init(self):
        return self.platform("init")

    def stored(self):
        result = self.platform("secure-read", STORAGE_ITEM, check=False)
        return result.stdout if result.returncode == 0 else None

    def verdicts(self):
        """The stored list, which must be in the current format, as {Wi-Fi address: status}."""
        text = self.stored()
        if text is None:
            return {}
        if not text.startswith("2\n"):
            raise AssertionError(f"the stored list is not in the current format: {text[:80]!r}")
        return {e["item_data"]["wifi_mac"]: e["item_data"]["devstatus"]
                for e in json.loads(text[2:])}

    def seed(self, text):
        path = self.path.parent / (self.path.name + ".seed")
        path.write_text(text)
        try:
            self.platform("secure-write", STORAGE_ITEM, path)
        finally:
            path.unlink()

    def wake_tables(self):
        tables = json.loads(self.platform("wake-tables", "--json").stdout)
        return ({d["address"].upper() for d in tables["bt_headless"]},
                {w["address"].upper() for w in tables["wowl_wakers"]})

    def temporaries(self, keep_pid=None):
        """".tmp-<pid>-*" files in secure/ and settings/ but those of keep_pid's writer."""
        live = f".tmp-{keep_pid}-"
        return sorted(f"{folder}/{entry.name}" for folder in ("secure", "settings")
                      if (self.path / folder).is_dir()
                      for entry in (self.path / folder).iterdir()
                      if entry.name.startswith(".tmp-") and not entry.name.startswith(live))

    def prompts(self):
        """The pids of the running prompts the host's app manager knows."""
        return [int(line.split("\t")[1]) for line in self.platform("apps").stdout.splitlines()
                if line.startswith("running\t") and UX_APP_ID in line]

    def cleanup(self):
        shutil.rmtree(self.path, ignore_errors=True)


class LineCollector:
    """A stream's lines, read on a thread of its own."""

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
        """The first line at index >= start containing text; None after timeout or at the end."""
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
    """A system-type dbus-daemon on a private socket with data/org.nuvak.quillon.conf."""

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
        ready, _, _ = select.select([self.process.stdout], [], [], 10.0)
        self.address = self.process.stdout.readline().decode().strip() if ready else ""
        if not self.address:
            err = self.process.stderr.read().decode() if self.process.poll() is not None else ""
            self.stop()
            raise AssertionError(f"dbus-daemon printed no address: {err}")

    def env(self):
        return {"DBUS_SYSTEM_BUS_ADDRESS": self.address}

    def gdbus(self, *args, timeout=30):
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
    """systemd's NOTIFY_SOCKET."""

    def __init__(self, workdir):
        self.path = str(pathlib.Path(workdir) / "notify.sock")
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(self.path)

    def env(self):
        return {"NOTIFY_SOCKET": self.path}

    def wait_for(self, text, timeout):
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


class Process:
    """A program with its stderr collected; prefix runs it (setpriv as another user)."""

    def __init__(self, argv, env, prefix=(), stdout=subprocess.DEVNULL):
        self.process = subprocess.Popen([*prefix, *argv], env=env, stdin=subprocess.DEVNULL,
                                        stdout=stdout, stderr=subprocess.PIPE)
        self.log = LineCollector(self.process.stderr)

    def wait_for_log(self, text, timeout=10.0):
        return self.log.wait_for(text, timeout)

    def wait_exit(self, timeout=15.0):
        try:
            return self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            return None

    def stop(self, sig=signal.SIGTERM, timeout=15.0):
        if self.process.poll() is None:
            self.process.send_signal(sig)
        status = self.wait_exit(timeout)
        if status is None:
            self.process.kill()
            status = self.process.wait()
        self.log.join()
        for stream in (self.process.stdout, self.process.stderr):
            if stream:
                stream.close()
        return status


X_TOOLS = ("Xvfb", "xdotool", "import")


class XServer:
    """Xvfb at a TV's 1280x720 on a display it picks, and X clients run against it."""

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
        found = self.run("xdotool", "search", *(["--sync"] if sync else []), "--name", title)
        return found.stdout.split()[0] if found.returncode == 0 else None

    def screenshot(self, name):
        """The screen as $QUILLON_TEST_OUTPUT/name (default test-output/), for a person."""
        folder = pathlib.Path(os.environ.get("QUILLON_TEST_OUTPUT", "test-output")).resolve()
        folder.mkdir(parents=True, exist_ok=True)
        shot = folder / name
        result = self.run("import", "-window", "root", str(shot))
        if result.returncode != 0:
            raise AssertionError(f"import failed: {result.stderr}")
        return shot

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


class QuillonTestCase(unittest.TestCase):
    """A root of its own for each test; a bus, the daemon and Xvfb on request, all of it
    stopped and removed when the test ends."""

    def setUp(self):
        self.root = PlatformRoot()
        self.addCleanup(self.root.cleanup)
        self.workdir = pathlib.Path(tempfile.mkdtemp(prefix="quillon-run-"))
        self.addCleanup(shutil.rmtree, self.workdir, True)
        self.bus = None

    def start_x(self):
        if not all(shutil.which(tool) for tool in X_TOOLS):
            raise unittest.SkipTest("needs Xvfb, xdotool and ImageMagick's import (make deps)")
        self.xserver = XServer()
        self.addCleanup(self.xserver.stop)
        return self.xserver

    def start_bus(self):
        self.bus = PrivateSystemBus(self.workdir / "bus")
        self.addCleanup(self.bus.stop)
        return self.bus

    def start_daemon(self, extra_env=None, wait_for=LOG_NAME_ACQUIRED, prefix=()):
        """The daemon on the test's root, once it logged wait_for. Without a bus of its own a
        test must not reach the machine's system bus."""
        env = self.root.env()
        env.pop("NOTIFY_SOCKET", None)
        env["DBUS_SYSTEM_BUS_ADDRESS"] = (self.bus.address if self.bus else
                                          f"unix:path={self.workdir}/no-bus")
        daemon = self.spawn([program("quillon")], dict(env, **(extra_env or {})), prefix)
        if wait_for is not None and daemon.wait_for_log(wait_for, 15.0) is None:
            self.fail(f"no '{wait_for}' from quillon; its log:\n{daemon.log.text()}")
        return daemon

    def spawn(self, argv, env, prefix=(), stdout=subprocess.DEVNULL):
        """A Process stopped (SIGTERM, then SIGKILL) when the test ends."""
        process = Process(argv, env, prefix, stdout)
        self.addCleanup(process.stop, signal.SIGTERM, 10.0)
        return process

    def serve(self, extra_env=None, prefix=()):
        """A serving daemon and a bus client of it, as self.daemon and self.client."""
        self.daemon = self.start_serving_daemon(extra_env, prefix)
        self.client = BusClient(self.bus.address)
        self.addCleanup(self.client.close)
        return self.daemon, self.client

    def ctl(self, *args, env=None, prefix=(), timeout=60):
        """quillonctl ARGS on the test's root, against the test's bus (or env's)."""
        return subprocess.run([*prefix, program("quillonctl"), *map(str, args)],
                              env=self.root.env(env or self.bus.env()),
                              capture_output=True, text=True, timeout=timeout)

    def start_serving_daemon(self, extra_env=None, prefix=()):
        if self.bus is None:
            self.start_bus()
        self.root.init()
        return self.start_daemon(extra_env, prefix=prefix)

    def assert_logged(self, daemon, *texts):
        """Each text in a line of the daemon's log, in this order."""
        lines, at = daemon.log.lines(), 0
        for text in texts:
            found = next((i for i in range(at, len(lines)) if text in lines[i]), -1)
            self.assertGreaterEqual(found, 0, f"'{text}' missing or out of order in:\n"
                                    + "\n".join(lines))
            at = found + 1



def interface_of(method):
    if method == "pxm_feedback_ux":
        return UX_INTERFACE
    return GET_INTERFACE if method.startswith("pxm_get_") else SET_INTERFACE


def mac_ind(mac, ind):
    return GLib.Variant("(si)", (mac, ind))


def mac_ind_value(mac, ind, value):
    return GLib.Variant("(sii)", (mac, ind, value))


def record(name="Phone", bt="", wifi="", p2p="", zel_id="", mirroring_id="", devtype=1,
           devicon=2, status=0, tv_init=0, no_ux=0, ux_always=0):
    """The twelve arguments of the request and feedback methods, "(ssssssiiiiii)"."""
    return GLib.Variant("(ssssssiiiiii)", (name, bt, wifi, p2p, zel_id, mirroring_id, devtype,
                                           devicon, status, tv_init, no_ux, ux_always))


# kind: "reply", "error" or "signal"; name: the method's or signal's; value: the unpacked
# body, or the D-Bus error's name.
Event = collections.namedtuple("Event", "kind name value")


class BusClient:
    """A connection to the test's bus that records replies and the daemon's signals."""

    def __init__(self, address):
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                 Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.conn = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self.events = []
        self._subscription = self.conn.signal_subscribe(
            BUS_NAME, UX_INTERFACE, None, OBJECT_PATH, None,
            Gio.DBusSignalFlags.NONE, self._on_signal)
        # Answered only after the match rule sent before it: no signal is missed from now on.
        self.conn.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "GetId", None, None,
                            Gio.DBusCallFlags.NONE, 5000, None)

    def close(self):
        self.conn.signal_unsubscribe(self._subscription)
        self.conn.close_sync(None)

    def _on_signal(self, _conn, _sender, _path, _interface, name, parameters):
        self.events.append(Event("signal", name, parameters.unpack()))

    def call(self, method, parameters=None, timeout=30.0, error=False):
        """Calls and runs the main loop until the answer: the reply tuple, raising on an
        error; with error=True, the error's name (None when the call was answered)."""
        answer = []

        def done(conn, result, _data):
            try:
                answer.append(Event("reply", method, conn.call_finish(result).unpack()))
            except GLib.Error as failure:
                answer.append(Event("error", method, Gio.DBusError.get_remote_error(failure)
                                    or failure.message))
            self.events.append(answer[0])

        self.conn.call(BUS_NAME, OBJECT_PATH, interface_of(method), method, parameters, None,
                       Gio.DBusCallFlags.NO_AUTO_START, int(timeout * 1000), None, done, None)
        if not wait_until(lambda: answer, timeout + 5):
            raise AssertionError(f"{method}: no answer")
        kind, _, value = answer[0]
        if error:
            return value if kind == "error" else None
        if kind == "error":
            raise AssertionError(f"{method}: {value}")
        return value

    def signals(self, name=None, start=0):
        return [e for e in self.events[start:]
                if e.kind == "signal" and (name is None or e.name == name)]

    def wait_signals(self, count, name=STATUS_CHANGED, start=0, timeout=10.0):
        """The first count signals (of name) at index >= start; fewer after timeout."""
        wait_until(lambda: len(self.signals(name, start)) >= count, timeout)
        return self.signals(name, start)

    def flush(self):
        """Lets every signal the daemon sent before now arrive. The daemon handles calls one
        at a time on its main loop, so the answer to a harmless query comes after whatever
        the calls before it signalled."""
        self.call("pxm_get_status", GLib.Variant("(si)", ("flush", 1)))
