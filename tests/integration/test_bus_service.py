"""quillon on a private system-type bus: it owns its name, a second daemon loses the name and
keeps running, and the bus policy gives each caller only what it may do."""

import os
import shutil
import signal
import subprocess
import unittest

import quillon_harness as qh


class BusService(qh.QuillonTestCase):

    def test_a_second_daemon_loses_the_name_and_keeps_running(self):
        first = self.start_serving_daemon()
        self.assertTrue(self.bus.name_has_owner())

        other_root = qh.PlatformRoot()
        self.addCleanup(other_root.cleanup)
        other_root.init()
        second = self.spawn([qh.program("quillon")], other_root.env(self.bus.env()))
        self.assertIsNotNone(
            second.wait_for_log("[DBusServer] lost name ownership! leave sinking ship", 15.0),
            second.log.text())
        self.assertIsNotNone(second.wait_for_log(qh.LOG_RUNNING, 15.0), second.log.text())
        self.assertIsNone(second.process.poll())
        self.assertIsNone(first.process.poll())
        self.assertTrue(self.bus.name_has_owner())

        self.assertEqual(0, second.stop(signal.SIGTERM), second.log.text())
        self.assertEqual(1, second.log.text().count("lost name ownership"))
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
                result = self.ctl(*args, prefix=self.as_user(*who, init_groups=who != nobody))
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
