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

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which("setpriv") and
                         shutil.which("useradd"), "needs root to call as other users")
    def test_policy_gives_each_caller_only_what_it_may_do(self):
        # The service user owns the name; a member of quillon-prompt may answer a prompt; a
        # member of quillon-manage may set verdicts and forget devices; everyone else may
        # only read.
        service = qh.system_account("quillon")
        qh.system_account("quillon-prompt", group_only=True)
        qh.system_account("quillon-manage", group_only=True)
        prompt = qh.system_account("quillon-test-prompt", groups="quillon-prompt")
        manage = qh.system_account("quillon-test-manage", groups="quillon-manage")
        nobody = (65534, 65534)
        self.start_bus()
        # The unprivileged callers must reach the bus socket; the daemon its root.
        os.chmod(self.workdir, 0o755)
        os.chmod(self.workdir / "bus", 0o755)
        self.root.init()
        subprocess.run(["chown", "-R", f"{service[0]}:{service[1]}", str(self.root.path)],
                       check=True)
        daemon = self.start_serving_daemon(prefix=self.as_user(*service, init_groups=True))
        self.assertIsNone(daemon.process.poll())

        def call_as_nobody(*args, timeout=10):
            return subprocess.run([*self.as_user(*nobody), "gdbus", "call", "--address",
                                   self.bus.address, *args],
                                  capture_output=True, text=True, timeout=timeout + 10)

        denied = "org.freedesktop.DBus.Error.AccessDenied"
        owned = call_as_nobody("--dest", "org.freedesktop.DBus", "--object-path",
                               "/org/freedesktop/DBus", "--method",
                               "org.freedesktop.DBus.RequestName", qh.BUS_NAME, "4")
        self.assertIn(denied, owned.stderr)
        introspection = call_as_nobody("--dest", qh.BUS_NAME, "--object-path", qh.OBJECT_PATH,
                                       "--method", "org.freedesktop.DBus.Introspectable.Introspect")
        self.assertEqual(0, introspection.returncode, introspection.stderr)
        self.assertIn(qh.GET_INTERFACE, introspection.stdout)

        bt = "AA:BB:CC:DD:EE:01"
        by_manage = " needs root or membership of the group quillon-manage\n"
        by_prompt = " needs root or membership of the group quillon-prompt\n"
        feedback = ["feedback", "--status", "deny", "--bt", bt]
        # In this order: the prompt's answer stores the device the owner then changes.
        for who, args, status, said in [
                (nobody, ["list"], 0, ""),
                (nobody, ["set-status", bt, "bt", "allow"], 4, "pxm_set_status" + by_manage),
                (nobody, ["remove", bt, "bt"], 4, "pxm_remove_device" + by_manage),
                (nobody, feedback, 4, "pxm_feedback_ux" + by_prompt),
                (prompt, feedback, 0, ""),
                (prompt, ["remove-all"], 4, "pxm_remove_all" + by_manage),
                (manage, feedback, 4, "pxm_feedback_ux" + by_prompt),
                (manage, ["request", "--bt", bt], 4, "pxm_request_access needs root\n"),
                (manage, ["request-reverse", "--bt", bt], 4,
                 "pxm_request_access_reverse needs root\n"),
                (manage, ["set-mirroring", bt, "bt", "1"], 4,
                 "pxm_set_tv_init_mirroring_status needs root\n"),
                (manage, ["set-param", bt, "bt", "x", "name"], 4,
                 "pxm_set_device_extended_param_string needs root\n"),
                (manage, ["status", bt, "bt"], 0, ""),
                (manage, ["set-status", bt, "bt", "allow"], 0, ""),
                (manage, ["list-reverse"], 0, ""),
                (manage, ["remove-reverse", bt, "bt"], 1, ""),
                (manage, ["remove", bt, "bt"], 0, ""),
                (manage, ["remove-all"], 0, ""),
                (manage, ["remove-all-reverse"], 0, "")]:
            with self.subTest(who=who, args=args):
                result = subprocess.run(
                    [*self.as_user(*who, init_groups=who != nobody), qh.program("quillonctl"),
                     *args], env=dict(os.environ, **self.bus.env()),
                    capture_output=True, text=True, timeout=30)
                self.assertEqual(status, result.returncode, result.stderr)
                self.assertIn(said, result.stderr)
        # What the owner did is what the daemon did: allowed, then forgotten.
        self.assertIn("[DBusServer] [NOTI] DEVICE STATUS CHANGED", daemon.log.text())
        self.assertIn("[DBusServer] [NOTI] DEVICE REMOVED ALL", daemon.log.text())

    @staticmethod
    def as_user(uid, gid, init_groups=False):
        return ["setpriv", f"--reuid={uid}", f"--regid={gid}",
                "--init-groups" if init_groups else "--clear-groups"]


if __name__ == "__main__":
    unittest.main()
