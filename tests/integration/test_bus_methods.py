"""The running daemon's bus methods as a client meets them on a private system bus:
arguments of the wrong type refused by the bus layer, over-long texts cut to the record,
and quillonctl's output and exit statuses for every command. Each method's codes,
signals and their order against the reply are proven by the handler tests."""

import json
import os
import subprocess
import sys
import unittest

from gi.repository import GLib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quillon_bus as qb  # noqa: E402
import quillon_harness as qh  # noqa: E402
from quillon_bus import mac_ind, mac_ind_value  # noqa: E402

BT = "AA:BB:CC:DD:EE:01"
WIFI = "AA:BB:CC:DD:EE:02"
P2P = "AA:BB:CC:DD:EE:03"
UNKNOWN = "AA:BB:CC:DD:EE:99"


class BusMethodsCase(qh.QuillonTestCase):

    def setUp(self):
        super().setUp()
        self.daemon = self.start_serving_daemon()
        self.client = qb.BusClient(self.bus.address)
        self.addCleanup(self.client.close)

    def store_forced(self, **fields):
        """A device stored without a prompt (the requester forces its verdict)."""
        fields.setdefault("no_ux", 1)
        code = self.client.call("pxm_request_access", qb.record(**fields))[0]
        self.assertEqual(fields.get("status", 0), code)

    def device(self, mac, ind, method="pxm_get_device"):
        elements, found = self.client.call(method, mac_ind(mac, ind))
        self.assertEqual(1, len(elements))
        return elements[0], found


class Robustness(BusMethodsCase):

    def test_arguments_of_the_wrong_type_are_refused_by_the_bus_layer(self):
        self.store_forced(name="Phone", bt=BT)
        self.client.flush()
        start = len(self.client.events)
        wrong = [
            ("pxm_request_access", GLib.Variant("(ssssss)", ("N", UNKNOWN, "", "", "", ""))),
            ("pxm_request_access", GLib.Variant("(ssssssiiiiis)",
                                                ("N", UNKNOWN, "", "", "", "", 0, 0, 0, 0, 1,
                                                 "0"))),
            ("pxm_set_status", GLib.Variant("(sis)", (BT, 1, "1"))),
            ("pxm_set_status", GLib.Variant("(si)", (BT, 1))),
            ("pxm_remove_device", GLib.Variant("(ii)", (1, 1))),
            ("pxm_remove_all", GLib.Variant("(i)", (1,))),
            ("pxm_get_status", GLib.Variant("(s)", (BT,))),
            ("pxm_get_device", GLib.Variant("(sx)", (BT, 1))),
            ("pxm_set_device_extended_param_string", GLib.Variant("(siii)", (BT, 1, 2, 1))),
            ("pxm_feedback_ux", GLib.Variant("(ssssssiiiiiii)",
                                             ("N", UNKNOWN, "", "", "", "", 0, 0, 0, 0, 0, 0, 0))),
        ]
        for method, parameters in wrong:
            with self.subTest(method=method, signature=parameters.get_type_string()):
                self.assertEqual(qb.INVALID_ARGS, self.client.call_error(method, parameters))
        self.client.flush()
        self.assertEqual([], self.client.signals(start=start))
        elements, count = self.client.call("pxm_get_list")
        self.assertEqual((1, "Phone", 0), (count, elements[0][0], elements[0][6]))
        # None of them reached a handler.
        for line in self.daemon.log.lines():
            self.assertNotIn("called. MAC [AA:BB:CC:DD:EE:01](1) and Status", line)
            self.assertNotIn(UNKNOWN, line)

    def test_over_long_texts_are_cut_to_the_records_capacities(self):
        self.assertEqual((0,), self.client.call("pxm_request_access", qb.record(
            name="N" * 300, bt=BT + "-and-more", wifi="W" * 40, zel_id="Z" * 64,
            mirroring_id="M" * 64, no_ux=1)))
        element, found = self.device(BT, 1)
        self.assertEqual(1, found)
        self.assertEqual(("N" * 127, BT, "W" * 17), element[:3])
        self.assertEqual(("Z" * 31, "M" * 31), element[10:])

        # A name cut inside a two-byte character still reads back as text.
        self.assertEqual((0,), self.client.call("pxm_request_access", qb.record(
            name="\u00e9" * 100, bt="AA:BB:CC:DD:EE:21", no_ux=1)))
        element, found = self.device("AA:BB:CC:DD:EE:21", 1)
        self.assertEqual(1, found)
        self.assertEqual("\u00e9" * 63 + "\ufffd", element[0])
        self.assertEqual(2, self.client.call("pxm_get_list")[1])
        self.assertIsNone(self.daemon.process.poll())


class Quillonctl(BusMethodsCase):

    def ctl(self, *args, env=None, timeout=60):
        environment = dict(os.environ)
        environment.update(env if env is not None else self.bus.env())
        return subprocess.run([qh.program("quillonctl"), *map(str, args)], env=environment,
                              capture_output=True, text=True, timeout=timeout)

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
        for args in (["frobnicate"], [], ["status", BT], ["status", BT, "x"],
                     ["set-status", BT, "1", "one"], ["list", "extra"], ["list", "--bt", BT],
                     ["feedback", "--bt", BT], ["monitor", "--count", "0"], ["--bogus", "list"],
                     ["status", BT, "1", "--timeout"],
                     # Checked before any call: addresses, address kinds, verdicts, UTF-8.
                     ["status", "AA:BB:CC", "bt"], ["status", "AA:BB:CC:DD:EE:GG", "bt"],
                     ["status", "AA:BB-CC:DD:EE:FF", "bt"], ["status", BT, "4"],
                     ["status", BT, "0"], ["set-status", BT, "bt", "maybe"],
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
        environment = dict(os.environ)
        environment.update(self.bus.env())
        monitor = subprocess.Popen([qh.program("quillonctl"), "monitor", "--json", "--count", "3",
                                    "--timeout", "60"],
                                   env=environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.addCleanup(lambda: monitor.poll() is None and monitor.kill())
        ready = qh.LineCollector(monitor.stderr)
        self.assertIsNotNone(ready.wait_for("watching the signals", 15.0), ready.text())

        self.store_forced(name="Phone", bt=BT, p2p=P2P)
        self.client.call("pxm_set_tv_init_mirroring_status", mac_ind_value(P2P, 3, 1))
        self.client.call("pxm_remove_all")
        out, _ = monitor.communicate(timeout=30)
        self.assertEqual(0, monitor.returncode)
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([
            {"signal": qb.STATUS_CHANGED, "bt_mac": BT, "wifi_mac": "0", "p2p_mac": P2P,
             "status": 0, "meaning": "allowed"},
            {"signal": qb.MIRRORING_CHANGED, "bt_mac": BT, "wifi_mac": "0", "p2p_mac": P2P,
             "tvInitMirroringSupport": 1},
            {"signal": qb.STATUS_CHANGED, "bt_mac": "0", "wifi_mac": "0", "p2p_mac": "0",
             "status": 4, "meaning": "all removed"},
        ], lines)

        quiet = self.ctl("monitor", "--count", "1", "--timeout", "1")
        self.assertEqual(1, quiet.returncode, quiet.stderr)
        self.assertEqual("", quiet.stdout)


if __name__ == "__main__":
    unittest.main()
