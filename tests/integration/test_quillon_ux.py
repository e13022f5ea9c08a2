"""quillon-ux, the prompt application, answering by script: it reads the device's bundle from
its "--KEY=VALUE" arguments and sends pxm_feedback_ux with the twelve values to the daemon
on the system bus (here the real quillon on a private bus, which logs each feedback with
all twelve values); bad arguments end it with status 2 before it touches the bus."""

import os
import subprocess
import unittest

from gi.repository import GLib

import quillon_harness as qh

FEEDBACK_LOG = "[DBusServer] pxm_feedback_ux called."

# The bundle in an order other than the daemon's: the prompt must not depend on it.
BUNDLE = [
    ("ZELID", "zel-7"),
    ("DEVICENAME", "Anna's Phone = new"),
    ("WIFIMAC", "11:22:33:44:55:66"),
    ("BTMAC", "AA:BB:CC:DD:EE:FF"),
    ("P2PMAC", "0"),
    ("DEVTYPE", "11"),
    ("DEVICON", "-22"),
    ("MIRRORINGSUPPORT", "33"),
    ("NOUX", "44"),
    ("UXALWAYS", "55"),
    ("MIRRORINGID", ""),
]


def bundle_args(overrides=None, drop=()):
    values = dict(BUNDLE)
    values.update(overrides or {})
    return [f"--{key}={values[key]}" for key, _ in BUNDLE if key not in drop]


def expected_feedback(status):
    """The daemon's line for a pxm_feedback_ux carrying the bundle's twelve values in the
    method's order: name, bt, wifi, p2p, zel id, mirroring id, type, icon, status,
    mirroring support, noux, uxalways."""
    return (f"{FEEDBACK_LOG} DeviceName[Anna's Phone = new] BT[AA:BB:CC:DD:EE:FF] "
            f"WIFI[11:22:33:44:55:66] P2P[0] ZelID[zel-7] MirroringId[] Type[11] Icon[-22] "
            f"Status[{status}] tvInitMirroringSupport[33] isNoUX[44] isUXAlways[55]")


class QuillonUx(qh.QuillonTestCase):

    def run_ux(self, args, answer=None, delay=None):
        # No display either: without a script answer the prompt must say it cannot ask.
        env = {k: v for k, v in os.environ.items()
               if not k.startswith("QUILLON_UX_") and k not in ("DISPLAY", "WAYLAND_DISPLAY")}
        env.update(self.bus.env())
        for key, value in (("QUILLON_UX_ANSWER", answer), ("QUILLON_UX_DELAY_MS", delay)):
            if value is not None:
                env[key] = value
        return subprocess.run([qh.program("quillon-ux"), *args], env=env,
                              capture_output=True, text=True, timeout=60)

    def feedbacks(self, marker):
        """The feedback lines of the daemon's log once it logged a query marked with marker:
        the daemon handles calls one at a time, in order."""
        self.client.call("pxm_get_status", GLib.Variant("(si)", (marker, 1)))
        self.assertIsNotNone(self.daemon.wait_for_log(f"Mac: [{marker}]"), self.daemon.log.text())
        return [line[line.index(FEEDBACK_LOG):] for line in self.daemon.log.lines()
                if FEEDBACK_LOG in line]

    def test_each_answer_sends_the_twelve_values_once(self):
        self.serve()
        for answer, status, delay in (("allow", 0, None), ("deny", 1, "0"),
                                      ("undecided", 2, "20")):
            with self.subTest(answer=answer):
                before = len(self.feedbacks(f"before-{answer}"))
                result = self.run_ux(bundle_args(), answer, delay)
                self.assertEqual(0, result.returncode, result.stderr)
                self.assertEqual([expected_feedback(status)],
                                 self.feedbacks(f"after-{answer}")[before:])

    def test_bad_arguments_end_with_status_2_before_any_call(self):
        self.serve()
        cases = [
            ("missing key", bundle_args(drop=("P2PMAC",)), "allow", None, "missing key P2PMAC"),
            ("no arguments", [], "allow", None, "missing key"),
            ("not a number", bundle_args({"DEVTYPE": "1x"}), "allow", None,
             "DEVTYPE must be a decimal integer, not '1x'"),
            ("number out of range", bundle_args({"DEVICON": "99999999999"}), "deny", None,
             "DEVICON must be a decimal integer"),
            ("key twice", bundle_args() + ["--ZELID=again"], "allow", None,
             "ZELID is given twice"),
            ("unknown key", bundle_args() + ["--COLOUR=red"], "allow", None,
             "unknown key COLOUR"),
            ("no --KEY=VALUE", bundle_args() + ["DEVICENAME"], "allow", None,
             "not of the form --KEY=VALUE"),
            ("unknown answer", bundle_args(), "maybe", None,
             "QUILLON_UX_ANSWER must be allow, deny, undecided or none, not 'maybe'"),
            ("no display, no answer", bundle_args(), None, None,
             "no display to show the prompt on"),
            ("bad delay", bundle_args(), "allow", "soon", "QUILLON_UX_DELAY_MS"),
        ]
        for name, args, answer, delay, message in cases:
            with self.subTest(name):
                result = self.run_ux(args, answer, delay)
                self.assertEqual(2, result.returncode, result.stderr)
                self.assertIn(message, result.stderr)
        # A well-formed answer after them is the first the daemon hears.
        self.assertEqual(0, self.run_ux(bundle_args(), "undecided").returncode)
        self.assertEqual([expected_feedback(2)], self.feedbacks("end"))

    def test_an_answer_nobody_takes_ends_with_status_1(self):
        # The bus is there, the daemon is not.
        self.start_bus()
        result = self.run_ux(bundle_args(), "allow")
        self.assertEqual(1, result.returncode, result.stderr)
        self.assertIn("pxm_feedback_ux failed", result.stderr)


if __name__ == "__main__":
    unittest.main()
