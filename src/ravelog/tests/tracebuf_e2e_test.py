#!/usr/bin/env python3
"""End to end: ravelog converts the kernel's own trace buffer, recorded by
the real kernel (src/tracedemo on the kernel's Linux port).

usage: tracebuf_e2e_test.py TRACEDEMO RAVELOG KQV

One run with a trace buffer that holds it whole (its clock starting just
before the 32-bit wrap, so that the times carry over it) must convert to a
database whose threads end in the states and priorities the kernel reported
(tx_thread_info_get) and were switched in as often as the kernel ran them.
A run with a small buffer that wrapped must convert too, a big-endian copy
of a buffer must give the same database, and each damaged copy of a real
buffer in MALFORMED must end with its message and status 1.
"""
import json
import os
import struct
import subprocess
import sys
import tempfile

VERIFY = "\nVerify that the correct target memory region was saved.\n"
FATAL = "ravelog: fatal: "

# The database's name for each state the kernel reports.  The thread that
# asks the kernel (the monitor) is the one running: the kernel calls it
# ready, the database RUNNING.
STATUS_OF_KERNEL_STATE = {0: "TX_READY", 3: "TX_SUSPENDED", 4: "TX_SLEEP", 5: "TX_QUEUE_SUSP",
                          6: "TX_SEMAPHORE_SUSP", 13: "TX_MUTEX_SUSP"}
ASKING_THREAD = "monitor"

# The small buffer's layout, moved to this base: header 0x20000000, registry
# 0x20000030 to 0x20000330 (16 entries of 48 bytes), entries 0x20000330 to
# 0x20001ff0 (230 entries in 8192 bytes).
BASE = 0x20000000
HEADER_POINTERS = (8, 12, 20, 24, 28, 32)  # base, registry start and end, entries start, end, current


def word(data, offset, value):
    return data[:offset] + struct.pack("<I", value) + data[offset + 4:]


def half(data, offset, value):
    return data[:offset] + struct.pack("<H", value) + data[offset + 2:]


def rebased(data):
    """The buffer with its header's pointers moved to BASE."""
    base = struct.unpack_from("<I", data, 8)[0]
    for offset in HEADER_POINTERS:
        data = word(data, offset, struct.unpack_from("<I", data, offset)[0] - base + BASE)
    return data


def current_offset(data):
    return struct.unpack_from("<I", data, 32)[0] - struct.unpack_from("<I", data, 8)[0]


def newest_time_plus_one(data):
    """The entry at the current pointer stamped just after the newest entry:
    as if the target were writing it when the buffer was saved."""
    start, end = (struct.unpack_from("<I", data, o)[0] - BASE for o in (24, 28))
    at = current_offset(data)
    newest = at - 32 if at > start else end - 32
    return word(data, at + 12, struct.unpack_from("<I", data, newest + 12)[0] + 1)


# name, damage done to the rebased small buffer, extra environment, status,
# standard error (for status 1) or a line of the -d listing (for status 0)
MALFORMED = [
    ("cut to two bytes: refused as before", lambda d: d[:2], {}, 1,
     "Bad format detected in core file.  First two bytes were both non-zero." + VERIFY),
    ("an id with one byte wrong: refused as before", lambda d: b"BTXU" + d[4:], {}, 1,
     "Bad format detected in core file.  First two bytes were both non-zero." + VERIFY),
    ("cut inside the header", lambda d: d[:40], {}, 1,
     "Trace buffer cut short: the file holds 40 bytes, less than the 48-byte header." + VERIFY),
    ("cut inside the registry", lambda d: d[:500], {}, 1,
     "The object registry ends at offset 816, past the end of the file (500 bytes)." + VERIFY),
    ("cut among the entries", lambda d: d[:4000], {}, 1,
     "The trace buffer's entries end at offset 8176, past the end of the file (4000 bytes)." + VERIFY),
    ("cut where the last entry starts", lambda d: d[:8144], {}, 1,
     "The trace buffer's entries end at offset 8176, past the end of the file (8144 bytes)." + VERIFY),
    ("cut inside the last entry: it is left out", lambda d: d[:8160], {}, 0,
     "0x00001fd0 left out: cut by the end of the file"),
    ("the entry at the current pointer being written: it is left out", newest_time_plus_one, {}, 0,
     "left out: still being written"),
    ("registry starting inside the header", lambda d: word(d, 12, 0x20000010), {}, 1,
     "Bad trace buffer header: the object registry (0x20000010 to 0x20000330) and the entries "
     "(0x20000330 to 0x20001ff0) are not in order behind the header at 0x20000000." + VERIFY),
    ("registry ending behind the entries' start", lambda d: word(d, 20, 0x20000400), {}, 1,
     "Bad trace buffer header: the object registry (0x20000030 to 0x20000400) and the entries "
     "(0x20000330 to 0x20001ff0) are not in order behind the header at 0x20000000." + VERIFY),
    ("header at the top of the address space", lambda d: word(d, 8, 0xFFFFFFF0), {}, 1,
     "Bad trace buffer header: the object registry (0x20000030 to 0x20000330) and the entries "
     "(0x20000330 to 0x20001ff0) are not in order behind the header at 0xfffffff0." + VERIFY),
    ("entries ending past the file", lambda d: word(d, 28, 0x20100010), {}, 1,
     "The trace buffer's entries end at offset 1048592, past the end of the file (8192 bytes)." + VERIFY),
    ("entries not a whole number of entries", lambda d: word(d, 28, 0x20001ff4), {}, 1,
     "Bad trace buffer of 7364 bytes: it is not a whole number of 32-byte entries." + VERIFY),
    ("current pointer inside an entry", lambda d: word(d, 32, 0x20000334), {}, 1,
     "Bad current entry pointer 0x20000334: it is not an entry of the trace buffer "
     "(0x20000330 to 0x20001ff0)." + VERIFY),
    ("current pointer at the entries' end", lambda d: word(d, 32, 0x20001ff0), {}, 1,
     "Bad current entry pointer 0x20001ff0: it is not an entry of the trace buffer "
     "(0x20000330 to 0x20001ff0)." + VERIFY),
    ("timer mask not a run of low bits", lambda d: word(d, 4, 0x00FF00FF), {}, 1,
     "Bad timer valid mask 0x00ff00ff in the trace buffer header.  It is not a run of low bits." + VERIFY),
    ("object name size 0", lambda d: half(d, 18, 0), {}, 1,
     "Bad object name size 0 in the trace buffer header." + VERIFY),
    ("object name size 33: registry not whole entries", lambda d: half(d, 18, 33), {}, 1,
     "Bad object registry of 768 bytes: it is not a whole number of 52-byte entries (object name size 33)."
     + VERIFY),
    ("ticks per second not a number", lambda d: d, {"RAVELOG_TICKS_PER_SECOND": "12x"}, 1,
     'Bad RAVELOG_TICKS_PER_SECOND "12x": it is not a whole number of ticks per second from 1 to 2147483647.\n'),
]


def big_endian(data):
    """The buffer as a big-endian target holds it: every 32-bit and 16-bit
    field swapped, the registry's bytes and names as they are."""
    def swapped(fmt, offset, out):
        out[offset:offset + struct.calcsize(fmt)] = struct.pack(">" + fmt, *struct.unpack_from("<" + fmt, data, offset))
    out = bytearray(data)
    swapped("4I2H7I", 0, out)
    base, registry = struct.unpack_from("<2I", data, 8)
    names = struct.unpack_from("<H", data, 18)[0]
    registry_end, start, end = struct.unpack_from("<3I", data, 20)
    stride = 16 + (names + 3) // 4 * 4
    for at in range(registry - base, registry_end - base, stride):
        swapped("3I", at + 4, out)
    for at in range(start - base, end - base, 32):
        swapped("8I", at, out)
    return bytes(out)


class Tools:
    def __init__(self, demo, ravelog, kqv, folder):
        self.demo, self.ravelog, self.kqv_binary, self.folder = demo, ravelog, kqv, folder

    def record(self, name, buffer_bytes, run_ms, clock_start):
        trace, info = (os.path.join(self.folder, name + suffix) for suffix in (".trace", ".json"))
        subprocess.run([self.demo, str(buffer_bytes), str(run_ms), trace, info, hex(clock_start)], check=True,
                       timeout=60)
        with open(trace, "rb") as f, open(info) as g:
            return f.read(), json.load(g)

    def convert(self, name, data, env=(), debug=False):
        path = os.path.join(self.folder, name)
        with open(path + ".buf", "wb") as f:
            f.write(data)
        return subprocess.run([self.ravelog] + (["-d"] if debug else []) + [path + ".buf", path], text=True,
                              errors="replace", capture_output=True, env=dict(os.environ, **dict(env)), timeout=120)

    def kqv(self, name, *args):
        out = subprocess.run([self.kqv_binary, args[0], os.path.join(self.folder, name)] + list(args[1:]) + ["--json"],
                             text=True, capture_output=True, check=True).stdout
        return [json.loads(line) for line in out.splitlines()]


class Checks:
    checked = failures = 0

    def equal(self, what, got, expected):
        self.checked += 1
        if got != expected:
            self.failures += 1
            print(f"FAIL {what}:\n  got      {got!r}\n  expected {expected!r}")


def check_kernel_view(c, tools, name, kernel):
    """The database's threads at the end against tx_thread_info_get, and
    times switched in against the kernel's run counts."""
    end = tools.kqv(name, "info")[0]["end"]
    state = {t["id"]: t for t in tools.kqv(name, "state", "--at", str(end))}
    stats = {t["id"]: t for t in tools.kqv(name, "stats") if t["record"] == "thread"}
    c.equal(f"{name}: threads", sorted(state), sorted(t["id"] for t in kernel["threads"]))
    for thread in kernel["threads"]:
        mine = state.get(thread["id"], {})
        expected = "RUNNING" if thread["name"] == ASKING_THREAD else STATUS_OF_KERNEL_STATE[thread["state"]]
        c.equal(f"{name}: {thread['name']}: status", mine.get("status"), expected)
        c.equal(f"{name}: {thread['name']}: priority", mine.get("priority"), thread["priority"])
        c.equal(f"{name}: {thread['name']}: name", mine.get("name"), thread["name"][:31])
        c.equal(f"{name}: {thread['name']}: switched in", stats.get(thread["id"], {}).get("switched_in"),
                thread["run_count"])


def kernel_entries(data):
    """The used entries of a little-endian buffer, oldest first: thread
    pointer, priority field, event id, information fields 1 and 2."""
    base = struct.unpack_from("<I", data, 8)[0]
    start, end, current = (struct.unpack_from("<I", data, o)[0] - base for o in (24, 28, 32))
    count = (end - start) // 32
    for step in range(count):
        thread, priority, event, _, info1, info2 = struct.unpack_from(
            "<6I", data, start + (current - start + 32 * step) % (end - start))
        if thread != 0 and event != 0xFFFFFFFF:
            yield thread, priority, event, info1, info2


def runs_after(entry):
    """Who runs once the kernel has made the entry, as the entry says: its
    thread, the interrupted one in an interrupt (none over idle), none
    during initialisation, and none once a thread has suspended itself (a
    priority change, state 14, only takes it off its list for a moment)."""
    thread, priority, event, info1, info2 = entry
    runs = priority if thread == 0xFFFFFFFF else 0 if thread == 0xF0F0F0F0 else thread
    if event == 2 and info1 == runs and info2 != 14:
        return set()
    return {runs} - {0}


def check_running_thread(c, tools, name, data):
    """After each entry's own event, the database's RUNNING threads are the
    ones the kernel ran.  Context switches and thread records come from no
    entry of their own."""
    entries, statuses, wrong = kernel_entries(data), {}, []
    for event in tools.kqv(name, "events", "--changes"):
        for change in event["changes"]:
            if change["type"] == 0 and change.get("offset", 0) == 0:
                statuses[change["id"]] = int(change.get("bytes", change.get("value"))[:4], 16)
        if event["type"] not in (1, 6):
            expected = runs_after(next(entries))
            running = {thread for thread, status in statuses.items() if status == 3}
            if running != expected:
                wrong.append((event["n"], sorted(running), sorted(expected)))
    c.equal(f"{name}: events where the running threads are not the kernel's", wrong[:3], [])
    c.equal(f"{name}: entries left without events", next(entries, None), None)


def little_payloads(events):
    """Events with their payloads' words (a thread record's first two) in
    little-endian order."""
    for event in events:
        payload = bytes.fromhex(event["payload"])
        words = 2 if event["type"] == 6 else len(payload) // 4
        event["payload"] = b"".join(payload[4 * i:4 * i + 4][::-1] for i in range(words)).hex() + \
            payload[4 * words:].hex()
    return events


def main(demo, ravelog, kqv):
    c = Checks()
    with tempfile.TemporaryDirectory() as folder:
        tools = Tools(demo, ravelog, kqv, folder)
        whole, kernel = tools.record("whole", 1 << 20, 1000, 0xFFFF0000)
        c.equal("whole run: buffer wraps", kernel["buffer_wraps"], 0)
        run = tools.convert("whole", whole)
        c.equal("whole run: conversion", (run.returncode, run.stdout, run.stderr), (0, "", ""))
        check_kernel_view(c, tools, "whole", kernel)
        check_running_thread(c, tools, "whole", whole)
        extent = tools.kqv("whole", "info")[0]
        c.equal("whole run: times carried over the clock's wrap (no jump of 2^32 us)",
                900000 <= extent["end"] < 30000000, True)

        wrapped, kernel = tools.record("wrapped", 8192, 500, 0)
        c.equal("wrapped run: buffer wrapped", kernel["buffer_wraps"] > 0, True)
        run = tools.convert("wrapped", wrapped)
        c.equal("wrapped run: conversion", (run.returncode, run.stderr), (0, ""))
        check_running_thread(c, tools, "wrapped", wrapped)
        run = tools.convert("ticks", wrapped, {"RAVELOG_TICKS_PER_SECOND": "1000"})
        c.equal("RAVELOG_TICKS_PER_SECOND=1000", (run.returncode, tools.kqv("ticks", "info")[0]["ticks_per_second"]),
                (0, 1000))

        for name, data in (("whole", whole), ("wrapped", wrapped)):
            run = tools.convert(name + "_big", big_endian(data))
            c.equal(f"{name}, big-endian: conversion", (run.returncode, run.stderr), (0, ""))
            c.equal(f"{name}, big-endian: byte order", tools.kqv(name + "_big", "info")[0]["byte_order"], "big")
            for command in ("stats", "state"):
                args = (command,) if command == "stats" else (command, "--at", "999999999")
                c.equal(f"{name}, big-endian: kqv {command}", tools.kqv(name + "_big", *args), tools.kqv(name, *args))
            c.equal(f"{name}, big-endian: events", little_payloads(tools.kqv(name + "_big", "events")),
                    tools.kqv(name, "events"))

        small = rebased(wrapped)
        for name, damage, env, status, expected in MALFORMED:
            run = tools.convert("damaged", damage(small), env, debug=status == 0)
            if status == 1:
                c.equal(name, (run.returncode, run.stdout, run.stderr), (1, "", FATAL + expected))
            else:
                c.equal(name, (run.returncode, run.stderr, expected in run.stdout), (0, "", True))
    print(f"{c.checked - c.failures} passed, {c.failures} failed")
    return 1 if c.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))
