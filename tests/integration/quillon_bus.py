"""A bus client of the quillon daemon for the integration tests: method calls and the
daemon's signals, recorded in the order they arrive, on the default GLib main context.

Every wait runs the main loop until the event or a deadline; none sleeps for a fixed time.
Needs python3-gi, so run with Debian's /usr/bin/python3.
"""

import time

from gi.repository import Gio, GLib

import quillon_harness as qh

STATUS_CHANGED = "pxm_signal_status_changed"
MIRRORING_CHANGED = "pxm_signal_tv_init_mirroring_changed"
INVALID_ARGS = "org.freedesktop.DBus.Error.InvalidArgs"
DEVICE_LIST = "a(ssssiiiiiiss)"
NOT_FOUND_ELEMENT = ("0", "0", "0", "0", 0, 0, -1, 0, 0, 0, "0", "0")

# Which interface each method is on.
INTERFACE_OF = {
    "pxm_request_access": qh.SET_INTERFACE,
    "pxm_request_access_reverse": qh.SET_INTERFACE,
    "pxm_set_status": qh.SET_INTERFACE,
    "pxm_remove_device": qh.SET_INTERFACE,
    "pxm_remove_device_reverse": qh.SET_INTERFACE,
    "pxm_remove_all": qh.SET_INTERFACE,
    "pxm_remove_all_reverse": qh.SET_INTERFACE,
    "pxm_set_tv_init_mirroring_status": qh.SET_INTERFACE,
    "pxm_set_device_extended_param_string": qh.SET_INTERFACE,
    "pxm_get_status": qh.GET_INTERFACE,
    "pxm_get_device": qh.GET_INTERFACE,
    "pxm_get_device_reverse": qh.GET_INTERFACE,
    "pxm_get_list": qh.GET_INTERFACE,
    "pxm_get_list_reverse": qh.GET_INTERFACE,
    "pxm_feedback_ux": qh.UX_INTERFACE,
}


def mac_ind(mac, ind):
    return GLib.Variant("(si)", (mac, ind))


def mac_ind_value(mac, ind, value):
    return GLib.Variant("(sii)", (mac, ind, value))


def record(name="Phone", bt="", wifi="", p2p="", zel_id="", mirroring_id="", devtype=1,
           devicon=2, status=0, tv_init=0, no_ux=0, ux_always=0):
    """The twelve arguments of the request and feedback methods, "(ssssssiiiiii)"."""
    return GLib.Variant("(ssssssiiiiii)", (name, bt, wifi, p2p, zel_id, mirroring_id, devtype,
                                           devicon, status, tv_init, no_ux, ux_always))


class Event:
    def __init__(self, kind, name, value):
        self.kind = kind    # "reply", "error" or "signal"
        self.name = name    # method or signal name
        self.value = value  # the unpacked body, or the D-Bus error name

    def __repr__(self):
        return f"{self.kind}:{self.name}{self.value!r}"


class BusClient:
    """A connection to the test's bus that records replies and the daemon's signals."""

    def __init__(self, address):
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                 Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.conn = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self.events = []
        self._subscription = self.conn.signal_subscribe(
            qh.BUS_NAME, qh.UX_INTERFACE, None, qh.OBJECT_PATH, None,
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

    def send(self, method, parameters=None, timeout=30.0):
        """Sends the call; its answer arrives later as an event."""

        def done(conn, result, _data):
            try:
                reply = conn.call_finish(result)
                self.events.append(Event("reply", method, reply.unpack()))
            except GLib.Error as error:
                remote = Gio.DBusError.get_remote_error(error)
                if remote is None and error.matches(Gio.io_error_quark(),
                                                    Gio.IOErrorEnum.TIMED_OUT):
                    remote = "timeout"
                self.events.append(Event("error", method, remote or error.message))

        self.conn.call(qh.BUS_NAME, qh.OBJECT_PATH, INTERFACE_OF[method], method, parameters,
                       None, Gio.DBusCallFlags.NO_AUTO_START, int(timeout * 1000), None, done,
                       None)

    def answer(self, method, start=0, timeout=30.0):
        """The first reply or error event of method at index >= start, waiting for it."""

        def find():
            for event in self.events[start:]:
                if event.kind != "signal" and event.name == method:
                    return event
            return None

        return self.run_until(find, timeout)

    def call(self, method, parameters=None, timeout=30.0):
        """Calls and waits. Returns the reply tuple; raises AssertionError on an error."""
        start = len(self.events)
        self.send(method, parameters, timeout)
        event = self.answer(method, start, timeout + 5)
        if event is None:
            raise AssertionError(f"{method}: no answer")
        if event.kind == "error":
            raise AssertionError(f"{method}: {event.value}")
        return event.value

    def call_error(self, method, parameters=None, timeout=30.0):
        """Calls and waits; the D-Bus error name, or None when the call was answered."""
        start = len(self.events)
        self.send(method, parameters, timeout)
        event = self.answer(method, start, timeout + 5)
        if event is None:
            raise AssertionError(f"{method}: no answer")
        return event.value if event.kind == "error" else None

    def signals(self, name=None, start=0):
        return [e for e in self.events[start:]
                if e.kind == "signal" and (name is None or e.name == name)]

    def wait_signals(self, count, name=STATUS_CHANGED, start=0, timeout=10.0):
        """The first count signals (of name) at index >= start; fewer after timeout."""
        self.run_until(lambda: len(self.signals(name, start)) >= count, timeout)
        return self.signals(name, start)

    def index(self, kind, name, start=0):
        for i in range(start, len(self.events)):
            if self.events[i].kind == kind and self.events[i].name == name:
                return i
        return -1

    def flush(self):
        """Lets every signal the daemon sent before now arrive. The daemon handles calls one
        at a time on its main loop, so the answer to a harmless query comes after whatever
        the calls before it signalled."""
        self.call("pxm_get_status", GLib.Variant("(si)", ("flush", 1)))

    @staticmethod
    def run_until(condition, timeout):
        """Runs the default main context until condition() is truthy; its value, or None
        after timeout seconds."""
        context = GLib.MainContext.default()
        deadline = time.monotonic() + timeout
        woken = []
        source = GLib.timeout_add(int(timeout * 1000) + 1, lambda: woken.append(1) or False)
        try:
            while True:
                value = condition()
                if value:
                    return value
                if woken or time.monotonic() >= deadline:
                    return None
                context.iteration(True)
        finally:
            if not woken:
                GLib.source_remove(source)
