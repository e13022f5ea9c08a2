"""The real quillon on the host platform: it runs, pings the watchdog, ends through its
teardown on SIGTERM/SIGINT, and refuses to run on a root without settings."""

import os
import signal
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_harness as qh  # noqa: E402

FACTORY_RESET_KEY = "db/registertv/factoryreset"


def index_of(lines, text, start=0):
    for i in range(start, len(lines)):
        if text in lines[i]:
            return i
    return -1


class DaemonLifecycle(qh.QuillonTestCase):

    def assert_in_order(self, lines, texts):
        at = 0
        for text in texts:
            found = index_of(lines, text, at)
            self.assertGreaterEqual(found, 0, f"'{text}' missing or out of order in:\n"
                                    + "\n".join(lines))
            at = found + 1

    def test_runs_pings_the_watchdog_and_tears_down_on_sigterm(self):
        self.root.init()
        notify = qh.NotifySocket(self.workdir)
        self.addCleanup(notify.close)
        daemon = self.start_daemon(notify.env(), wait_for=qh.LOG_RUNNING)

        # The first ping is due 15 s after the loop starts.
        message = notify.wait_for("WATCHDOG=1", timeout=25.0)
        self.assertIsNotNone(message, "no watchdog ping within 25 s:\n" + daemon.log.text())
        self.assertIsNone(daemon.process.poll(), "quillon ended on its own")

        status = daemon.stop(signal.SIGTERM)
        self.assertEqual(0, status, daemon.log.text())
        self.assert_in_order(daemon.log.lines(), [
            "Initialized[1]",
            "[DAEMON] Initialize PXMDBusServer.",
            "[DAEMON] Start Quillon",
            qh.LOG_RUNNING,
            qh.LOG_INACTIVE,
            "[DBusServer][Finalize][",
            "[DBusServer] Destructor",
        ])
        self.assertEqual(-1, index_of(daemon.log.lines(), "smart_deadlock_watchdog_notify failed"))

    def test_sigint_also_ends_through_the_teardown(self):
        self.root.init()
        daemon = self.start_daemon(wait_for=qh.LOG_RUNNING)
        self.assertEqual(0, daemon.stop(signal.SIGINT), daemon.log.text())
        self.assertGreaterEqual(index_of(daemon.log.lines(), qh.LOG_INACTIVE), 0)

    def test_without_settings_it_exits_with_255(self):
        daemon = self.start_daemon()
        status = daemon.wait_exit(timeout=15.0)
        self.assertEqual(255, status, daemon.log.text())
        daemon.log.join()
        lines = daemon.log.lines()
        self.assert_in_order(lines, [
            "vconf_get_int failed for db/registertv/factoryreset",
            "Initialized[0]",
            "[DAEMON] Failed to Initialize PXMDBusServer.",
        ])
        self.assertEqual(-1, index_of(lines, qh.LOG_RUNNING))

    def test_factory_reset_flag_is_cleared_and_the_daemon_runs(self):
        self.root.init()
        self.root.platform("set-int", FACTORY_RESET_KEY, 1)
        daemon = self.start_daemon(wait_for=qh.LOG_RUNNING)
        self.assertIsNotNone(daemon.wait_for_log("DB Cleared for 1", 1.0))
        self.assertEqual("0", self.root.platform("get", FACTORY_RESET_KEY).stdout.strip())
        self.assertEqual(0, daemon.stop())


if __name__ == "__main__":
    unittest.main()
