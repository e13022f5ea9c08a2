"""Wi-Fi security end to end: python3-dbusmock's NetworkManager on the test's bus, the real
daemon in access-notification mode 0 (a new device on a secure Wi-Fi is stored without a
prompt). Each step checks the reply and the daemon's lines; quillon-platform network agrees."""

import os
import unittest

from gi.repository import Gio, GLib

import quillon_harness as qh

NM = "org.freedesktop.NetworkManager"
NM_PATH = "/org/freedesktop/NetworkManager"
ACTIVE_PATH = NM_PATH + "/ActiveConnection/"
WIRELESS = NM + ".Device.Wireless"
ACCESS_POINT = NM + ".AccessPoint"
MOCK = "org.freedesktop.DBus.Mock"
DEVICE_DISCONNECTED, DEVICE_PREPARE, DEVICE_IP_CONFIG, DEVICE_ACTIVATED = 30, 40, 70, 100
CONNECTION_ACTIVATED = 2
# Access point flags: privacy; WPA/RSN: PSK key management with its pairwise and group ciphers.
PRIVACY = 0x1
PSK_CCMP = 0x100 | 0x08 | 0x80
PSK_TKIP = 0x100 | 0x04 | 0x40

SECURE = "Wifi Security is OK [3][3]"
CONNECTED_SECURE = "Wifi Connected : Security[1]"
CONNECTED_INSECURE = "Wifi Connected : Security[0]"
DISCONNECTED = "Wifi Diconnected [0]"
STORED_SILENTLY = "Security condition accepted. No noti"
NO_MANAGER = "Connection creation failed.[-1]"
ABSENT = "host platform: NetworkManager is not on the system bus"


class MockNetworkManager:
    """The dbusmock template with a Wi-Fi device, wlan0, and what a client reads that the
    template lacks: PrimaryConnection(Type) and the device's ActiveAccessPoint."""

    def __init__(self, test):
        bus = test.bus
        self.process = test.spawn(["/usr/bin/python3", "-m", "dbusmock", "--system",
                                   "--template", "networkmanager"], {**os.environ, **bus.env()})
        test.assertTrue(qh.wait_until(lambda: bus.name_has_owner(NM), 20.0),
                        "the NetworkManager mock did not take its name")
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                 Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.conn = Gio.DBusConnection.new_for_address_sync(bus.address, flags, None, None)
        self.networks = {}  # name -> (access point, connection settings)
        self.add_property(NM_PATH, NM, "PrimaryConnection", GLib.Variant("o", "/"))
        self.add_property(NM_PATH, NM, "PrimaryConnectionType", GLib.Variant("s", ""))
        self.wifi = self.mock("AddWiFiDevice", "(ssi)", ("wlan0", "wlan0", DEVICE_DISCONNECTED))
        self.add_property(self.wifi, WIRELESS, "ActiveAccessPoint", GLib.Variant("o", "/"))

    def mock(self, method, signature, args, path=NM_PATH):
        reply = self.conn.call_sync(NM, path, MOCK, method, GLib.Variant(signature, args),
                                    None, Gio.DBusCallFlags.NONE, 10000, None).unpack()
        return reply[0] if reply else None

    def add_property(self, path, interface, name, value):
        self.mock("AddProperty", "(ssv)", (interface, name, value), path)

    def set(self, path, interface, name, value):
        self.mock("SetProperty", "(sssv)", (path, interface, name, value))

    def set_primary(self, name, kind):
        path = ACTIVE_PATH + name if name else "/"
        self.set(NM_PATH, NM, "PrimaryConnection", GLib.Variant("o", path))
        self.set(NM_PATH, NM, "PrimaryConnectionType", GLib.Variant("s", kind))

    def join(self, name, ssid, flags, wpa, rsn):
        """Associates wlan0 with the network: access point and primary connection first, the
        device turns activated last, as NetworkManager's clients see it."""
        if name not in self.networks:
            # The template makes a connection only for an access point it knows as PSK or
            # open; the flags are the test's once it is made.
            ap = self.mock("AddAccessPoint", "(ssssuuuyu)",
                           (self.wifi, name, name, "00:11:22:33:44:55", 2, 2437, 54000, 80,
                            0x100))
            connection = self.mock("AddWiFiConnection", "(ssss)", (self.wifi, name, name, ""))
            self.networks[name] = (ap, connection)
        ap, connection = self.networks[name]
        for prop, value in (("Flags", GLib.Variant("u", flags)),
                            ("WpaFlags", GLib.Variant("u", wpa)),
                            ("RsnFlags", GLib.Variant("u", rsn)),
                            ("Ssid", GLib.Variant("ay", ssid))):
            self.set(ap, ACCESS_POINT, prop, value)
        self.set(self.wifi, WIRELESS, "ActiveAccessPoint", GLib.Variant("o", ap))
        self.set_primary(name, "802-11-wireless")
        self.mock("AddActiveConnection", "(assssu)",
                  ([self.wifi], connection, ap, name, CONNECTION_ACTIVATED))

    def leave(self, name):
        """The Wi-Fi connection goes, and stops being the primary one."""
        self.set_primary("", "")
        self.set(self.wifi, WIRELESS, "ActiveAccessPoint", GLib.Variant("o", "/"))
        self.mock("RemoveActiveConnection", "(ss)", (self.wifi, ACTIVE_PATH + name))

    def plug_ethernet(self):
        """eth0 activated as the primary connection, the Wi-Fi device untouched."""
        eth = self.mock("AddEthernetDevice", "(ssi)", ("eth0", "eth0", DEVICE_ACTIVATED))
        settings = {"connection": {"id": GLib.Variant("s", "Wired"),
                                   "type": GLib.Variant("s", "802-3-ethernet")}}
        connection = self.conn.call_sync(
            NM, NM_PATH + "/Settings", NM + ".Settings", "AddConnection",
            GLib.Variant("(a{sa{sv}})", (settings,)), None, Gio.DBusCallFlags.NONE, 10000,
            None).unpack()[0]
        self.set_primary("wired", "802-3-ethernet")
        self.mock("AddActiveConnection", "(assssu)",
                  ([eth], connection, "/", "wired", CONNECTION_ACTIVATED))

    def stop(self):
        self.conn.close_sync(None)
        self.process.stop()


class NetworkSecurity(qh.QuillonTestCase):

    def expect_log(self, *texts):
        """Each text in a line of the daemon's log, in order, after the last one expected."""
        for text in texts:
            line = self.daemon.log.wait_for(text, 15.0, start=self.mark)
            self.assertIsNotNone(line, f"no '{text}' after line {self.mark} of:\n"
                                 + self.daemon.log.text())
            self.mark = self.daemon.log.lines().index(line, self.mark) + 1

    def request(self, number, expected, *log):
        """A new device (its Wi-Fi address numbered) asks; the reply and the daemon's lines
        for its verdict. An asked device's prompt is gone again before this returns."""
        mac = f"AA:BB:CC:DD:EE:{number:02X}"
        self.mark = len(self.daemon.log.lines())
        self.assertEqual((expected,), self.client.call(
            "pxm_request_access", qh.record(name=f"Phone {number}", wifi=mac)))
        self.expect_log(*log)
        if expected == 2:
            self.expect_log("NOTI HERE", "quillon-ux: answered status 2")
            self.assertTrue(qh.wait_until(lambda: not self.root.prompts(), 15.0),
                            "the prompt is still running")

    def network_tool(self):
        result = self.root.platform("network", check=False, env=self.bus.env())
        return result.returncode, result.stdout.splitlines()

    def test_only_a_psk_network_with_aes_stores_new_devices_without_a_prompt(self):
        # Mode 0, and a prompt that answers "undecided", so a device asked about stays new.
        self.start_bus()
        self.root.init()
        self.root.platform("set-int", "db/menu/network/devicemanager/accessnoti", "0")
        self.root.platform("register-app", qh.UX_APP_ID, qh.program("quillon-ux"))
        self.serve({"QUILLON_UX_ANSWER": "undecided"})
        self.mark = 0
        # NetworkManager comes after the daemon: start-up did not wait for it, and says once
        # why the network is unknown.
        self.expect_log("[2/5] WiFi init >> Success", "[3/5] WifiConnectionState callback",
                        NO_MANAGER)
        self.request(1, 2, NO_MANAGER)
        status, lines = self.network_tool()
        self.assertEqual((1, "verdict: not secure: NetworkManager is not on the system bus"),
                         (status, lines[-1]))

        nm = MockNetworkManager(self)
        self.expect_log("host platform: NetworkManager is on the system bus")
        # Each state on the way reaches the daemon, in order: associating, then configuring.
        for state, reported in ((DEVICE_PREPARE, 1), (DEVICE_IP_CONFIG, 2)):
            nm.set(nm.wifi, NM + ".Device", "State", GLib.Variant("u", state))
            self.expect_log(f"Wifi Diconnected [{reported}]")
        nm.join("home", b"Home", PRIVACY, 0, PSK_CCMP)
        self.expect_log(SECURE, CONNECTED_SECURE)
        self.request(2, 0, "m_bSecurity [1]", STORED_SILENTLY)
        status, lines = self.network_tool()
        self.assertEqual(0, status)
        for line in ('connection: wifi (802-11-wireless "home")',
                     "wifi device: wlan0 connected (NetworkManager state 100)", "ssid: Home",
                     "access point: flags 0x1 wpa 0x0 rsn 0x188", "security: wpa2-psk (3)",
                     "encryption: aes (3)"):
            self.assertIn(line, lines)
        self.assertTrue(lines[-1].startswith("verdict: secure: "), lines)

        # A disconnect clears the security at once, even before NetworkManager has
        # replaced its primary connection: a Wi-Fi that is not activated is no Wi-Fi.
        self.mark = len(self.daemon.log.lines())
        nm.mock("SetDeviceDisconnected", "(s)", (nm.wifi,))
        self.expect_log(DISCONNECTED)
        self.request(3, 2, "WIFI is not connected[0]", "m_bSecurity [0]")
        nm.leave("home")

        # WPA2-PSK with TKIP; an open network whose SSID is not UTF-8.
        self.mark = len(self.daemon.log.lines())
        nm.join("cafe", b"Cafe", PRIVACY, 0, PSK_TKIP)
        self.expect_log("Wifi Security level is NOT OK TYPE[3] ENCRYPTION[2]", "AP is [Cafe]",
                        CONNECTED_INSECURE)
        self.request(4, 2, "NOT OK TYPE[3] ENCRYPTION[2]", "m_bSecurity [0]")
        status, lines = self.network_tool()
        self.assertEqual(0, status)
        self.assertIn("encryption: tkip (2)", lines)
        self.assertIn("verdict: not secure: the encryption is neither aes nor tkip+aes", lines)
        nm.leave("cafe")
        self.expect_log(DISCONNECTED)
        nm.join("open", b"Caf\xe9\\\n", 0, 0, 0)
        self.expect_log("NOT OK TYPE[0] ENCRYPTION[0]", "AP is [Caf\\xe9\\\\\\x0a]",
                        CONNECTED_INSECURE)
        self.request(5, 2, "NOT OK TYPE[0] ENCRYPTION[0]")
        nm.leave("open")
        self.expect_log(DISCONNECTED)

        # Back on the secure network: restored without a request in between.
        nm.join("home", b"Home", PRIVACY, 0, PSK_CCMP)
        self.expect_log(SECURE, "AP is [Home]", CONNECTED_SECURE)
        self.request(6, 0, "m_bSecurity [1]", STORED_SILENTLY)

        # An Ethernet cable beside it: the Wi-Fi stays up but is no longer the connection.
        nm.plug_ethernet()
        self.expect_log("WIFI is not connected[3]", CONNECTED_INSECURE)
        self.request(7, 2, "WIFI is not connected[3]", "m_bSecurity [0]")

        # NetworkManager leaving the bus is a disconnect.
        nm.stop()
        self.expect_log("host platform: NetworkManager left the system bus", DISCONNECTED)
        self.request(8, 2, NO_MANAGER)
        self.assertEqual(1, self.daemon.log.text().count(ABSENT))
        elements, count = self.client.call("pxm_get_list")
        self.assertEqual((2, ["Phone 2", "Phone 6"]), (count, [e[0] for e in elements]))


if __name__ == "__main__":
    unittest.main()
