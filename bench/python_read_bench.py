#!/usr/bin/env python3
"""Reading speed from Python: one pass over every event of a database
through the kqv package (the streaming cursor under ctypes), and the same
pass that also touches each event's fields.  Not run as a test.

  KQV_LIBRARY=build/default/packaging/libkqv.so.1 PYTHONPATH=python \
      python3 bench/python_read_bench.py DB [RUNS]
"""
import sys
import time

import kqv


def main(base, runs=3):
    with kqv.open(base) as db:
        count = db.event_count
        for label, touch in (("events", False), ("events+fields", True)):
            best = None
            for _ in range(runs):
                start = time.perf_counter()
                seen = 0
                for event in db.events():
                    if touch:
                        seen += len(event.payload) + event.time + (event.owner_id or 0)
                    else:
                        seen += 1
                elapsed = time.perf_counter() - start
                best = elapsed if best is None else min(best, elapsed)
            print("%-14s %d events in %.3f s: %.0f events/s" % (label, count, best, count / best))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 3))
