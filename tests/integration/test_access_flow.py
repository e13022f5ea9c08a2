"""The access flow end to end without a prompt: a request whose verdict the requester
forces is stored, announced, written to secure storage and still there after a restart;
the wake-up tables follow every verdict."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_bus as qb  # noqa: E402
import quillon_harness as qh  # noqa: E402

PHONE_BT = "AA:BB:CC:DD:EE:01"
PHONE_WIFI = "AA:BB:CC:DD:EE:02"
TABLET_P2P = "AA:BB:CC:DD:EE:13"
LAPTOP_BT = "AA:BB:CC:DD:EE:21"
LAPTOP_WIFI = "AA:BB:CC:DD:EE:22"


class AccessFlow(qh.QuillonTestCase):

    def serve(self):
        daemon = self.start_serving_daemon()
        client = qb.BusClient(self.bus.address)
        self.addCleanup(client.close)
        return daemon, client

    def wait_stored(self, predicate):
        """The saves run on a thread of their own, after the reply."""
        text = qh.wait_until(lambda: predicate(self.root.stored() or ""), 15.0)
        self.assertTrue(text, f"the stored list never matched; it is:\n{self.root.stored()}")

    def test_a_forced_verdict_is_stored_announced_and_survives_a_restart(self):
        daemon, client = self.serve()
        start = len(client.events)
        self.assertEqual((0,), client.call("pxm_request_access", qb.record(
            name="Phone", bt=PHONE_BT, wifi=PHONE_WIFI, zel_id="zel-1", devtype=3, devicon=4,
            tv_init=1, no_ux=1)))
        self.assertEqual((1,), client.call("pxm_request_access", qb.record(
            name="Tablet", p2p=TABLET_P2P, status=1, no_ux=1)))
        signals = client.wait_signals(2, start=start)
        self.assertEqual([(PHONE_BT, PHONE_WIFI, "0", 0), ("0", "0", TABLET_P2P, 1)],
                         [s.value for s in signals])
        self.assertLess(client.index("reply", "pxm_request_access", start),
                        client.index("signal", qb.STATUS_CHANGED, start))
        self.wait_stored(lambda text: PHONE_BT in text and TABLET_P2P in text)

        self.assertEqual(0, daemon.stop())
        restarted = self.start_serving_daemon()
        client.flush()
        elements, count = client.call("pxm_get_list")
        self.assertEqual(2, count)
        phone, tablet = elements
        self.assertEqual(("Phone", PHONE_BT, PHONE_WIFI), phone[:3])
        self.assertEqual((3, 4, 0, 1, 1, 0, "zel-1"), phone[4:11])
        self.assertEqual(("Tablet", TABLET_P2P, 1), (tablet[0], tablet[3], tablet[6]))
        self.assertEqual((0,), client.call("pxm_get_status", qb.mac_ind(PHONE_WIFI, 2)))
        self.assertEqual((1,), client.call("pxm_get_status", qb.mac_ind(TABLET_P2P, 3)))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.root.wake_tables())
        self.assertIsNone(restarted.process.poll())

    def test_the_wake_up_tables_follow_every_verdict(self):
        _, client = self.serve()
        client.call("pxm_request_access", qb.record(name="Phone", bt=PHONE_BT, wifi=PHONE_WIFI,
                                                    no_ux=1))
        client.call("pxm_request_access", qb.record(name="Laptop", bt=LAPTOP_BT,
                                                    wifi=LAPTOP_WIFI, status=1, no_ux=1))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.root.wake_tables())

        set_status = "pxm_set_status"
        self.assertEqual((1,), client.call(set_status, qb.mac_ind_value(PHONE_BT, 1, 1)))
        self.assertEqual((set(), set()), self.root.wake_tables())
        self.assertEqual((1,), client.call(set_status, qb.mac_ind_value(LAPTOP_WIFI, 2, 0)))
        self.assertEqual(({LAPTOP_BT}, {LAPTOP_WIFI}), self.root.wake_tables())

        self.assertEqual((1,), client.call("pxm_remove_device", qb.mac_ind(LAPTOP_BT, 1)))
        self.assertEqual((set(), set()), self.root.wake_tables())
        self.wait_stored(lambda text: PHONE_BT in text and LAPTOP_BT not in text)

        client.call(set_status, qb.mac_ind_value(PHONE_BT, 1, 0))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.root.wake_tables())
        self.assertEqual((1,), client.call("pxm_remove_all"))
        self.assertEqual((set(), set()), self.root.wake_tables())
        self.assertEqual(([], 0), client.call("pxm_get_list"))
        # Nothing left: the stored list goes too.
        self.wait_stored(lambda text: PHONE_BT not in text)


if __name__ == "__main__":
    unittest.main()
