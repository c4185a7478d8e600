#!/usr/bin/env python3
"""guard.py [--update] PROGRAM BASELINE

Counts with callgrind the instructions that one pass of each guarded table takes in PROGRAM (inet-agent-bench-own) and
compares them with BASELINE. More than the margin above fails: no noise of the machine explains that. With another
compiler, C library or processor than the baseline's the figures are printed only.
"""

import json
import os
import re
import subprocess
import sys

TABLES = {
    "codec/request-encode": 200,
    "codec/request-read-all": 200,
    "codec/request-read-three": 200,
    "codec/result-encode": 200,
    "codec/result-decode": 200,
    "queue/depth-1": 500,
    "log/filtered": 2000,
    "config/load": 10,
}
MARGIN_PERCENT = 5

# The C library picks its string functions by the processor; these are in every one of the architecture.
PLAIN_PROCESSOR = "glibc.cpu.hwcaps=" + ",".join(
    "-" + feature
    for feature in ("AVX512F", "AVX512VL", "AVX512BW", "AVX2", "AVX", "AVX_Fast_Unaligned_Load", "BMI2", "ERMS", "FSRM",
                    "RTM", "SSE4_2", "SSE4_1", "SSSE3"))


def instructions(program, table, times):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--toggle-collect=bench_counted_loop",
               program, "--count", table, str(times)]
    run = subprocess.run(command, env=dict(os.environ, GLIBC_TUNABLES=PLAIN_PROCESSOR), stdin=subprocess.DEVNULL,
                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    collected = re.search(r"Collected : (\d+)", run.stderr)
    if run.returncode != 0 or collected is None:
        sys.exit(f"guard.py: {table}: {' '.join(command)} ended with {run.returncode}:\n{run.stderr}")
    return round(int(collected.group(1)) / times, 1)


def main():
    arguments = sys.argv[1:]
    update = "--update" in arguments
    if update:
        arguments.remove("--update")
    if len(arguments) != 2:
        sys.exit(__doc__)
    program, path = arguments
    versions = json.loads(subprocess.run([program, "--versions"], stdout=subprocess.PIPE, check=True).stdout)
    measured = {table: instructions(program, table, times) for table, times in TABLES.items()}
    if update:
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"versions": versions, "instructions": measured}, file, indent=2)
            file.write("\n")
    with open(path, encoding="utf-8") as file:
        baseline = json.load(file)

    comparable = baseline["versions"] == versions
    failed = False
    print("\n### guard\n\nInstructions of one pass, counted by callgrind.\n")
    print("| table | baseline | now | change |\n|---|--:|--:|--:|")
    for table, now in measured.items():
        before = baseline["instructions"].get(table)
        if before is None:
            print(f"| {table} | | {now} | |")
            failed = True
            continue
        change = 100 * (now / before - 1)
        verdict = ""
        if comparable and change > MARGIN_PERCENT:
            failed = True
            verdict = " **slower**"
        elif comparable and change < -MARGIN_PERCENT:
            verdict = " faster: bring the baseline up to date"
        print(f"| {table} | {before} | {now} | {change:+.1f} %{verdict} |")
    print()
    if not comparable:
        print(f"Not compared: counted with {versions}, the baseline with {baseline['versions']}.")
        return 0
    if failed:
        print(f"More than {MARGIN_PERCENT} % above the baseline, or without one. If it has to be: script/bench --update-baseline")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
