"""The owner's device list on Xvfb, opened with `quillonctl devices` against the daemon: rows
as text with verdicts (screenshot kept), keys that allow, forget and cancel, changes made
elsewhere shown within a second, a user outside quillon-manage refused in one sentence, the
daemon's absence and return, and Forget all emptying both lists."""

import json
import os
import re
import subprocess
import time
import unittest

import quillon_harness as qh

TITLE = "Quillon: devices on this TV"
PHONE, MARKUP, TABLET_BT, TABLET_WIFI, SPEAKER = (f"AA:BB:CC:DD:EE:0{i}" for i in range(1, 6))
ROW = re.compile(r"row \d+ shows (\w+) list: name \[(.*)\] verdict \[(.*?)\] "
                 r"mirroring \[TV-initiated mirroring (\w+)\] addresses \[(.*?)\] icon \[(.*?)\]")


def item(name, status, icon, bt="0", wifi="0", p2p="0", mirroring=0, dy_type=0):
    return {"item_data": {"devname": name, "bt_mac": bt, "wifi_mac": wifi, "p2p_mac": p2p,
                          "devtype": 1, "devicon": icon, "devstatus": status,
                          "tvInitMirroringSupport": mirroring, "dy_type": dy_type}}


class DevicesWindow(qh.QuillonTestCase):

    def listing(self, count, start):
        """The rows of the first "lists COUNT devices" at or after log line start, as
        (list, name, verdict, mirroring, addresses, icon), read back from the window's
        labels."""
        found = self.log.wait_for(f"the window lists {count} devices", 10.0, start)
        self.assertIsNotNone(found, self.log.text())
        lines = self.log.lines()
        end = next(i for i in range(start, len(lines)) if lines[i] == found)
        return [ROW.search(line).groups() for line in lines[end - count:end]]

    def keys(self, *names):
        pressed = self.xserver.run("xdotool", "key", "--delay", "150", *names)
        self.assertEqual(0, pressed.returncode, pressed.stderr)

    def test_the_owner_sees_allows_forgets_and_follows_the_daemon(self):
        xserver = self.start_x()
        self.root.init()
        self.root.seed("2\n" + json.dumps([
            item("Phone", 0, 1, bt=PHONE, mirroring=1), item("<b>x</b>", 1, 2, wifi=MARKUP),
            item("Tablet", 2, 3, bt=TABLET_BT, wifi=TABLET_WIFI),
            item("Speaker", 0, 5, p2p=SPEAKER, dy_type=1)]))
        self.daemon, client = self.serve()
        ctl_env = dict(os.environ, **self.bus.env())

        where = subprocess.run([qh.program("quillonctl"), "devices"], capture_output=True,
                               text=True, env={k: v for k, v in ctl_env.items()
                                               if k not in ("DISPLAY", "WAYLAND_DISPLAY")})
        self.assertEqual((0, qh.program("quillon-devices") + "\n"),
                         (where.returncode, where.stdout), where.stderr)
        window = self.spawn([qh.program("quillonctl"), "devices"],
                            dict(ctl_env, DISPLAY=xserver.display, GSK_RENDERER="cairo"))
        self.log = window.log
        self.assertEqual([
            ("normal", "Phone", "allowed", "on", f"Bluetooth  {PHONE}", "phone"),
            ("normal", "<b>x</b>", "blocked", "off", f"Wi-Fi  {MARKUP}", "computer"),
            ("normal", "Tablet", "undecided", "off",
             f"Bluetooth  {TABLET_BT};Wi-Fi  {TABLET_WIFI}", "input-tablet"),
            ("reverse", "Speaker", "allowed", "off", f"Wi-Fi Direct  {SPEAKER}",
             "audio-speakers"),
        ], self.listing(4, 0))
        window_id = xserver.find_window(TITLE)
        self.assertIsNotNone(window_id, self.log.text())
        time.sleep(0.5)  # drawn before the picture is taken
        self.assertGreater(xserver.screenshot("devices-window.png").stat().st_size, 5000)
        xserver.run("xdotool", "windowfocus", "--sync", window_id)

        # The focus starts on Allow: Down selects <b>x</b>, Enter allows it.
        at, start = len(self.log.lines()), len(client.events)
        self.keys("Down", "Return")
        self.assertEqual([("0", MARKUP, "0", 0)],
                         [s.value for s in client.wait_signals(1, start=start)])
        self.assertTrue(qh.wait_until(lambda: self.root.verdicts().get(MARKUP) == 0, 5.0))
        self.assertIsNotNone(self.log.wait_for("name [<b>x</b>] verdict [allowed]", 5.0, at))

        # Down to Tablet, Right twice to Forget.
        at, start = len(self.log.lines()), len(client.events)
        self.keys("Down", "Right", "Right", "Return")
        self.assertEqual([(TABLET_BT, TABLET_WIFI, "0", 3)],
                         [s.value for s in client.wait_signals(1, start=start)])
        self.assertEqual(["Phone", "<b>x</b>", "Speaker"],
                         [row[1] for row in self.listing(3, at)])

        at = len(self.log.lines())
        ctl = subprocess.run([qh.program("quillonctl"), "set-status", PHONE, "bt", "deny"],
                             env=ctl_env, capture_output=True, text=True, timeout=30)
        self.assertEqual(0, ctl.returncode, ctl.stderr)
        self.assertIsNotNone(self.log.wait_for("name [Phone] verdict [blocked]", 1.0, at),
                             self.log.text())

        # Tab from Forget to Forget all; the question opens on Cancel, and Enter takes it.
        client.flush()
        at, start = len(self.log.lines()), len(client.events)
        self.keys("Tab", "Return")
        self.assertIsNotNone(self.log.wait_for("asks whether to forget all devices", 5.0, at))
        self.keys("Return")
        self.assertIsNotNone(self.log.wait_for("Forget all cancelled", 5.0, at))
        client.flush()
        self.assertEqual([], client.signals(start=start))
        self.assertEqual(["Phone", "<b>x</b>"],
                         [e[0] for e in client.call("pxm_get_list")[0]])
        self.assertEqual(1, client.call("pxm_get_list_reverse")[1])
        self.assertNotIn("pxm_remove_all", self.daemon.log.text())

        # A user outside quillon-manage: the bus refuses, the window says so in one sentence
        # and still shows the daemon's verdict.
        if os.geteuid() == 0:
            for folder in (self.workdir, self.workdir / "bus"):
                os.chmod(folder, 0o755)
            guest = self.spawn(
                [qh.program("quillon-devices")],
                dict(ctl_env, DISPLAY=xserver.display, GSK_RENDERER="cairo",
                     HOME=str(self.workdir), XDG_RUNTIME_DIR=str(self.workdir)),
                prefix=("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"))
            self.assertIsNotNone(guest.log.wait_for("the window lists 3 devices"))
            ids = xserver.run("xdotool", "search", "--name", TITLE).stdout.split()
            xserver.run("xdotool", "windowfocus", "--sync", *set(ids) - {window_id})
            at = len(guest.log.lines())
            self.keys("Return")
            self.assertIsNotNone(guest.log.wait_for(
                "says [This user may not call pxm_set_status: it needs root or membership of "
                "the group quillon-manage.]", 5.0, at), guest.log.text())
            self.assertIsNotNone(guest.log.wait_for("name [Phone] verdict [blocked]", 5.0, at))
            self.assertEqual((1,), client.call("pxm_get_status", qh.mac_ind(PHONE, 1)))
            self.assertEqual(0, guest.stop())
            xserver.run("xdotool", "windowfocus", "--sync", window_id)

        # The daemon goes and comes back: the window says so, then shows the list again.
        at = len(self.log.lines())
        self.daemon.stop()
        self.assertIsNotNone(self.log.wait_for(
            "the window shows [The Quillon service is not running.", 5.0, at), self.log.text())
        at = len(self.log.lines())
        self.start_daemon()
        self.assertEqual([("normal", "Phone", "blocked"), ("normal", "<b>x</b>", "allowed"),
                          ("reverse", "Speaker", "allowed")],
                         [row[:3] for row in self.listing(3, at)])

        # The focus came back on Allow; Left wraps to Forget all, Right to its confirmation.
        # Both lists empty (the daemon answers 0 for the reverse list even then).
        at, start = len(self.log.lines()), len(client.events)
        self.keys("Left", "Return", "Right", "Return")
        self.assertEqual([("0", "0", "0", 4)],
                         [s.value for s in client.wait_signals(1, start=start)])
        self.assertIsNotNone(self.log.wait_for("the window shows [No devices are stored.", 5.0,
                                               at), self.log.text())
        self.assertIsNotNone(self.log.wait_for("says [Every device is forgotten.]", 5.0, at))
        self.assertEqual([([], 0), ([], 0)], [client.call("pxm_get_list"),
                                              client.call("pxm_get_list_reverse")])
        self.assertNotIn("still lists", self.log.text())

        self.keys("Escape")
        self.assertEqual(0, window.wait_exit(10))


if __name__ == "__main__":
    unittest.main()
