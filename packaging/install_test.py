#!/usr/bin/env python3
"""Installs the build into a temporary prefix and uses it as another
project would: a C program that writes `#include <kq_io.h>` built with
nothing but `pkg-config --cflags --libs kqv`, the same program built by a
CMake project through find_package(kqv) and kqv::kqv, the installed programs
and the installed Python package; each reads a database converted from a
sample dump, and must give what kqv info says.

  install_test.py BUILD_DIR SOURCE_DIR
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

READER = r"""
#include <stdio.h>
#include <kq_io.h>

int main(int argc, char **argv) {
  kq_DB *db = kq_OpenForUse(argv[1]);
  if (db == NULL) return 2;
  uint64_t start = 0, end = 0;
  uint32_t count = 0;
  kq_GetTimeExtent(db, &start, &end);
  kq_GetStartEventAndNumEvents(db, NULL, &count);
  printf("%u %llu %llu\n", count, (unsigned long long)start, (unsigned long long)end);
  kq_Close(db);
  return 0;
}
"""

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(reader C)
find_package(kqv CONFIG REQUIRED)
add_executable(reader reader.c)
target_link_libraries(reader PRIVATE kqv::kqv)
"""


def run(args, **kwargs):
    result = subprocess.run(args, capture_output=True, text=True, **kwargs)
    if result.returncode != 0:
        raise SystemExit("failed: %s\n%s%s" % (" ".join(args), result.stdout, result.stderr))
    return result.stdout


def main(build, source):
    work = tempfile.mkdtemp()
    try:
        prefix = os.path.join(work, "prefix")
        run(["cmake", "--install", build, "--prefix", prefix])
        libdir = next(d for d in ("lib", "lib64", "lib/x86_64-linux-gnu")
                      if os.path.exists(os.path.join(prefix, d, "libkqv.so.1")))
        for path in ["bin/ravelog", "bin/kqv", libdir + "/libkqv.a", "include/kqv/kq_io.h",
                     libdir + "/pkgconfig/kqv.pc", libdir + "/cmake/kqv/kqvConfig.cmake",
                     "share/man/man1/ravelog.1", "share/man/man1/kqv.1",
                     "lib/python3/dist-packages/kqv/__init__.py"]:
            if not os.path.exists(os.path.join(prefix, path)):
                raise SystemExit("not installed: " + path)
        environment = dict(os.environ, LD_LIBRARY_PATH=os.path.join(prefix, libdir))
        environment.pop("KQV_LIBRARY", None)

        base = os.path.join(work, "db")
        run([os.path.join(prefix, "bin/ravelog"),
             os.path.join(source, "examples/sample_v2_big.core"), base], env=environment)
        info = json.loads(run([os.path.join(prefix, "bin/kqv"), "info", "--json", base],
                              env=environment))
        want = "%d %d %d\n" % (info["events"], info["start"], info["end"])

        with open(os.path.join(work, "reader.c"), "w") as f:
            f.write(READER)
        flags = run(["pkg-config", "--cflags", "--libs", "kqv"],
                    env=dict(environment, PKG_CONFIG_PATH=os.path.join(prefix, libdir, "pkgconfig")))
        run(["cc", "-std=c11", "-Wall", "-Werror", "-o", os.path.join(work, "by_pkgconfig"),
             os.path.join(work, "reader.c")] + flags.split())
        got = run([os.path.join(work, "by_pkgconfig"), base], env=environment)
        if got != want:
            raise SystemExit("pkg-config build read %r, kqv info says %r" % (got, want))

        project = os.path.join(work, "project")
        os.makedirs(project)
        shutil.copy(os.path.join(work, "reader.c"), project)
        with open(os.path.join(project, "CMakeLists.txt"), "w") as f:
            f.write(PROJECT)
        run(["cmake", "-S", project, "-B", os.path.join(project, "build"),
             "-DCMAKE_PREFIX_PATH=" + prefix])
        run(["cmake", "--build", os.path.join(project, "build")])
        got = run([os.path.join(project, "build/reader"), base], env=environment)
        if got != want:
            raise SystemExit("find_package build read %r, kqv info says %r" % (got, want))

        python_environment = dict(environment,
                                  PYTHONPATH=os.path.join(prefix, "lib/python3/dist-packages"))
        python_environment.pop("LD_LIBRARY_PATH")  # the package finds the library by itself
        got = run([sys.executable, "-c",
                   "import kqv; db = kqv.open(%r); print(db.event_count, *db.time_extent)" % base],
                  env=python_environment)
        if got != want:
            raise SystemExit("the installed Python package read %r, kqv info says %r" % (got, want))
        print("installed, and read alike by pkg-config and CMake builds and by Python")
        return 0
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
