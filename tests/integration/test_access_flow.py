"""The access flow end to end without a prompt: a request whose verdict the requester
forces is stored, announced, written to secure storage and still there after a restart;
the wake-up tables follow every verdict; a stored denial stands."""

import json
import os
import sys
import time
import unittest

from gi.repository import GLib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_bus as qb  # noqa: E402
import quillon_harness as qh  # noqa: E402

PHONE_BT = "AA:BB:CC:DD:EE:01"
PHONE_WIFI = "AA:BB:CC:DD:EE:02"
TABLET_P2P = "AA:BB:CC:DD:EE:13"
LAPTOP_BT = "AA:BB:CC:DD:EE:21"
LAPTOP_WIFI = "AA:BB:CC:DD:EE:22"
STORAGE_ITEM = "PXM_DEVICE_LIST"


def mac_ind(mac, ind):
    return GLib.Variant("(si)", (mac, ind))


class AccessFlow(qh.QuillonTestCase):

    def serve(self):
        daemon = self.start_serving_daemon()
        client = qb.BusClient(self.bus.address)
        self.addCleanup(client.close)
        return daemon, client

    def stored_text(self):
        result = self.root.platform("secure-read", STORAGE_ITEM, check=False)
        return result.stdout if result.returncode == 0 else ""

    def wait_stored(self, predicate, timeout=15.0):
        """Waits until the stored list satisfies predicate; the saves run on a thread of
        their own, after the reply."""
        deadline = time.monotonic() + timeout
        while True:
            text = self.stored_text()
            if predicate(text):
                return text
            if time.monotonic() >= deadline:
                self.fail(f"the stored list never matched; it is:\n{text}")
            time.sleep(0.05)

    def wake_tables(self):
        tables = json.loads(self.root.platform("wake-tables", "--json").stdout)
        return ({d["address"].upper() for d in tables["bt_headless"]},
                {w["address"].upper() for w in tables["wowl_wakers"]})

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
        self.assertEqual((0,), client.call("pxm_get_status", mac_ind(PHONE_WIFI, 2)))
        self.assertEqual((1,), client.call("pxm_get_status", mac_ind(TABLET_P2P, 3)))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.wake_tables())
        self.assertIsNone(restarted.process.poll())

    def test_the_wake_up_tables_follow_every_verdict(self):
        _, client = self.serve()
        client.call("pxm_request_access", qb.record(name="Phone", bt=PHONE_BT, wifi=PHONE_WIFI,
                                                    no_ux=1))
        client.call("pxm_request_access", qb.record(name="Laptop", bt=LAPTOP_BT,
                                                    wifi=LAPTOP_WIFI, status=1, no_ux=1))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.wake_tables())

        set_status = "pxm_set_status"
        self.assertEqual((1,), client.call(set_status, GLib.Variant("(sii)", (PHONE_BT, 1, 1))))
        self.assertEqual((set(), set()), self.wake_tables())
        self.assertEqual((1,), client.call(set_status,
                                           GLib.Variant("(sii)", (LAPTOP_WIFI, 2, 0))))
        self.assertEqual(({LAPTOP_BT}, {LAPTOP_WIFI}), self.wake_tables())

        self.assertEqual((1,), client.call("pxm_remove_device", mac_ind(LAPTOP_BT, 1)))
        self.assertEqual((set(), set()), self.wake_tables())
        self.wait_stored(lambda text: PHONE_BT in text and LAPTOP_BT not in text)

        client.call(set_status, GLib.Variant("(sii)", (PHONE_BT, 1, 0)))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.wake_tables())
        self.assertEqual((1,), client.call("pxm_remove_all"))
        self.assertEqual((set(), set()), self.wake_tables())
        self.assertEqual(([], 0), client.call("pxm_get_list"))
        # Nothing left: the stored list goes too.
        self.wait_stored(lambda text: PHONE_BT not in text)

    def test_a_stored_denial_stands_unless_the_user_is_to_be_asked_anyway(self):
        daemon, client = self.serve()
        client.call("pxm_request_access", qb.record(name="Laptop", bt=LAPTOP_BT, status=1,
                                                    no_ux=1))
        client.flush()
        start = len(client.events)
        self.assertEqual((1,), client.call("pxm_request_access",
                                           qb.record(name="Laptop", bt=LAPTOP_BT)))
        client.flush()
        self.assertEqual([], client.signals(start=start))
        self.assertEqual((1,), client.call("pxm_get_status", mac_ind(LAPTOP_BT, 1)))
        self.assertIsNotNone(daemon.wait_for_log("Failed to set device : Already Denied"))

        # Asking anyway needs the prompt, and none is installed here: no decision at all.
        self.assertEqual((-1,), client.call("pxm_request_access",
                                            qb.record(name="Laptop", bt=LAPTOP_BT, ux_always=1)))
        self.assertIsNotNone(daemon.wait_for_log("[DBusServer] Unexpected Status[-1]"))
        client.flush()
        self.assertEqual([], client.signals(start=start))
        self.assertEqual((1,), client.call("pxm_get_status", mac_ind(LAPTOP_BT, 1)))


if __name__ == "__main__":
    unittest.main()
