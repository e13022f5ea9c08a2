"""The daemon's bus methods as a client meets them on a private system bus: verdicts
announced after the reply, stored, followed by the wake tables and kept over a restart;
arguments of the wrong type refused by the bus layer; over-long texts cut to the record;
quillonctl's output and exit status for every command. Each method's codes and signals are
proven by the handler tests."""

import json
import os
import subprocess
import unittest

from gi.repository import GLib

import quillon_harness as qh

BT = "AA:BB:CC:DD:EE:01"
WIFI = "AA:BB:CC:DD:EE:02"
P2P = "AA:BB:CC:DD:EE:03"
LAPTOP_BT = "AA:BB:CC:DD:EE:21"
LAPTOP_WIFI = "AA:BB:CC:DD:EE:22"
UNKNOWN = "AA:BB:CC:DD:EE:99"


class BusMethodsCase(qh.QuillonTestCase):

    def setUp(self):
        super().setUp()
        self.serve()

    def store_forced(self, **fields):
        """A device stored without a prompt (the requester forces its verdict)."""
        fields.setdefault("no_ux", 1)
        self.assertEqual((fields.get("status", 0),),
                         self.client.call("pxm_request_access", qh.record(**fields)))


class BusMethods(BusMethodsCase):

    def test_verdicts_are_announced_stored_followed_by_the_tables_and_kept(self):
        client, start = self.client, len(self.client.events)
        self.store_forced(name="Phone", bt=BT, wifi=WIFI, zel_id="zel-1", devtype=3, devicon=4,
                          tv_init=1)
        self.store_forced(name="Laptop", bt=LAPTOP_BT, wifi=LAPTOP_WIFI, status=1)
        self.store_forced(name="Tablet", p2p=P2P, status=1)
        self.assertEqual([(BT, WIFI, "0", 0), (LAPTOP_BT, LAPTOP_WIFI, "0", 1), ("0", "0", P2P, 1)],
                         [s.value for s in client.wait_signals(3, start=start)])
        # Each reply precedes its signal: callers read the list on the signal.
        self.assertEqual(["reply", "signal"] * 3, [e.kind for e in client.events[start:]])
        self.assertEqual(({BT}, {WIFI}), self.root.wake_tables())
        for method, args, tables in [
                ("pxm_set_status", (BT, 1, 1), (set(), set())),
                ("pxm_set_status", (LAPTOP_WIFI, 2, 0), ({LAPTOP_BT}, {LAPTOP_WIFI})),
                ("pxm_remove_device", (LAPTOP_BT, 1), (set(), set())),
                ("pxm_set_status", (BT, 1, 0), ({BT}, {WIFI}))]:
            variant = qh.mac_ind_value(*args) if len(args) == 3 else qh.mac_ind(*args)
            self.assertEqual((1,), client.call(method, variant))
            self.assertEqual(tables, self.root.wake_tables(), (method, args))

        # What was answered before a clean stop is what the next start finds.
        self.assertEqual(0, self.daemon.stop())
        self.daemon = self.start_serving_daemon()
        client.flush()
        phone, tablet = client.call("pxm_get_list")[0]
        self.assertEqual(("Phone", BT, WIFI), phone[:3])
        self.assertEqual((3, 4, 0, 1, 1, 0, "zel-1"), phone[4:11])
        self.assertEqual(("Tablet", P2P, 1), (tablet[0], tablet[3], tablet[6]))
        self.assertEqual(({BT}, {WIFI}), self.root.wake_tables())
        # Nothing left: the stored list goes too (saves run on a thread, after the reply).
        self.assertEqual((1,), client.call("pxm_remove_all"))
        self.assertEqual((set(), set()), self.root.wake_tables())
        self.assertTrue(qh.wait_until(lambda: BT not in (self.root.stored() or ""), 15.0),
                        self.root.stored())

    def test_wrong_types_are_refused_by_the_bus_layer_and_long_texts_cut(self):
        self.store_forced(name="Phone", bt=BT)
        self.client.flush()
        start = len(self.client.events)
        for method, signature, values in [
                ("pxm_request_access", "(ssssss)", ("N", UNKNOWN, "", "", "", "")),
                ("pxm_request_access", "(ssssssiiiiis)",
                 ("N", UNKNOWN, "", "", "", "", 0, 0, 0, 0, 1, "0")),
                ("pxm_set_status", "(sis)", (BT, 1, "1")),
                ("pxm_remove_all", "(i)", (1,)),
                ("pxm_get_device", "(sx)", (BT, 1)),
                ("pxm_feedback_ux", "(ssssssiiiiiii)",
                 ("N", UNKNOWN, "", "", "", "", 0, 0, 0, 0, 0, 0, 0))]:
            with self.subTest(method=method, signature=signature):
                self.assertEqual(qh.INVALID_ARGS, self.client.call(
                    method, GLib.Variant(signature, values), error=True))
        self.client.flush()
        self.assertEqual([], self.client.signals(start=start))
        self.assertEqual(1, self.client.call("pxm_get_list")[1])
        self.assertNotIn(UNKNOWN, self.daemon.log.text())

        self.store_forced(name="N" * 300, bt=LAPTOP_BT + "-and-more", wifi="W" * 40,
                          zel_id="Z" * 64, mirroring_id="M" * 64)
        # A name cut inside a two-byte character still reads back as text.
        self.store_forced(name="\u00e9" * 100, bt="AA:BB:CC:DD:EE:31")
        (long,), found = self.client.call("pxm_get_device", qh.mac_ind(LAPTOP_BT, 1))
        self.assertEqual((1, "N" * 127, LAPTOP_BT, "W" * 17, "Z" * 31, "M" * 31),
                         (found, *long[:3], *long[10:]))
        (cut,), found = self.client.call("pxm_get_device", qh.mac_ind("AA:BB:CC:DD:EE:31", 1))
        self.assertEqual((1, "\u00e9" * 63 + "\ufffd"), (found, cut[0]))
        self.assertIsNone(self.daemon.process.poll())


class Quillonctl(BusMethodsCase):

    def ctl_json(self, *args, status=0):
        result = self.ctl("--json", *args)
        self.assertEqual(status, result.returncode, result.stderr)
        return json.loads(result.stdout)

    def test_answers_are_printed_and_judged_by_the_exit_status(self):
        out = self.ctl_json("request", "--name", "Phone", "--bt", BT, "--wifi", WIFI,
                            "--no-ux", "1", "--zel-id", "zel-1")
        self.assertEqual({"method": "pxm_request_access", "result": 0, "meaning": "allowed"},
                         out)
        found = self.ctl_json("device", WIFI, "wifi")
        self.assertTrue(found["found"])
        found["device"] = {key: "0" if value == "" else value
                           for key, value in found["device"].items()}
        self.assertEqual({"devname": "Phone", "bt_mac": BT, "wifi_mac": WIFI, "p2p_mac": "0",
                          "devtype": 0, "devicon": 0, "devstatus": 0,
                          "tvInitMirroringSupport": 0, "isNoUX": 1, "isUXAlways": 0,
                          "zel_id": "zel-1", "mirroring_Id": "0"}, found["device"])
        missing = self.ctl_json("device", UNKNOWN, "1", status=1)
        self.assertFalse(missing["found"])
        self.assertEqual(-1, missing["device"]["devstatus"])

        listed = self.ctl_json("list")
        self.assertEqual(1, listed["count"])
        self.assertEqual(["Phone"], [d["devname"] for d in listed["devices"]])
        self.assertEqual(0, self.ctl_json("list-reverse")["count"])

        # Each command's result, and the exit status that follows from it.
        for args, result, status in [
                (("status", BT.lower(), "bt"), 0, 0), (("status", UNKNOWN, "bt"), -1, 1),
                (("set-status", BT, "1", "-1"), 3, 1), (("set-status", UNKNOWN, "1", "1"), 4, 1),
                (("set-status", BT, "1", "1"), 1, 0), (("set-status", BT, "1", "1"), 2, 0),
                (("set-status", BT, "bt", "allow"), 1, 0), (("set-status", BT, "bt", "deny"), 1, 0),
                (("set-mirroring", BT, "1", "3"), 1, 0), (("set-mirroring", BT, "1", "3"), 0, 1),
                (("set-param", BT, "bt", "Renamed", "name"), 1, 0),
                (("set-param", UNKNOWN, "bt", "X", "1"), 0, 1),
                (("request-reverse", "--bt", BT, "--no-ux", "1"), 0, 0),
                (("remove-reverse", BT, "1"), 1, 0), (("remove-reverse", BT, "1"), 0, 1),
                (("remove-all-reverse",), 0, 0)]:
            with self.subTest(args=args):
                self.assertEqual(result, self.ctl_json(*args, status=status)["result"])
        text = self.ctl("device", BT, "bt")
        self.assertEqual(0, text.returncode)
        self.assertTrue(text.stdout.startswith("Renamed  bt=" + BT), text.stdout)
        self.assertIn("status=1 (denied)", text.stdout)
        for args, result, status in [(("remove", BT, "bt"), 1, 0), (("remove", BT, "bt"), 0, 1),
                                     (("remove-all",), 1, 0)]:
            self.assertEqual(result, self.ctl_json(*args, status=status)["result"])
        self.assertEqual({"method": "pxm_feedback_ux", "answered": True},
                         self.ctl_json("feedback", "--status", "undecided", "--bt", BT))
        version = self.ctl("--version")
        self.assertEqual((0, "quillonctl 0.1\n"), (version.returncode, version.stdout))

    def test_bad_usage_and_an_unreachable_daemon_have_their_own_statuses(self):
        for args in (["frobnicate"], [], ["status", BT], ["set-status", BT, "1", "one"],
                     ["list", "extra"], ["list", "--bt", BT], ["feedback", "--bt", BT],
                     ["monitor", "--count", "0"], ["--bogus", "list"],
                     ["status", BT, "1", "--timeout"],
                     # Checked before any call: addresses, address kinds, verdicts, UTF-8.
                     ["status", "AA:BB:CC", "bt"], ["status", "AA:BB-CC:DD:EE:FF", "bt"],
                     ["status", BT, "4"], ["set-status", BT, "bt", "maybe"],
                     ["request", "--bt", "not-a-mac"], ["request", "--name", "caf\udce9"]):
            with self.subTest(args=args):
                result = self.ctl(*args)
                self.assertEqual(2, result.returncode, result.stderr)
                self.assertTrue(result.stderr.startswith("quillonctl: "), result.stderr)

        # The daemon does not answer a feedback with a status above 2.
        silent = self.ctl("feedback", "--status", "3", "--bt", BT, "--timeout", "2")
        self.assertEqual(3, silent.returncode)
        self.assertIn("no answer", silent.stderr)
        self.assertIsNotNone(self.daemon.wait_for_log("INVALID status [3]"))

        self.assertEqual(0, self.daemon.stop())
        gone = self.ctl("list")
        self.assertEqual(3, gone.returncode)
        self.assertIn("not on the bus", gone.stderr)
        no_bus = self.ctl("list", env={"DBUS_SYSTEM_BUS_ADDRESS":
                                       f"unix:path={self.workdir}/no-such-bus"})
        self.assertEqual(3, no_bus.returncode)
        self.assertIn("cannot reach the system bus", no_bus.stderr)

    def test_monitor_prints_each_signal_as_it_arrives(self):
        monitor = self.spawn([qh.program("quillonctl"), "monitor", "--json", "--count", "3",
                              "--timeout", "60"], dict(os.environ, **self.bus.env()),
                             stdout=subprocess.PIPE)
        self.assertIsNotNone(monitor.log.wait_for("watching the signals", 15.0),
                             monitor.log.text())

        self.store_forced(name="Phone", bt=BT, p2p=P2P)
        self.client.call("pxm_set_tv_init_mirroring_status", qh.mac_ind_value(P2P, 3, 1))
        self.client.call("pxm_remove_all")
        lines = [json.loads(line) for line in monitor.process.stdout]
        self.assertEqual(0, monitor.wait_exit(30))
        self.assertEqual([
            {"signal": qh.STATUS_CHANGED, "bt_mac": BT, "wifi_mac": "0", "p2p_mac": P2P,
             "status": 0, "meaning": "allowed"},
            {"signal": qh.MIRRORING_CHANGED, "bt_mac": BT, "wifi_mac": "0", "p2p_mac": P2P,
             "tvInitMirroringSupport": 1},
            {"signal": qh.STATUS_CHANGED, "bt_mac": "0", "wifi_mac": "0", "p2p_mac": "0",
             "status": 4, "meaning": "all removed"},
        ], lines)

        quiet = self.ctl("monitor", "--count", "1", "--timeout", "1")
        self.assertEqual(1, quiet.returncode, quiet.stderr)
        self.assertEqual("", quiet.stdout)


if __name__ == "__main__":
    unittest.main()
