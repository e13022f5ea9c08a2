"""Backup and restore end to end on the host's backup service: every change reaches the
service as the whole list in backup form; a factory reset empties the TV, and a restore
brings the devices back with their verdicts and wake-table entries; a payload the daemon
cannot read restores nothing and is reported as a failure; a request for another client
is left alone."""

import json
import unittest

import quillon_harness as qh

CLIENT = "Zq8Tn3Wd5R"
PHONE_BT = "AA:BB:CC:DD:EE:01"
PHONE_WIFI = "AA:BB:CC:DD:EE:02"
LAPTOP_WIFI = "aa:bb:cc:dd:ee:22"


class BackupRestore(qh.QuillonTestCase):

    def history(self):
        return json.loads(self.root.platform("backup-history", "--json").stdout)

    def newest_payload(self):
        result = self.root.platform("backup-show", check=False)
        return json.loads(result.stdout) if result.returncode == 0 else None

    def test_a_reset_tv_gets_its_devices_back_from_the_backup(self):
        daemon, client = self.serve()
        self.assertEqual((0,), client.call("pxm_request_access", qh.record(
            name="Phone", bt=PHONE_BT, wifi=PHONE_WIFI, zel_id="zel-1", devtype=3, devicon=4,
            tv_init=1, no_ux=1)))
        self.assertEqual((1,), client.call("pxm_request_access", qh.record(
            name="Laptop", wifi=LAPTOP_WIFI, status=1, no_ux=1)))

        # The service holds the whole list in backup form (each entry's fields are the unit
        # tests' to check).
        keys = lambda: [entry["key"] for entry in self.newest_payload() or []]
        self.assertTrue(qh.wait_until(lambda: keys() == ["AABBCCDDEE01", "aabbccddee22"], 15.0),
                        f"no backup of both devices: {self.newest_payload()}")

        # A factory reset empties the list and the tables; the backup stays.
        self.root.platform("set-int", "db/registertv/factoryreset", "1")
        self.assertEqual(0, daemon.stop())
        daemon = self.start_serving_daemon()
        client.flush()
        self.assertEqual(0, client.call("pxm_get_list")[1])
        self.assertEqual((set(), set()), self.root.wake_tables())

        self.root.platform("restore-request")
        restored = qh.wait_until(lambda: self.history()["restores"], 15.0)
        self.assertEqual(["success"], [r["outcome"] for r in restored or []],
                         daemon.log.text())
        elements, count = client.call("pxm_get_list")
        self.assertEqual(2, count)
        by_name = {e[0]: e for e in elements}
        self.assertEqual((PHONE_BT, PHONE_WIFI, 0), by_name["Phone"][1:3] + (by_name["Phone"][6],))
        self.assertEqual((LAPTOP_WIFI, 1), (by_name["Laptop"][2], by_name["Laptop"][6]))
        self.assertEqual(({PHONE_BT}, {PHONE_WIFI}), self.root.wake_tables())
        self.assert_logged(daemon, "Restore Data[0] [Phone]", "Restore Data[1] [Laptop]",
                           "response came. Finish app")
        # A restored verdict is stored without asking anybody.
        self.assertNotIn("PXM UX Noti", daemon.log.text())

        # quillonctl asks for a full backup and sees it stored.
        before = len(self.history()["versions"])
        backup = self.ctl("backup")
        self.assertEqual(0, backup.returncode, backup.stderr)
        self.assertIn("backup stored: version", backup.stdout)
        self.assertEqual(min(before + 1, 20), len(self.history()["versions"]))

        # A payload the daemon cannot read restores nothing and is reported as a failure.
        bad = self.root.path.parent / (self.root.path.name + ".bad.json")
        bad.write_text("[1, 2]")
        self.addCleanup(bad.unlink)
        self.root.platform("backup-put", CLIENT, bad)
        restore = self.ctl("restore")
        self.assertEqual(1, restore.returncode, restore.stdout + restore.stderr)
        self.assertIn("restore failed", restore.stdout)
        self.assertEqual(["failure", "success"],
                         [r["outcome"] for r in self.history()["restores"]])
        self.assertEqual(2, client.call("pxm_get_list")[1])
        self.assert_logged(daemon, "m_Restore fail")

        # A request for another client is only logged.
        versions = len(self.history()["versions"])
        self.root.platform("backup-request", "OtherTV")
        self.assertTrue(daemon.wait_for_log("key[memory/bnr/backupcid] value[OtherTV]", 10.0))
        self.assertEqual(versions, len(self.history()["versions"]))
        self.assertIsNone(daemon.process.poll())


if __name__ == "__main__":
    unittest.main()
