"""quillon on a private system-type bus: it owns its name, serves the introspection of its
object with the three interfaces, survives losing the name, and the bus policy keeps
unprivileged callers away from the Set and Ux interfaces."""

import os
import shutil
import signal
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ET

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_harness as qh  # noqa: E402

SET_METHODS = {
    "pxm_request_access", "pxm_set_status", "pxm_remove_device", "pxm_remove_all",
    "pxm_set_tv_init_mirroring_status", "pxm_set_device_extended_param_string",
    "pxm_request_access_reverse", "pxm_remove_device_reverse", "pxm_remove_all_reverse",
}
GET_METHODS = {
    "pxm_get_status", "pxm_get_device", "pxm_get_list", "pxm_get_device_reverse",
    "pxm_get_list_reverse",
}
DEVICE_LIST = "a(ssssiiiiiiss)"


def args_of(element, direction):
    return [a.get("type") for a in element.findall("arg")
            if a.get("direction", "in" if element.tag == "method" else None) == direction]


class BusService(qh.QuillonTestCase):

    def introspect(self):
        result = self.bus.gdbus("introspect", "--dest", qh.BUS_NAME, "--object-path",
                                qh.OBJECT_PATH, "--xml")
        self.assertEqual(0, result.returncode, result.stderr)
        return ET.fromstring(result.stdout)

    def test_owns_its_name_and_serves_the_three_interfaces(self):
        self.start_serving_daemon()
        self.assertTrue(self.bus.name_has_owner())

        node = self.introspect()
        interfaces = {i.get("name"): i for i in node.findall("interface")}
        for name in (qh.SET_INTERFACE, qh.GET_INTERFACE, qh.UX_INTERFACE):
            self.assertIn(name, interfaces)

        def methods(interface):
            return {m.get("name"): m for m in interfaces[interface].findall("method")}

        self.assertEqual(SET_METHODS, set(methods(qh.SET_INTERFACE)))
        self.assertEqual(GET_METHODS, set(methods(qh.GET_INTERFACE)))
        self.assertEqual({"pxm_feedback_ux"}, set(methods(qh.UX_INTERFACE)))

        request = methods(qh.SET_INTERFACE)["pxm_request_access"]
        self.assertEqual(["s"] * 6 + ["i"] * 6, args_of(request, "in"))
        self.assertEqual(["i"], args_of(request, "out"))
        get_list = methods(qh.GET_INTERFACE)["pxm_get_list"]
        self.assertEqual([DEVICE_LIST, "i"], args_of(get_list, "out"))
        get_device = methods(qh.GET_INTERFACE)["pxm_get_device_reverse"]
        self.assertEqual(["s", "i"], args_of(get_device, "in"))
        self.assertEqual([DEVICE_LIST, "i"], args_of(get_device, "out"))
        feedback = methods(qh.UX_INTERFACE)["pxm_feedback_ux"]
        self.assertEqual(["s"] * 6 + ["i"] * 6, args_of(feedback, "in"))
        self.assertEqual([], args_of(feedback, "out"))

        signals = {s.get("name"): s for s in interfaces[qh.UX_INTERFACE].findall("signal")}
        self.assertEqual({"pxm_signal_status_changed", "pxm_signal_tv_init_mirroring_changed"},
                         set(signals))
        for signal_element in signals.values():
            self.assertEqual(["s", "s", "s", "i"],
                             [a.get("type") for a in signal_element.findall("arg")])

    def test_a_second_daemon_loses_the_name_and_keeps_running(self):
        first = self.start_serving_daemon()

        other_root = qh.PlatformRoot()
        self.addCleanup(other_root.cleanup)
        other_root.init()
        second = qh.Daemon(other_root.env(self.bus.env()))
        self.addCleanup(second.stop)
        self.assertIsNotNone(
            second.wait_for_log("[DBusServer] lost name ownership! leave sinking ship", 15.0),
            second.log.text())
        self.assertIsNotNone(second.wait_for_log(qh.LOG_RUNNING, 15.0), second.log.text())
        self.assertIsNone(second.process.poll())
        self.assertIsNone(first.process.poll())
        self.assertTrue(self.bus.name_has_owner())

        self.assertEqual(0, second.stop(signal.SIGTERM), second.log.text())
        lost = [line for line in second.log.lines() if "lost name ownership" in line]
        self.assertEqual(1, len(lost))
        self.assertEqual(0, first.stop(signal.SIGTERM), first.log.text())

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which("setpriv"),
                         "needs root to call as another user")
    def test_policy_keeps_unprivileged_callers_to_the_get_interface(self):
        self.start_bus()
        # The unprivileged caller must reach the bus socket.
        os.chmod(self.workdir, 0o755)
        os.chmod(self.workdir / "bus", 0o755)
        self.start_serving_daemon()

        def call_as_nobody(*args, timeout=10):
            return subprocess.run(
                ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                 "gdbus", "call", "--address", self.bus.address, *args],
                capture_output=True, text=True, timeout=timeout + 10)

        denied = "org.freedesktop.DBus.Error.AccessDenied"
        owned = call_as_nobody("--dest", "org.freedesktop.DBus", "--object-path",
                               "/org/freedesktop/DBus", "--method",
                               "org.freedesktop.DBus.RequestName", qh.BUS_NAME, "4")
        self.assertIn(denied, owned.stderr)

        for method in (f"{qh.SET_INTERFACE}.pxm_remove_all",
                       f"{qh.UX_INTERFACE}.pxm_feedback_ux"):
            result = call_as_nobody("--dest", qh.BUS_NAME, "--object-path", qh.OBJECT_PATH,
                                    "--method", method)
            self.assertNotEqual(0, result.returncode)
            self.assertIn(denied, result.stderr, method)

        introspection = call_as_nobody("--dest", qh.BUS_NAME, "--object-path", qh.OBJECT_PATH,
                                       "--method", "org.freedesktop.DBus.Introspectable.Introspect")
        self.assertEqual(0, introspection.returncode, introspection.stderr)
        self.assertIn(qh.GET_INTERFACE, introspection.stdout)

        # Queries pass the policy (whatever the daemon then answers).
        query = call_as_nobody("--dest", qh.BUS_NAME, "--object-path", qh.OBJECT_PATH,
                               "--timeout", "5", "--method", f"{qh.GET_INTERFACE}.pxm_get_list",
                               timeout=5)
        self.assertNotIn(denied, query.stderr)


if __name__ == "__main__":
    unittest.main()
