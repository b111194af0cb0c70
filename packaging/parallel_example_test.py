#!/usr/bin/env python3
"""Runs the README's example of converting many recordings with GNU
parallel (the lines between the "many-recordings-example" markers) on the
sample dumps, with the built programs first on the PATH: every dump becomes
a database that checks as sound and parallel exits with 0; a broken dump
among them makes parallel's exit status count it.

  parallel_example_test.py SOURCE_DIR RAVELOG KQV
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile


def example(source):
    with open(os.path.join(source, "README.md")) as f:
        text = f.read()
    block = re.search(r"<!-- many-recordings-example -->\n(.*?)<!-- end -->", text, flags=re.S)
    return "\n".join(line.strip() for line in block.group(1).splitlines() if line.strip())


def main(source, ravelog, kqv):
    if shutil.which("parallel") is None:
        print("GNU parallel is not installed")
        return 1
    script = example(source)
    work = tempfile.mkdtemp()
    try:
        os.makedirs(os.path.join(work, "dumps"))
        samples = sorted(name for name in os.listdir(os.path.join(source, "examples"))
                         if name.endswith(".core"))
        for name in samples:
            shutil.copy(os.path.join(source, "examples", name), os.path.join(work, "dumps"))
        path = os.pathsep.join([os.path.dirname(os.path.abspath(ravelog)),
                                os.path.dirname(os.path.abspath(kqv)), os.environ["PATH"]])
        environment = dict(os.environ, PATH=path)
        run = subprocess.run(["sh", "-c", script], cwd=work, env=environment, capture_output=True,
                             text=True)
        made = sorted(name for name in os.listdir(os.path.join(work, "databases"))
                      if name.endswith(".kqv"))
        if run.returncode != 0 or made != [name[:-5] + ".kqv" for name in samples]:
            print("status %d, databases %s\n%s" % (run.returncode, made, run.stderr))
            return 1
        with open(os.path.join(work, "dumps", "broken.core"), "wb") as f:
            f.write(b"\x00\x02\x00")
        run = subprocess.run(["sh", "-c", script], cwd=work, env=environment, capture_output=True,
                             text=True)
        if run.returncode != 1:
            print("with one broken dump parallel exited with %d, not 1" % run.returncode)
            return 1
        print("converted %d dumps; a broken one counted as one failure" % len(samples))
        return 0
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))
