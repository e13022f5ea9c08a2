"""The access flow with the prompt: a new device is asked about through quillon-ux, which
answers allow, deny, undecided or nothing (QUILLON_UX_ANSWER); the verdict is stored,
announced and entered in the wake-up tables, a second request meanwhile is turned away, and
a prompt that never answers is closed after 35 s with the device reported undecided."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_bus as qb  # noqa: E402
import quillon_harness as qh  # noqa: E402

PHONE_BT = "AA:BB:CC:DD:EE:01"
PHONE_WIFI = "AA:BB:CC:DD:EE:02"
LAPTOP_BT = "AA:BB:CC:DD:EE:21"
# The daemon gives a silent prompt 35 s; this is only how long the test waits for that.
EXPIRY_WAIT = 90.0


class PromptFlow(qh.QuillonTestCase):

    def serve(self, answer, delay_ms=0):
        """The daemon with quillon-ux registered; the prompt inherits the daemon's
        environment, which carries its scripted answer."""
        self.root.platform("register-app", qh.UX_APP_ID, qh.program("quillon-ux"))
        self.daemon = self.start_serving_daemon({"QUILLON_UX_ANSWER": answer,
                                                 "QUILLON_UX_DELAY_MS": str(delay_ms)})
        self.client = qb.BusClient(self.bus.address)
        self.addCleanup(self.client.close)

    def ask(self, name, bt, wifi=""):
        """A new device, so the user is asked: the answer is 2 and nothing is announced yet."""
        start = len(self.client.events)
        self.assertEqual((2,), self.client.call("pxm_request_access",
                                                qb.record(name=name, bt=bt, wifi=wifi)))
        return start

    def no_prompt(self):
        apps = self.root.platform("apps").stdout.splitlines()
        return not [a for a in apps if a.startswith("running\t") and qh.UX_APP_ID in a]

    def wait_no_prompt(self):
        self.assertTrue(qh.wait_until(self.no_prompt, 15.0), "the prompt is still running")

    def test_an_allowed_device_is_stored_announced_and_may_wake_the_tv(self):
        self.serve("allow")
        start = self.ask("Phone", PHONE_BT, PHONE_WIFI)
        signals = self.client.wait_signals(1, start=start, timeout=30.0)
        self.assertEqual([(PHONE_BT, PHONE_WIFI, "0", 0)], [s.value for s in signals])
        self.assertIsNotNone(self.daemon.wait_for_log("quillon-ux: answered status 0 for 'Phone'"))

        elements, count = self.client.call("pxm_get_list")
        self.assertEqual(1, count)
        self.assertEqual(("Phone", PHONE_BT, PHONE_WIFI, 0),
                         (elements[0][0], elements[0][1], elements[0][2], elements[0][6]))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.root.wake_tables())

        # The prompt is gone, so the next new device is asked about in turn.
        self.wait_no_prompt()
        start = self.ask("Laptop", LAPTOP_BT)
        signals = self.client.wait_signals(1, start=start, timeout=30.0)
        self.assertEqual([(LAPTOP_BT, "0", "0", 0)], [s.value for s in signals])
        self.assertEqual(2, self.client.call("pxm_get_list")[1])

    def test_a_denied_device_is_stored_kept_out_of_the_wake_tables_and_stays_denied(self):
        self.serve("deny")
        start = self.ask("Phone", PHONE_BT, PHONE_WIFI)
        signals = self.client.wait_signals(1, start=start, timeout=30.0)
        self.assertEqual([(PHONE_BT, PHONE_WIFI, "0", 1)], [s.value for s in signals])
        self.assertEqual((1,), self.client.call("pxm_get_status", qb.mac_ind(PHONE_BT, 1)))
        self.assertEqual((set(), set()), self.root.wake_tables())

        # Asking again is answered from the stored denial, without a prompt.
        self.wait_no_prompt()
        start = len(self.client.events)
        self.assertEqual((1,), self.client.call("pxm_request_access",
                                                qb.record(name="Phone", bt=PHONE_BT)))
        self.client.flush()
        self.assertEqual([], self.client.signals(start=start))
        self.assertTrue(self.no_prompt())

    def test_an_undecided_answer_is_announced_and_nothing_is_stored(self):
        self.serve("undecided")
        start = self.ask("Phone", PHONE_BT)
        signals = self.client.wait_signals(1, start=start, timeout=30.0)
        self.assertEqual([(PHONE_BT, "0", "0", 2)], [s.value for s in signals])
        self.assertEqual(([], 0), self.client.call("pxm_get_list"))
        self.assertEqual((set(), set()), self.root.wake_tables())

    def test_a_silent_prompt_turns_others_away_then_expires_undecided(self):
        self.serve("none")
        start = self.ask("Phone", PHONE_BT, PHONE_WIFI)
        self.assertIsNotNone(
            self.daemon.wait_for_log("quillon-ux: no answer will be given", 15.0),
            self.daemon.log.text())

        # One prompt at a time: even a forced verdict waits until it is gone.
        self.assertEqual((-1,), self.client.call("pxm_request_access",
                                                 qb.record(name="Laptop", bt=LAPTOP_BT,
                                                           no_ux=1)))
        self.assertEqual((-1,), self.client.call("pxm_request_access",
                                                 qb.record(name="Phone", bt=PHONE_BT)))
        self.client.flush()
        self.assertEqual([], self.client.signals(start=start))

        signals = self.client.wait_signals(1, start=start, timeout=EXPIRY_WAIT)
        # The device asked about first, with its addresses as they were requested.
        self.assertEqual([(PHONE_BT, PHONE_WIFI, "", 2)], [s.value for s in signals])
        self.assertIsNotNone(self.daemon.wait_for_log("35s TimerExpired"))
        self.assertIsNotNone(self.daemon.wait_for_log(
            "[DBusServer] Defensive programming :: Unexpected UX termination."))
        self.assertEqual(([], 0), self.client.call("pxm_get_list"))
        # The prompt was closed, and a new request is served again.
        self.wait_no_prompt()
        self.assertEqual((0,), self.client.call("pxm_request_access",
                                                qb.record(name="Laptop", bt=LAPTOP_BT,
                                                          no_ux=1)))


if __name__ == "__main__":
    unittest.main()
