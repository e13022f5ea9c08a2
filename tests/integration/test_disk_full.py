"""The real quillon on a disk that fails under it (support/disk_fault_shim.c,
preloaded): the stored list stays as it was, the daemon keeps answering, the first change
after the disk recovers is saved, and the wake tables' drift is found and repaired."""

import os
import re
import subprocess
import unittest

import quillon_harness as qh

# Allowed before the disk fails (and denied while it fails), allowed while it fails, and
# allowed after it recovers.
BEFORE_BT, BEFORE_WIFI = "AA:BB:CC:00:00:01", "AA:BB:CC:00:00:02"
DURING_BT, DURING_WIFI = "AA:BB:CC:00:00:11", "AA:BB:CC:00:00:12"
AFTER_WIFI = "AA:BB:CC:00:00:22"


def preload():
    """LD_PRELOAD for the daemon: the shim, after the sanitizer runtime the daemon is linked
    with, which must come first in the process."""
    shim = os.environ.get("QUILLON_DISK_FAULT_SHIM",
                          str(qh.source_dir() / "build/lib/libquillon_disk_fault_shim.so"))
    if not os.path.exists(shim):
        raise unittest.SkipTest(f"the disk-fault shim '{shim}' is not built")
    linked = subprocess.run(["ldd", qh.program("quillon")], capture_output=True, text=True,
                            check=True).stdout
    runtimes = re.findall(r"=> (\S*/lib[at]san\.so[.\d]*) ", linked)
    return " ".join(runtimes + [shim])


class DiskFull(qh.QuillonTestCase):

    def fail_the_disk_while_verdicts_change(self, fault):
        """Allows one device on a healthy disk; once the shim fails the disk as the text
        `fault` says, allows a second and denies the first; once the disk recovers, allows a
        third. Returns `wake-tables --check` as it is then."""
        switch = self.workdir / "disk-fault"
        daemon, client = self.serve({"LD_PRELOAD": preload(),
                                     "QUILLON_DISK_FAULT_DIR": os.path.realpath(self.root.path),
                                     "QUILLON_DISK_FAULT_SWITCH": str(switch)})
        item = self.root.path / "secure" / qh.STORAGE_ITEM

        self.assertEqual((0,), client.call("pxm_request_access", qh.record(
            name="Before", bt=BEFORE_BT, wifi=BEFORE_WIFI, no_ux=1)))
        self.assertTrue(qh.wait_until(lambda: self.root.verdicts() == {BEFORE_WIFI: 0}, 10.0),
                        daemon.log.text())
        before = item.read_bytes()

        switch.write_text(fault)
        self.assertEqual((0,), client.call("pxm_request_access", qh.record(
            name="During", bt=DURING_BT, wifi=DURING_WIFI, no_ux=1), timeout=5.0))
        self.assertEqual((1,), client.call("pxm_set_status", qh.mac_ind_value(BEFORE_WIFI, 2, 1),
                                           timeout=5.0))
        self.assertIsNotNone(daemon.wait_for_log("Write file failed"), daemon.log.text())
        self.assertIsNotNone(daemon.wait_for_log("settings: writing "), daemon.log.text())
        # The daemon answers from memory while nothing reaches the disk.
        self.assertEqual((1,), client.call("pxm_get_status", qh.mac_ind(BEFORE_BT, 1),
                                           timeout=5.0))
        self.assertEqual(2, client.call("pxm_get_list", timeout=5.0)[1])
        self.assertEqual(before, item.read_bytes(), "the stored list changed on a failing disk")
        # (The settings writer is retrying meanwhile, each time through a temporary file.)
        self.assertEqual([], [t for t in self.root.temporaries() if t.startswith("secure/")])

        switch.unlink()
        self.assertEqual((0,), client.call("pxm_request_access", qh.record(
            name="After", wifi=AFTER_WIFI, no_ux=1)))
        expected = {BEFORE_WIFI: 1, DURING_WIFI: 0, AFTER_WIFI: 0}
        self.assertTrue(qh.wait_until(lambda: self.root.verdicts() == expected, 10.0),
                        f"the change after recovery was not saved: {self.root.verdicts()}")
        self.assertIsNotNone(daemon.wait_for_log("settings: queued writes are on disk again"),
                             daemon.log.text())
        self.assertEqual([], self.root.temporaries())
        self.assertIsNone(daemon.process.poll())
        return self.root.platform("wake-tables", "--check", check=False)

    def assert_tables_hold_the_allowed_devices(self):
        self.assertEqual(({DURING_BT}, {DURING_WIFI, AFTER_WIFI}), self.root.wake_tables())

    def assert_drift_found_and_repaired(self, check):
        # The wake tables took neither verdict given while the disk was full; the list the
        # daemon saved after the recovery has both.
        self.assertEqual((1, [f"bt_headless missing {DURING_BT} (an allowed device)",
                              f"bt_headless extra   {BEFORE_BT} (not an allowed device)",
                              f"wowl_wakers missing {DURING_WIFI} (an allowed device)",
                              f"wowl_wakers extra   {BEFORE_WIFI} (not an allowed device)"]),
                         (check.returncode, check.stdout.splitlines()))
        self.assertIn("repaired: 1 Bluetooth and 2 Wake-on-WLAN rows",
                      self.root.platform("wake-tables", "--repair").stdout)
        self.root.platform("wake-tables", "--check")
        self.assert_tables_hold_the_allowed_devices()

    def test_a_full_disk_keeps_the_old_list_and_leaves_drift_that_repair_mends(self):
        self.assert_drift_found_and_repaired(
            self.fail_the_disk_while_verdicts_change("ENOSPC"))

    def test_a_disk_failing_at_the_flush_keeps_the_old_list(self):
        # SQLite in WAL mode with NORMAL sync flushes only at checkpoints: the wake tables
        # take both verdicts, so no drift is left; only the secure item and settings fail.
        check = self.fail_the_disk_while_verdicts_change("EIO fsync fdatasync")
        self.assertEqual(0, check.returncode, check.stdout)
        self.assert_tables_hold_the_allowed_devices()


if __name__ == "__main__":
    unittest.main()
