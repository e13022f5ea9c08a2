"""The real quillon killed with SIGKILL at random moments of a storm of changes, twenty times.
After each restart the stored list loads whole, equals the list after some prefix of the calls
holding every call answered a second before the kill, no temporary file is left, and the wake
tables repair to agree. QUILLON_STORM_SEED replays a failed run."""

import collections
import os
import random
import signal
import sys
import time
import unittest

import quillon_harness as qh

from gi.repository import GLib  # noqa: E402

CYCLES = 20
IN_FLIGHT = 4
# Few enough that the list stays small: later calls change the devices of earlier ones.
ADDRESSES = [f"02:00:00:00:00:{n:02X}" for n in range(32)]
# Answered this long before the kill, a change must be on disk. Every fourth storm lasts
# longer than that, so that its first answers are held to it.
DURABLE_AFTER = 1.0
SHORT_STORM_MS, LONG_STORM_MS = (20, 300), (1200, 1500)
# The daemon's lines for a list it could not parse, and the host's for a damaged item.
LOAD_FAILURES = ("parse json err", " Format err", "is damaged; kept aside")
REQUEST, SET_STATUS = "pxm_request_access", "pxm_set_status"


class Change:
    """One call of a storm: a forced verdict or a status change for one Wi-Fi address."""

    def __init__(self, rng, number):
        self.address = rng.choice(ADDRESSES)
        self.method = REQUEST if rng.random() < 0.6 else SET_STATUS
        self.value = 1 if rng.random() < 0.3 else 0
        self.parameters = (qh.record(name=f"Device {number}", wifi=self.address,
                                     status=self.value, no_ux=1)
                           if self.method == REQUEST else
                           qh.mac_ind_value(self.address, 2, self.value))
        self.reply = None
        self.answered_at = None  # time.monotonic() of the reply

    def apply(self, verdicts):
        """Does to verdicts ({address: status}) what the daemon does to its list; the reply."""
        current = verdicts.get(self.address)
        if self.method == REQUEST:
            if current == 1 and self.value == 0:
                return (1,)  # a stored denial stands
            verdicts[self.address] = self.value
            return (self.value,)
        if current is None:
            return (4,)
        verdicts[self.address] = self.value
        return (2,) if current == self.value else (1,)


class CrashStorm(qh.QuillonTestCase):

    def storm_then_kill(self, client, daemon, delay_ms, rng):
        """Keeps IN_FLIGHT calls going, kills the daemon after delay_ms and waits for every
        call's answer or error. The calls in the order sent, and the kill's time."""
        changes, state = [], {"in_flight": 0, "killed_at": None}

        def send():
            change = Change(rng, len(changes))
            changes.append(change)
            state["in_flight"] += 1

            def done(conn, result, _data):
                state["in_flight"] -= 1
                try:
                    change.reply = conn.call_finish(result).unpack()
                    change.answered_at = time.monotonic()
                except GLib.Error:
                    pass  # the daemon died before it answered
                if state["killed_at"] is None:
                    send()

            client.conn.call(qh.BUS_NAME, qh.OBJECT_PATH, qh.SET_INTERFACE, change.method,
                             change.parameters, None, 0, 30000, None, done, None)

        def kill():
            state["killed_at"] = time.monotonic()
            os.kill(daemon.process.pid, signal.SIGKILL)
            return False

        for _ in range(IN_FLIGHT):
            send()
        GLib.timeout_add(delay_ms, kill)
        self.assertTrue(qh.wait_until(lambda: state["killed_at"] and not state["in_flight"], 60),
                        "the storm never ended")
        self.assertEqual(-signal.SIGKILL, daemon.wait_exit(10.0))
        self.stats["temporary files left by kills"] += len(self.root.temporaries())
        return changes, state["killed_at"]

    def restart_and_check(self, client, before, changes, killed_at):
        """Starts the daemon again and checks what it found against the list `before` the
        storm and the storm's `changes`. The daemon and its list, {address: status}."""
        daemon = self.start_daemon(wait_for=qh.LOG_RUNNING)
        self.assertIsNotNone(daemon.wait_for_log(qh.LOG_NAME_ACQUIRED), daemon.log.text())
        self.assertEqual([], self.root.temporaries(keep_pid=daemon.process.pid))

        log = daemon.log.text()
        self.assertEqual([], [f for f in LOAD_FAILURES if f in log])
        stored = self.root.verdicts()
        if stored:
            self.assertNotIn("Read PXM file error", log)
        self.assertEqual(len(stored), log.count("> Restore Data["), "records loaded")
        elements, count = client.call("pxm_get_list")
        self.assertEqual((stored, len(stored)), ({e[2]: e[6] for e in elements}, count))

        # The list after each prefix of the calls; the answers must match the model.
        verdicts, cuts = dict(before), [dict(before)]
        for change in changes:
            reply = change.apply(verdicts)
            if change.reply is not None:
                self.assertEqual(reply, change.reply, f"{change.method} {change.address} "
                                 f"{change.value} on {cuts[-1].get(change.address)}")
            cuts.append(dict(verdicts))
        early = [i for i, c in enumerate(changes)
                 if c.answered_at is not None and c.answered_at < killed_at - DURABLE_AFTER]
        self.stats["calls answered over a second before a kill"] += len(early)
        durable = early[-1] + 1 if early else 0
        self.assertIn(stored, cuts[durable:], "the stored list is none of those the daemon "
                      f"had after its first {durable} of {len(changes)} calls; the first:\n"
                      f"{cuts[durable]}")

        # A kill between the list's save and the tables' update leaves them apart; the
        # repair command brings them together again.
        if self.root.platform("wake-tables", "--check", check=False).returncode != 0:
            self.stats["wake table repairs"] += 1
            self.root.platform("wake-tables", "--repair")
            self.root.platform("wake-tables", "--check")
        allowed = {address for address, status in stored.items() if status == 0}
        self.assertEqual((set(), allowed), self.root.wake_tables())
        return daemon, stored

    def test_nothing_answered_a_second_before_a_kill_is_lost(self):
        seed = int(os.environ.get("QUILLON_STORM_SEED", "20240611"))
        rng = random.Random(seed)
        self.stats = collections.Counter()
        daemon, client = self.serve()
        stored, calls = {}, 0
        for cycle in range(CYCLES):
            delay_ms = rng.randint(*(LONG_STORM_MS if cycle % 4 == 3 else SHORT_STORM_MS))
            try:
                changes, killed_at = self.storm_then_kill(client, daemon, delay_ms, rng)
                daemon, stored = self.restart_and_check(client, stored, changes, killed_at)
            except AssertionError as error:
                raise AssertionError(f"QUILLON_STORM_SEED={seed}, cycle {cycle} (kill after "
                                     f"{delay_ms} ms): {error}") from None
            calls += len(changes)
        self.assertTrue(stored, "no device was ever stored")
        print(f"{CYCLES} kills, seed {seed}: {calls} calls, " +
              ", ".join(f"{n} {what}" for what, n in sorted(self.stats.items())),
              file=sys.stderr)


if __name__ == "__main__":
    unittest.main()
