"""The prompt launched as another user (--user): the prompt runs with that user's ids and no
capability, from a root daemon and from the service user with ambient capabilities; the death
watch and the stray clean-up still work. With --session the prompt goes to the user and
display of the active graphical session logind reports, falling back with a log line."""

import os
import signal
import subprocess
import unittest

import quillon_harness as qh

PROMPT_USER = "quillon-ux-test"
SERVICE_USER = "quillon"
CAPS = "+setuid,+setgid,+kill"


def status_fields(pid):
    fields = {}
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            key, _, value = line.partition(":")
            fields[key] = value.split()
    return fields


def environ(pid):
    with open(f"/proc/{pid}/environ", "rb") as variables:
        return variables.read().split(b"\0")


def gone(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().split(")")[-1].split()[0] == "Z"
    except FileNotFoundError:
        return True


@unittest.skipUnless(os.geteuid() == 0, "needs root to launch the prompt as another user")
class PromptAsUser(qh.QuillonTestCase):

    def serve_as(self, daemon_user):
        self.prefix = ()
        if daemon_user != "root":
            uid, gid = qh.system_account(daemon_user)
            # As the installed unit runs it: the service user, three ambient capabilities.
            self.prefix = ("setpriv", f"--reuid={uid}", f"--regid={gid}", "--init-groups",
                      f"--inh-caps={CAPS}", f"--ambient-caps={CAPS}")
            os.chmod(self.workdir, 0o711)
            self.start_bus()
            os.chmod(self.workdir / "bus", 0o711)
            self.root.init()
            subprocess.run(["chown", "-R", f"{uid}:{gid}", self.root.path], check=True)
        return self.serve(prefix=self.prefix)

    def ask(self, client, bt, exclude=()):
        """The pid of the prompt the request launched (not one of exclude, which may still
        be on its way out)."""
        self.assertEqual((2,), client.call("pxm_request_access", qh.record(name="Phone", bt=bt)))
        pids = qh.wait_until(lambda: [p for p in self.root.prompts() if p not in exclude], 15.0)
        self.assertTrue(pids)
        return pids[0]

    def prompt_program(self):
        """quillon-ux writing to a file of its own: a prompt that outlives the daemon must
        not hold the daemon's stderr, which the test reads to its end."""
        os.chmod(self.workdir, 0o711)
        log = self.workdir / "prompt.log"
        log.touch(mode=0o666)
        os.chmod(log, 0o666)
        wrapper = self.workdir / "quillon-ux"
        wrapper.write_text(f'#!/bin/sh\nexec {qh.program("quillon-ux")} "$@" 2>>{log}\n')
        os.chmod(wrapper, 0o755)
        return str(wrapper)

    def check_prompt_as_user(self, daemon_user):
        uid, gid = qh.system_account(PROMPT_USER)
        self.root.platform("register-app", qh.UX_APP_ID, self.prompt_program(),
                           "--user", PROMPT_USER, "--env", "QUILLON_UX_ANSWER=none")
        daemon, client = self.serve_as(daemon_user)
        pid = self.ask(client, "AA:BB:CC:DD:EE:01")
        self.assertIsNotNone(daemon.wait_for_log(f"as user {PROMPT_USER}"), daemon.log.text())
        fields = status_fields(pid)
        self.assertEqual([str(uid)] * 4, fields["Uid"])
        self.assertEqual([str(gid)] * 4, fields["Gid"])
        for caps in ("CapEff", "CapPrm", "CapAmb", "CapInh"):
            self.assertEqual(0, int(fields[caps][0], 16), caps)
        env = environ(pid)
        self.assertIn(f"USER={PROMPT_USER}".encode(), env)
        self.assertIn(b"QUILLON_UX_ANSWER=none", env)

        # Death watch: the daemon hears the end of a prompt of another user.
        os.kill(pid, signal.SIGKILL)
        self.assertIsNotNone(daemon.wait_for_log(f"UX Terminated >>> {pid}"), daemon.log.text())

        # Stray clean-up: a prompt the next daemon did not start is closed by it.
        stray = self.ask(client, "AA:BB:CC:DD:EE:02")
        self.assertEqual(0, daemon.stop())
        self.assertFalse(gone(stray), "the prompt went with the daemon")
        daemon = self.start_daemon(prefix=self.prefix)
        fresh = self.ask(client, "AA:BB:CC:DD:EE:03", exclude={stray})
        self.assertIsNotNone(daemon.wait_for_log("Unexpected UX status. Close UX"),
                             daemon.log.text())
        self.assertTrue(qh.wait_until(lambda: gone(stray), 10.0), "the stray stays")
        self.assertNotEqual(stray, fresh)
        self.assertEqual(str(uid), status_fields(fresh)["Uid"][0])
        os.kill(fresh, signal.SIGTERM)

    def test_from_a_root_daemon(self):
        self.check_prompt_as_user("root")

    def test_from_the_service_user_with_ambient_capabilities(self):
        self.check_prompt_as_user(SERVICE_USER)

    def test_session_mode_follows_the_active_graphical_session(self):
        uid, _ = qh.system_account(PROMPT_USER)
        self.root.platform("register-app", qh.UX_APP_ID, self.prompt_program(), "--session",
                           "--env", "QUILLON_UX_ANSWER=none")
        daemon, client = self.serve_as("root")
        # No logind on the bus: the prompt still comes, and the log says why it is not
        # in a session.
        first = self.ask(client, "AA:BB:CC:DD:EE:01")
        self.assertIsNotNone(daemon.wait_for_log("no graphical session to launch it in"),
                             daemon.log.text())
        os.kill(first, signal.SIGKILL)
        self.assertIsNotNone(daemon.wait_for_log(f"UX Terminated >>> {first}"))

        logind = subprocess.Popen(["/usr/bin/python3", "-m", "dbusmock", "--system",
                                   "--template", "logind"], env=dict(os.environ, **self.bus.env()),
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(logind.wait, 10)
        self.addCleanup(logind.terminate)
        self.assertTrue(qh.wait_until(lambda: self.bus.name_has_owner("org.freedesktop.login1"),
                                      15.0))
        login1 = ["--dest", "org.freedesktop.login1"]
        added = self.bus.gdbus("call", *login1, "--object-path", "/org/freedesktop/login1",
                               "--method", "org.freedesktop.DBus.Mock.AddSession",
                               "c7", "seat0", str(uid), PROMPT_USER, "true")
        self.assertEqual(0, added.returncode, added.stderr)
        made_graphical = self.bus.gdbus(
            "call", *login1, "--object-path", "/org/freedesktop/login1/session/c7",
            "--method", "org.freedesktop.DBus.Mock.UpdateProperties",
            "org.freedesktop.login1.Session", "{'Type': <'x11'>, 'Display': <':42'>}")
        self.assertEqual(0, made_graphical.returncode, made_graphical.stderr)

        pid = self.ask(client, "AA:BB:CC:DD:EE:02", exclude={first})
        self.assertIsNotNone(daemon.wait_for_log(f"goes to graphical session c7 of {PROMPT_USER}"),
                             daemon.log.text())
        self.assertEqual(str(uid), status_fields(pid)["Uid"][0])
        env = environ(pid)
        self.assertIn(b"DISPLAY=:42", env)
        self.assertIn(f"XDG_RUNTIME_DIR=/run/user/{uid}".encode(), env)

        # A registration naming a user that does not exist launches nothing.
        os.kill(pid, signal.SIGTERM)
        self.assertIsNotNone(daemon.wait_for_log(f"UX Terminated >>> {pid}"), daemon.log.text())
        self.root.platform("register-app", qh.UX_APP_ID, qh.program("quillon-ux"),
                           "--user", "no-such-user-q9")
        self.assertEqual((-1,), client.call("pxm_request_access",
                                            qh.record(name="Phone", bt="AA:BB:CC:DD:EE:03")))
        self.assertIsNotNone(daemon.wait_for_log("cannot launch it: no user 'no-such-user-q9'"))
        self.assertEqual([], self.root.prompts())


if __name__ == "__main__":
    unittest.main()
