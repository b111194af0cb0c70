"""The Python package held against the C interface: databases that ravelog
writes from the sample dumps, read through kqv (Python) and through the kqv
program's JSON (which comes from libkqv's C calls), must agree; and every
failure is a kqv.Error, never a crash.

Run by CTest with KQV_LIBRARY (the built shared library), RAVELOG_BINARY,
KQV_BINARY and RAVELOG_SOURCE_DIR in the environment, and python/ on the
path."""
import json
import os
import shutil
import subprocess
import tempfile
import unittest

import kqv

RAVELOG = os.environ["RAVELOG_BINARY"]
KQV = os.environ["KQV_BINARY"]
SAMPLES = ["sample_v2_big", "sample_v1_little", "sample_v2_little"]


def kqv_json(*args):
    out = subprocess.run([KQV, *args, "--json"], capture_output=True, text=True, check=True).stdout
    return [json.loads(line) for line in out.splitlines()]


class KqvTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp()
        cls.bases = []
        for sample in SAMPLES:
            base = os.path.join(cls.dir, sample)
            core = os.path.join(os.environ["RAVELOG_SOURCE_DIR"], "examples", sample + ".core")
            subprocess.run([RAVELOG, core, base], check=True, capture_output=True)
            cls.bases.append(base)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir)

    def test_the_database_agrees_with_the_c_interface(self):
        for base in self.bases:
            with self.subTest(base=base), kqv.open(base) as db:
                info = kqv_json("info", base)[0]
                self.assertEqual(db.event_count, info["events"])
                self.assertEqual(db.time_extent, (info["start"], info["end"]))
                self.assertEqual(db.ticks_per_second, info["ticks_per_second"])
                self.assertEqual(db.byte_order, info["byte_order"])
                self.assertEqual(db.config, info["config"])
                start, end = db.time_extent
                for window, args in [((None, None), []),
                                     ((start + 1000, (start + end) // 2),
                                      ["--from", str(start + 1000), "--to", str((start + end) // 2)])]:
                    want = kqv_json("events", *args, base)
                    got = list(db.events(*window))
                    self.assertEqual(len(got), len(want))
                    for e, w in zip(got, want):
                        self.assertEqual((e.number, e.time, e.type, e.subtype, e.name, e.owner_id,
                                          e.payload.hex()),
                                         (w["n"], w["time"], w["type"], w["subtype"], w["name"],
                                          w["owner_id"], w["payload"]))
                for at in (start, (start + end) // 3, end):
                    want = kqv_json("state", "--at", str(at), base)
                    got = db.state_at(at)
                    self.assertEqual([(o.type, o.id, o.name, o.status, o.priority) for o in got],
                                     [(w["type"], w["id"], w["name"], w["status"], w["priority"])
                                      for w in want])

    def test_failures_raise_kqv_error(self):
        missing = os.path.join(self.dir, "missing")
        with self.assertRaisesRegex(kqv.Error, r'^Can\'t open database ".*missing"'):
            kqv.open(missing)
        damaged = os.path.join(self.dir, "damaged")
        for suffix in (".kqv", ".kqs", ".kqi"):
            shutil.copy(self.bases[0] + suffix, damaged + suffix)
        with open(damaged + ".kqs", "r+b") as f:
            f.seek(-1, os.SEEK_END)
            f.write(b"\x09")  # the final 0 tag
        with kqv.open(damaged) as db:
            with self.assertRaisesRegex(kqv.Error, "is damaged: unknown packet tag 9"):
                list(db.events())
        db = kqv.open(self.bases[0])
        db.close()
        with self.assertRaisesRegex(kqv.Error, "is closed"):
            db.event_count


if __name__ == "__main__":
    unittest.main()
