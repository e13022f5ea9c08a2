"""The real quillon on the host platform: it runs, pings the watchdog and ends through its
teardown on SIGTERM and SIGINT. (Its refusal to run without settings is a unit test.)"""

import signal
import unittest

import quillon_harness as qh


class DaemonLifecycle(qh.QuillonTestCase):

    def test_runs_pings_the_watchdog_and_tears_down_on_sigterm(self):
        self.root.init()
        notify = qh.NotifySocket(self.workdir)
        self.addCleanup(notify.close)
        daemon = self.start_daemon(notify.env(), wait_for=qh.LOG_RUNNING)

        # The first ping is due 15 s after the loop starts.
        message = notify.wait_for("WATCHDOG=1", timeout=25.0)
        self.assertIsNotNone(message, "no watchdog ping within 25 s:\n" + daemon.log.text())
        self.assertIsNone(daemon.process.poll(), "quillon ended on its own")

        self.assertEqual(0, daemon.stop(signal.SIGTERM), daemon.log.text())
        self.assert_logged(daemon, "Initialized[1]", "[DAEMON] Initialize PXMDBusServer.",
                           "[DAEMON] Start Quillon", qh.LOG_RUNNING, qh.LOG_INACTIVE,
                           "[DBusServer][Finalize][", "[DBusServer] Destructor")
        self.assertNotIn("smart_deadlock_watchdog_notify failed", daemon.log.text())

    def test_sigint_also_ends_through_the_teardown(self):
        self.root.init()
        daemon = self.start_daemon(wait_for=qh.LOG_RUNNING)
        self.assertEqual(0, daemon.stop(signal.SIGINT), daemon.log.text())
        self.assert_logged(daemon, qh.LOG_INACTIVE)


if __name__ == "__main__":
    unittest.main()
