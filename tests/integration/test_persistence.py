"""The stored device list on the host platform: the real quillon loads what
`quillon-platform secure-write` seeded (the current JSON text and each old line format),
wipes it when the factory-reset flag is set, and survives a damaged item."""

import json
import os
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_harness as qh  # noqa: E402

FACTORY_RESET_KEY = "db/registertv/factoryreset"


def legacy_head(name, bt, wifi="0", p2p="0", status=0, time="1600000000000"):
    return (f"<PXM>\n<devname>{name}\n<bt_mac>{bt}\n<wifi_mac>{wifi}\n<p2p_mac>{p2p}\n"
            f"<devtype>1\n<icon>2\n<status>{status}\n<mirroring_support>1\n<no_ux>0\n"
            f"<ux_always>0\n<time>{time}\n")


class Persistence(qh.QuillonTestCase):

    def start_and_load(self):
        """Starts the daemon on an initialised root; returns it once it runs, when loading
        has ended and all its lines are in."""
        self.root.init()
        return self.start_daemon(wait_for=qh.LOG_RUNNING)

    def test_current_format_is_loaded_into_both_lists(self):
        items = [
            {"item_data": {"devname": "Phone", "bt_mac": "AA:BB:CC:DD:EE:01", "wifi_mac": "0",
                           "p2p_mac": "0", "zel_id": "0", "mirroring_Id": "0", "devtype": 1,
                           "devicon": 2, "devstatus": 0, "tvInitMirroringSupport": 1,
                           "isNoUX": 0, "isUXAlways": 0, "accessTime": 1700000000123,
                           "keyType": 0, "dy_type": 0}},
            {"item_data": {"devname": "Laptop", "bt_mac": "0",
                           "wifi_mac": "AA:BB:CC:DD:EE:02", "devstatus": 1, "keyType": 1,
                           "dy_type": 1}},
        ]
        text = "2\n" + json.dumps(items, indent=1)
        self.root.seed(text)
        daemon = self.start_and_load()
        self.assert_logged(
            daemon, "DB Check res[1] version: [2]",
            "Restore Data[0] [Phone] [AA:BB:CC:DD:EE:01] [0] [0] [0] [0] [1] [2] [0] [1] [0] [0] "
            "[1700000000123] [0]",
            "Restore Data[1] [Laptop] [0] [AA:BB:CC:DD:EE:02] [0] [0] [0] [0] [0] [1]")
        self.assertNotIn("parse json err", daemon.log.text())
        # Loading never writes: the item is as it was seeded.
        self.assertEqual(text, self.root.stored())

    def test_each_old_format_is_loaded(self):
        cases = {
            "version 0": ("0\n" + legacy_head("Phone A", "AA:BB:CC:DD:EE:01")
                          + "<key_type>0\n</PXM>\n"
                          + legacy_head("Phone B", "0", wifi="AA:BB:CC:DD:EE:02", status=1)
                          + "<key_type>1\n</PXM>\n",
                          ["Read Data[0] [Phone A] [AA:BB:CC:DD:EE:01] [0] [0] [1] [2] [0] [1] "
                           "[0] [0] [1600000000000] [0]",
                           "Read Record #2"]),
            "version 1": ("1\n" + legacy_head("Desk", "AA:BB:CC:DD:EE:03")
                          + "<key_type>0\n<zel_id>abc\n</PXM>\n",
                          ["Read Data[0] [Desk] [AA:BB:CC:DD:EE:03] [0] [0] [1] [2] [0] [1] [0] "
                           "[0] [1600000000000] [0] [abc]",
                           "Read Record #1"]),
            "unversioned": (legacy_head("Old Phone", "0", wifi="AA:BB:CC:DD:EE:04",
                                        time="4000000000") + "</PXM>\n",
                            ["Read Data[0] [Old Phone] [0] [AA:BB:CC:DD:EE:04] [0] [1] [2] [0] "
                             "[1] [0] [0] [4000000000]",
                             "devKeyType[1]",
                             "Read Record #1"]),
        }
        for name, (text, expected) in cases.items():
            with self.subTest(name):
                self.root.seed(text)
                daemon = self.start_and_load()
                self.assert_logged(daemon, *expected)
                daemon.stop()

    def test_factory_reset_wipes_the_stored_list_and_is_written_back(self):
        self.root.seed("2\n" + json.dumps([{"item_data": {"devname": "Phone",
                                                          "bt_mac": "AA:BB:CC:DD:EE:01"}}]))
        self.root.init()
        self.root.platform("set-int", FACTORY_RESET_KEY, 1)
        daemon = self.start_daemon(wait_for=qh.LOG_RUNNING)
        self.assert_logged(daemon, "DB Cleared for 1")
        self.assertIsNotNone(daemon.wait_for_log("No data - DB cleared", 10.0),
                             daemon.log.text())
        self.assertIsNone(self.root.stored())
        # Settings reach other processes once the daemon's settings writer has them on disk.
        deadline = time.monotonic() + 5.0
        value = self.root.platform("get", FACTORY_RESET_KEY).stdout.strip()
        while value != "0" and time.monotonic() < deadline:
            time.sleep(0.02)
            value = self.root.platform("get", FACTORY_RESET_KEY).stdout.strip()
        self.assertEqual("0", value)
        self.assertNotIn("READSIZE[", daemon.log.text(), "the stored list was read")
        self.assertEqual(0, daemon.stop())

    def test_damaged_item_is_kept_aside_and_the_daemon_runs_empty(self):
        self.root.seed("2\n" + json.dumps([{"item_data": {"devname": "Phone"}}]))
        secure = self.root.path / "secure"
        item_file = secure / qh.STORAGE_ITEM
        data = bytearray(item_file.read_bytes())
        data[len(data) // 2] ^= 0x55
        item_file.write_bytes(bytes(data))

        daemon = self.start_and_load()
        self.assert_logged(daemon, "Read PXM file error")
        self.assertNotIn("Restore Data[", daemon.log.text())
        self.assertIsNone(daemon.process.poll())
        aside = [p.name for p in secure.iterdir()
                 if p.name.startswith(qh.STORAGE_ITEM + ".corrupt-")]
        self.assertEqual(1, len(aside), sorted(p.name for p in secure.iterdir()))
        self.assertFalse(item_file.exists())


if __name__ == "__main__":
    unittest.main()
