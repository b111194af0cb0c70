#!/usr/bin/env python3
"""Holds the man pages to the programs' own help: every usage line that
`kqv <command> --help` prints stands in kqv.1, the synopsis of kqv.1 names
every command, and ravelog.1 gives `ravelog -h`'s options and their texts.

  man_pages_test.py SOURCE_DIR RAVELOG KQV
"""
import re
import subprocess
import sys


def page_text(path):
    """The man page as plain text: requests and font changes dropped,
    escaped minus signs made plain."""
    lines = []
    for line in open(path):
        if line.startswith(".\\\""):
            continue
        line = re.sub(r"^\.(B|I|BR|IR|RI|TP|PP|br|SH|TH)\b ?", "", line)
        lines.append(line.replace("\\-", "-").rstrip("\n"))
    return "\n".join(lines)


def main(source_dir, ravelog, kqv):
    failures = []
    kqv_page = page_text(source_dir + "/packaging/man/kqv.1")
    commands = re.findall(r"^  (\w+) ", subprocess.run([kqv, "--help"], capture_output=True,
                                                        text=True).stdout, flags=re.M)
    if not commands:
        failures.append("kqv --help lists no commands")
    for command in commands:
        usage = subprocess.run([kqv, command, "--help"], capture_output=True, text=True).stdout
        line = usage.splitlines()[0].removeprefix("usage: ")
        if line not in kqv_page:
            failures.append("kqv.1 lacks the usage line: " + line)
    ravelog_page = page_text(source_dir + "/packaging/man/ravelog.1")
    help_text = subprocess.run([ravelog, "-h"], capture_output=True, text=True).stdout
    synopsis = re.sub(r"^Usage: \S+ ", "ravelog ", help_text.splitlines()[0])
    if synopsis.replace("ravelog ", "ravelog\n", 1) not in ravelog_page:
        failures.append("ravelog.1 lacks the synopsis: " + synopsis)
    for option, text in re.findall(r"^\s+(-\w)\s+(.*)$", help_text, flags=re.M):
        if option + "\n" + text.rstrip(".") not in ravelog_page:
            failures.append("ravelog.1 lacks option %s: %s" % (option, text))
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))
