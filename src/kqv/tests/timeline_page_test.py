#!/usr/bin/env python3
"""Opens the pages of `kqv export --format html` in headless Chromium.

usage: timeline_page_test.py RAVELOG KQV MAKE_SIMULATED_DUMP SOURCE_DIR

For each row of CASES it converts a dump, exports the page, and checks
through Chromium that the page's scripts ran without an error, that its
thread list holds every thread `kqv stats` names (id, name, share), that
the first frame drew rectangles, that its notes say what was merged or left
out, and that a screenshot shows the colours of the expected statuses.
"""
import collections
import html.parser
import json
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

# The fills the page gives each class of status (RGB), as it draws them.  The
# legend shows each in 100 pixels; the tracks must show the expected ones in
# at least 1000.
COLOURS = {
    "running": (0x2F, 0x9E, 0x44),
    "ready": (0xF2, 0xB7, 0x05),
    "waiting": (0xA9, 0xBD, 0xD3),
    "merged run": (0x7E, 0x57, 0xC2),
}

Case = collections.namedtuple("Case", "name dump options threads drawn colours notes")
SAMPLE_V2 = "examples/sample_v2_big.core"
SIMULATED = ("simulated", 300000, 64)  # events, threads
CASES = [
    # name, dump, export options, threads (None: those of kqv stats), first frame's rectangles
    # (None: some), status colours on screen, words the notes hold
    Case("version 2 sample", SAMPLE_V2, [], None, None, ["running", "ready", "waiting"], []),
    Case("version 1 sample, little-endian", "examples/sample_v1_little.core", [], None, None,
         ["running", "ready", "waiting"], []),
    Case("empty range: no thread, nothing drawn", SAMPLE_V2, ["--from", "0", "--to", "0"], [], 0, [],
         ["No thread spends any time"]),
    Case("300000 events, 64 threads: first frame from the overview", SIMULATED, [], None, None,
         ["ready", "waiting"], []),
    Case("merged runs and a sample of the markers", SIMULATED, ["--max-slices", "1000"], None, None,
         ["merged run", "ready"], ["are merged into runs", "markers are left out"]),
]

BROWSER_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--virtual-time-budget=5000"]


class PageDom(html.parser.HTMLParser):
    """From the DOM Chromium dumps: the text of the elements #errors, #notes
    and #threads, the thread list's items ([data-id, [its texts]]) and the
    body's data-drawn."""
    WATCHED = ("errors", "notes", "threads")

    def __init__(self, text):
        super().__init__()
        self.text = dict.fromkeys(self.WATCHED, "")
        self.items, self.drawn, self.inside, self.depth = [], None, None, 0
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "body":
            self.drawn = attrs.get("data-drawn")
        if self.inside:
            self.depth += 1
            if self.inside == "threads" and tag == "li":
                self.items.append([attrs.get("data-id"), []])
        elif attrs.get("id") in self.WATCHED:
            self.inside, self.depth = attrs["id"], 1

    def handle_endtag(self, tag):
        if self.inside:
            self.depth -= 1
            self.inside = self.inside if self.depth else None

    def handle_data(self, data):
        if self.inside:
            self.text[self.inside] += data
            if self.inside == "threads" and self.items:
                self.items[-1][1].append(data)


def png_colours(data):
    """Counts of each RGB colour of an 8-bit, non-interlaced RGB or RGBA PNG."""
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("not a PNG file")
    chunks, at = {}, 8
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        chunks[kind] = chunks.get(kind, b"") + data[at + 8:at + 8 + length]
        at += 12 + length
    width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", chunks[b"IHDR"])
    if depth != 8 or interlace or colour not in (2, 6):
        raise ValueError(f"PNG of depth {depth}, colour type {colour}, interlace {interlace}")
    size = 3 if colour == 2 else 4
    raw, stride = zlib.decompress(chunks[b"IDAT"]), width * size
    counts, above = collections.Counter(), bytearray(stride)
    for y in range(height):
        kind, row = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            left = row[i - size] if i >= size else 0
            up, corner = above[i], above[i - size] if i >= size else 0
            if kind == 1:
                row[i] = (row[i] + left) & 255
            elif kind == 2:
                row[i] = (row[i] + up) & 255
            elif kind == 3:
                row[i] = (row[i] + (left + up) // 2) & 255
            elif kind == 4:
                p = left + up - corner
                nearest = min((abs(p - left), 0, left), (abs(p - up), 1, up), (abs(p - corner), 2, corner))
                row[i] = (row[i] + nearest[2]) & 255
        counts.update(bytes(row[i:i + 3]) for i in range(0, stride, size))
        above = row
    return {tuple(rgb): n for rgb, n in counts.items()}


def run(*command):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, check=True).stdout


def browse(browser, page, *flags):
    with tempfile.TemporaryDirectory() as profile:
        command = [browser, *BROWSER_FLAGS, f"--user-data-dir={profile}", *flags, page.as_uri()]
        return subprocess.run(command, capture_output=True, timeout=300, check=True).stdout


def check_case(case, tools, browser, work):
    """The problems found with one row's page (an empty list when none)."""
    ravelog, kqv, make_dump, source = tools
    if case.dump == SIMULATED:
        core = work / "simulated.core"
        if not core.exists():
            run(make_dump, core, *case.dump[1:])
    else:
        core = source / case.dump
    database, page, shot = work / core.stem, work / "page.html", work / "page.png"
    if not (work / f"{core.stem}.kqv").exists():
        run(ravelog, core, database)
    run(kqv, "export", database, "--format", "html", "-o", page, *case.options)
    dom = PageDom(browse(browser, page, "--dump-dom").decode("utf-8"))
    problems = []
    if dom.text["errors"].strip():
        problems.append(f"the page reports errors: {dom.text['errors'].strip()}")
    if case.threads is None:
        lines = run(kqv, "stats", "--json", database).splitlines()
        expected = [record for record in map(json.loads, lines) if record["record"] == "thread"]
    else:
        expected = case.threads
    listed = {int(item[0]): " ".join(item[1]) for item in dom.items}
    if sorted(listed) != sorted(thread["id"] for thread in expected) or list(listed) != sorted(listed):
        problems.append(f"thread list {sorted(listed)} in that order, expected by id {[t['id'] for t in expected]}")
    for thread in expected:
        text = listed.get(thread["id"], "")
        share = text.split(" ")[-2] if text.endswith(" %") else "nan"
        if thread["name"] not in text or f"0x{thread['id']:08x}" not in text or \
                not abs(float(share) - 100 * thread["share"]) <= 0.051:
            problems.append(f"thread list item {text!r} for {thread['name']} 0x{thread['id']:08x} {thread['share']}")
    if dom.drawn is None or not dom.drawn.isdigit() or \
            (int(dom.drawn) != case.drawn if case.drawn is not None else int(dom.drawn) <= 0):
        problems.append(f"data-drawn is {dom.drawn!r}")
    problems += [f"the notes lack {words!r}" for words in case.notes if words not in dom.text["notes"]]
    browse(browser, page, f"--screenshot={shot}", "--window-size=1400,900")
    colours = png_colours(shot.read_bytes())
    problems += [f"{name} covers {colours.get(COLOURS[name], 0)} pixels of the screenshot, not 1000"
                 for name in case.colours if colours.get(COLOURS[name], 0) < 1000]
    return problems


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    tools = [pathlib.Path(arg).resolve() for arg in sys.argv[1:]]
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    if browser is None:
        sys.exit("FAIL: Chromium is not installed (Debian package chromium); this test opens pages in it.")
    failures = 0
    with tempfile.TemporaryDirectory() as work:
        for case in CASES:
            problems = check_case(case, tools, browser, pathlib.Path(work))
            print(("ok   " if not problems else "FAIL ") + case.name)
            for problem in problems:
                print("       " + problem)
            failures += bool(problems)
    print(f"{len(CASES) - failures} of {len(CASES)} pages as expected")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
