"""The prompt's window on Xvfb, launched by the daemon for a new device (screenshot kept): a
click on Allow or the Escape key answers it, and the verdict is stored and announced; a name
with markup is shown as text; a window nobody answers closes when its countdown ends."""

import time
import unittest

import quillon_harness as qh

TITLE = "Quillon: a device asks for access"
PHONE_BT = "AA:BB:CC:DD:EE:01"
LAPTOP_BT = "AA:BB:CC:DD:EE:21"
PHONE_WIFI = "AA:BB:CC:DD:EE:02"
LAPTOP_WIFI = "AA:BB:CC:DD:EE:22"
FEEDBACK_LOG = "[DBusServer] pxm_feedback_ux called."


class PromptWindow(qh.QuillonTestCase):

    def setUp(self):
        super().setUp()
        self.xserver = self.start_x()
        self.display = self.xserver.display
        self.x = self.xserver.run

    def serve_prompt(self, extra_env=None):
        self.root.platform("register-app", qh.UX_APP_ID, qh.program("quillon-ux"))
        env = {"DISPLAY": self.display, "GSK_RENDERER": "cairo"}
        env.update(extra_env or {})
        self.serve(env)

    def ask(self, name, bt=PHONE_BT, wifi=PHONE_WIFI):
        start = len(self.client.events)
        self.assertEqual((2,), self.client.call(
            "pxm_request_access", qh.record(name=name, bt=bt, wifi=wifi)))
        window = self.xserver.find_window(TITLE)
        self.assertIsNotNone(window, self.daemon.log.text())
        return start, window

    def window_open(self):
        return self.xserver.find_window(TITLE, sync=False) is not None

    def test_a_click_or_a_key_answers_and_the_verdict_is_stored_and_announced(self):
        self.serve_prompt()
        for case, bt, wifi, keys, status in (
                ("allow", PHONE_BT, PHONE_WIFI, "click", 0),
                ("not-now", LAPTOP_BT, LAPTOP_WIFI, ["Escape"], 2)):
            with self.subTest(case):
                start, window = self.ask(case, bt, wifi)
                time.sleep(0.5)  # drawn before the picture is taken
                shot = self.xserver.screenshot(f"prompt-window-{case}.png")
                self.assertGreater(shot.stat().st_size, 5000)
                self.x("xdotool", "windowfocus", "--sync", window)
                if keys == "click":
                    # Allow is the left button of the row near the bottom of the window.
                    geometry = dict(line.split("=") for line in self.x(
                        "xdotool", "getwindowgeometry", "--shell", window).stdout.split())
                    x = int(int(geometry["WIDTH"]) * 0.19)
                    y = int(int(geometry["HEIGHT"]) * 0.76)
                    pressed = self.x("xdotool", "mousemove", "--window", window, str(x), str(y),
                                     "click", "1")
                else:
                    pressed = self.x("xdotool", "key", "--delay", "150", *keys)
                self.assertEqual(0, pressed.returncode, pressed.stderr)
                signals = self.client.wait_signals(1, start=start, timeout=15.0)
                self.assertEqual([(bt, wifi, "0", status)], [s.value for s in signals])
                # Only the allowed device is stored; Not now leaves the list as it was.
                elements, count = self.client.call("pxm_get_list")
                self.assertEqual([("allow", PHONE_BT, 0)], [(e[0], e[1], e[6]) for e in elements])
                self.assertTrue(qh.wait_until(lambda: not self.window_open(), 10.0))

    def test_markup_is_shown_as_text_and_the_countdown_closes_without_answering(self):
        self.serve_prompt({"QUILLON_UX_WAIT_MS": "3000"})
        start, _ = self.ask("<b>x</b>")
        self.assertIsNotNone(self.daemon.wait_for_log("quillon-ux: window shows name [<b>x</b>]"),
                             self.daemon.log.text())
        self.assertTrue(qh.wait_until(lambda: not self.window_open(), 10.0))
        self.assertIsNotNone(self.daemon.wait_for_log(
            "quillon-ux: no answer within 3000 ms; closing without answering"))
        self.assertIsNotNone(self.daemon.wait_for_log("UX Terminated"))
        self.client.flush()
        self.assertEqual([], self.client.signals(start=start))
        self.assertFalse([line for line in self.daemon.log.lines() if FEEDBACK_LOG in line])
        self.assertEqual(([], 0), self.client.call("pxm_get_list"))


if __name__ == "__main__":
    unittest.main()
