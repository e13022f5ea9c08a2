"""quillon-ux, the prompt application, answering by script: it reads the device's bundle from
its "--KEY=VALUE" arguments and sends pxm_feedback_ux with the twelve values to whoever owns
org.nuvak.quillon on the system bus (here a small stand-in service on a private bus); bad
arguments end it with status 2 before it touches the bus."""

import os
import signal
import subprocess
import sys
import threading
import unittest

from gi.repository import Gio, GLib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_harness as qh  # noqa: E402

FEEDBACK_XML = """<node><interface name='org.nuvak.quillon.UxInterface'>
<method name='pxm_feedback_ux'>
<arg type='s' name='sDevName' direction='in'/><arg type='s' name='sBtMac' direction='in'/>
<arg type='s' name='sWifiMAC' direction='in'/><arg type='s' name='sP2pMAC' direction='in'/>
<arg type='s' name='sZelId' direction='in'/><arg type='s' name='sMirroringId' direction='in'/>
<arg type='i' name='eDevType' direction='in'/><arg type='i' name='eDevIcon' direction='in'/>
<arg type='i' name='eStatus' direction='in'/>
<arg type='i' name='eTvInitMirroringSupport' direction='in'/>
<arg type='i' name='iIsNoUX' direction='in'/><arg type='i' name='iIsUXAlways' direction='in'/>
</method></interface></node>"""

# The bundle in an order other than the daemon's: the prompt must not depend on it.
BUNDLE = [
    ("ZELID", "zel-7"),
    ("DEVICENAME", "Anna's Phone = new"),
    ("WIFIMAC", "11:22:33:44:55:66"),
    ("BTMAC", "AA:BB:CC:DD:EE:FF"),
    ("P2PMAC", "0"),
    ("DEVTYPE", "11"),
    ("DEVICON", "-22"),
    ("MIRRORINGSUPPORT", "33"),
    ("NOUX", "44"),
    ("UXALWAYS", "55"),
    ("MIRRORINGID", ""),
]


def bundle_args(overrides=None, drop=()):
    values = dict(BUNDLE)
    values.update(overrides or {})
    return [f"--{key}={values[key]}" for key, _ in BUNDLE if key not in drop]


def expected_values(status):
    """What pxm_feedback_ux must carry: name, bt, wifi, p2p, zel id, mirroring id, type,
    icon, status, mirroring support, noux, uxalways."""
    return ("Anna's Phone = new", "AA:BB:CC:DD:EE:FF", "11:22:33:44:55:66", "0", "zel-7", "",
            11, -22, status, 33, 44, 55)


class FakeQuillon:
    """Owns org.nuvak.quillon on the bus and records every pxm_feedback_ux call, on a thread
    with a main context of its own."""

    def __init__(self, address):
        self._cond = threading.Condition()
        self._calls = []
        self._context = GLib.MainContext()
        self._loop = GLib.MainLoop(self._context)
        self._error = None
        ready = threading.Event()
        self._thread = threading.Thread(target=self._serve, args=(address, ready), daemon=True)
        self._thread.start()
        if not ready.wait(15):
            raise AssertionError("the stand-in service did not start")
        if self._error:
            raise AssertionError(f"the stand-in service failed: {self._error}")

    def _serve(self, address, ready):
        self._context.push_thread_default()
        try:
            flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                     | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
            self._connection = Gio.DBusConnection.new_for_address_sync(address, flags, None,
                                                                       None)
            node = Gio.DBusNodeInfo.new_for_xml(FEEDBACK_XML)
            self._connection.register_object(qh.OBJECT_PATH, node.interfaces[0],
                                             self._on_call, None, None)
            reply = self._connection.call_sync(
                "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "RequestName", GLib.Variant("(su)", (qh.BUS_NAME, 4)),
                GLib.VariantType("(u)"), Gio.DBusCallFlags.NONE, 10000, None)
            if reply.unpack()[0] != 1:
                raise RuntimeError(f"RequestName answered {reply.unpack()[0]}")
        except Exception as error:  # reported to the test's thread
            self._error = error
            ready.set()
            return
        ready.set()
        self._loop.run()
        self._connection.close_sync(None)
        self._context.pop_thread_default()

    def _on_call(self, connection, sender, path, interface, method, parameters, invocation):
        with self._cond:
            self._calls.append((interface, method, parameters.get_type_string(),
                                parameters.unpack()))
            self._cond.notify_all()
        invocation.return_value(None)

    def calls(self):
        with self._cond:
            return list(self._calls)

    def clear(self):
        with self._cond:
            self._calls.clear()

    def stop(self):
        source = GLib.idle_source_new()
        source.set_callback(lambda *args: self._loop.quit() or False)
        source.attach(self._context)
        self._thread.join(15)


class QuillonUx(qh.QuillonTestCase):

    def setUp(self):
        super().setUp()
        self.ux = qh.program("quillon-ux")
        self.start_bus()

    def start_service(self):
        service = FakeQuillon(self.bus.address)
        self.addCleanup(service.stop)
        return service

    def env(self, answer=None, delay=None):
        env = dict(os.environ)
        env.update(self.bus.env())
        env.pop("QUILLON_UX_ANSWER", None)
        env.pop("QUILLON_UX_DELAY_MS", None)
        if answer is not None:
            env["QUILLON_UX_ANSWER"] = answer
        if delay is not None:
            env["QUILLON_UX_DELAY_MS"] = delay
        return env

    def run_ux(self, args, answer=None, delay=None):
        return subprocess.run([self.ux, *args], env=self.env(answer, delay),
                              capture_output=True, text=True, timeout=60)

    def start_ux(self, args, answer=None, delay=None):
        process = subprocess.Popen([self.ux, *args], env=self.env(answer, delay),
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE)
        self.addCleanup(self._kill, process)
        return process, qh.LineCollector(process.stderr)

    @staticmethod
    def _kill(process):
        if process.poll() is None:
            process.kill()
        process.wait()
        process.stderr.close()

    def test_each_answer_sends_the_twelve_values_once(self):
        service = self.start_service()
        for answer, status, delay in (("allow", 0, None), ("deny", 1, "0"),
                                      ("undecided", 2, "20")):
            with self.subTest(answer=answer):
                service.clear()
                result = self.run_ux(bundle_args(), answer, delay)
                self.assertEqual(0, result.returncode, result.stderr)
                self.assertEqual(
                    [(qh.UX_INTERFACE, "pxm_feedback_ux", "(ssssssiiiiii)",
                      expected_values(status))],
                    service.calls())

    def test_none_answers_nothing_until_terminated(self):
        service = self.start_service()
        process, log = self.start_ux(bundle_args(), "none")
        self.assertIsNotNone(log.wait_for("waiting to be terminated", 15), log.text())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(0, process.wait(timeout=15))
        # A call is a round trip the prompt waits for, so one made would be recorded by now.
        self.assertEqual([], service.calls())

        # Terminated while it waits to answer: no answer either.
        process, log = self.start_ux(bundle_args(), "allow", "600000")
        self.assertIsNotNone(log.wait_for("answering status 0 in 600000 ms", 15), log.text())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(0, process.wait(timeout=15))
        self.assertEqual([], service.calls())

    def test_bad_arguments_end_with_status_2_before_any_call(self):
        service = self.start_service()
        cases = [
            ("missing key", bundle_args(drop=("P2PMAC",)), "allow", None, "missing key P2PMAC"),
            ("missing number", bundle_args(drop=("UXALWAYS",)), "allow", None,
             "missing key UXALWAYS"),
            ("no arguments", [], "allow", None, "missing key"),
            ("not a number", bundle_args({"DEVTYPE": "1x"}), "allow", None,
             "DEVTYPE must be a decimal integer, not '1x'"),
            ("empty number", bundle_args({"NOUX": ""}), "deny", None,
             "NOUX must be a decimal integer"),
            ("number out of range", bundle_args({"DEVICON": "99999999999"}), "deny", None,
             "DEVICON must be a decimal integer"),
            ("key twice", bundle_args() + ["--ZELID=again"], "allow", None,
             "ZELID is given twice"),
            ("unknown key", bundle_args() + ["--COLOUR=red"], "allow", None,
             "unknown key COLOUR"),
            ("no --KEY=VALUE", bundle_args() + ["DEVICENAME"], "allow", None,
             "not of the form --KEY=VALUE"),
            ("unknown answer", bundle_args(), "maybe", None,
             "QUILLON_UX_ANSWER must be allow, deny, undecided or none, not 'maybe'"),
            ("no answer", bundle_args(), None, None, "no display support yet"),
            ("bad delay", bundle_args(), "allow", "soon", "QUILLON_UX_DELAY_MS"),
            ("negative delay", bundle_args(), "allow", "-5", "QUILLON_UX_DELAY_MS"),
        ]
        for name, args, answer, delay, message in cases:
            with self.subTest(name):
                result = self.run_ux(args, answer, delay)
                self.assertEqual(2, result.returncode, result.stderr)
                self.assertIn(message, result.stderr)
        self.assertEqual([], service.calls())

    def test_an_answer_nobody_takes_ends_with_status_1(self):
        # The bus is there, the daemon is not.
        result = self.run_ux(bundle_args(), "allow")
        self.assertEqual(1, result.returncode, result.stderr)
        self.assertIn("pxm_feedback_ux failed", result.stderr)

    def test_help_describes_the_argument_form(self):
        result = self.run_ux(["--help"])
        self.assertEqual(0, result.returncode)
        for text in ("--DEVICENAME=NAME", "--ZELID=ID", '"--KEY=VALUE"', "QUILLON_UX_ANSWER",
                     "QUILLON_UX_DELAY_MS"):
            self.assertIn(text, result.stdout)


if __name__ == "__main__":
    unittest.main()
