#!/usr/bin/env python3
"""What the agent costs while it does nothing, at its start, and for each request. Called by script/footprint, inside a device's
view; prints Markdown.

measure.py AGENT EMPTY COUNTER SECONDS ROUNDS [--peers]

Status 1: a goal was missed.
"""

import collections
import contextlib
import http.server
import mmap
import os
import re
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

DIRECTORY = "/dev/socket/location/mq/"
AGENT_SOCKETS = [DIRECTORY + "inet-agent-cs", DIRECTORY + "inet-agent-tdp-dl"]
LIMIT = 30  # seconds after which something is not just slow
REQUESTS = 200
SITES = 16384  # as in count_allocations.cpp
SITE = struct.Struct("<QQQ")


def wait_until(condition, what, pause=0.0002):
    end = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"measure: {what} did not happen within {LIMIT} s")
        time.sleep(pause)


@contextlib.contextmanager
def running(command, environment=None):
    """A process with nothing to say, ended by SIGTERM."""
    null = os.open(os.devnull, os.O_RDWR)
    pid = os.posix_spawn(command[0], command, environment or os.environ,
                         file_actions=[(os.POSIX_SPAWN_DUP2, null, number) for number in (0, 1, 2)])
    os.close(null)
    try:
        yield pid
    finally:
        os.kill(pid, signal.SIGTERM)
        deadline = time.monotonic() + 10
        while os.waitpid(pid, os.WNOHANG)[0] == 0:
            time.sleep(0.01)
            if time.monotonic() > deadline:
                os.kill(pid, signal.SIGKILL)
                deadline = float("inf")


def sockets_there():
    return all(os.path.exists(path) for path in AGENT_SOCKETS)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def memory(pid):
    """KiB that belong to this process alone: what only its end gives back, and pages of files that nobody else maps now."""
    sizes = dict(re.findall(r"^(\w+): +(\d+) kB", read(f"/proc/{pid}/smaps_rollup"), re.M))
    return int(sizes["Private_Dirty"]), int(sizes["Private_Clean"])


def activity(pid):
    """Of every thread: name, times that it was put on a processor, ticks of processor time."""
    threads = {}
    for thread in os.listdir(f"/proc/{pid}/task"):
        try:
            status = read(f"/proc/{pid}/task/{thread}/status")
            stat = read(f"/proc/{pid}/task/{thread}/stat").rpartition(")")[2].split()
        except FileNotFoundError:
            continue  # it has ended meanwhile
        switches = sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", status)))
        threads[thread] = (re.search(r"Name:\s+(.*)", status)[1], switches, int(stat[11]) + int(stat[12]))
    return threads


def settled(pid):
    """Waits until a second passes in which no thread has run."""
    def quiet():
        before = activity(pid)
        time.sleep(1)
        return activity(pid) == before
    wait_until(quiet, f"rest of process {pid}")


def peer_commands(directory):
    """Daemons that serve this machine's processes as well, each by itself and without anybody's configuration."""
    os.chmod(directory, 0o777)
    with socket.create_server(("127.0.0.1", 0)) as first, socket.create_server(("127.0.0.1", 0)) as second:
        ports = first.getsockname()[1], second.getsockname()[1]
    with open(directory + "/squid.conf", "w", encoding="utf-8") as file:
        file.write(f"http_port 127.0.0.1:{ports[0]}\ncache deny all\naccess_log none\ncache_log {directory}/squid.log\n"
                   f"pid_filename {directory}/squid.pid\ncoredump_dir {directory}\n")
    return {
        "dbus-daemon": ["--session", "--nofork", "--nopidfile", f"--address=unix:path={directory}/bus"],
        "aria2c": ["--no-conf", "--enable-rpc", f"--rpc-listen-port={ports[1]}", "--dir=" + directory, "--quiet"],
        "squid": ["-N", "-f", directory + "/squid.conf"],
    }


def measure_idle(agent, empty, seconds, with_peers):
    """Prints the table; all of them rest during the same minute."""
    with contextlib.ExitStack() as stack:
        directory = stack.enter_context(tempfile.TemporaryDirectory())
        processes = {"an empty program with its libraries": stack.enter_context(running([empty, "wait"]))}
        for name, arguments in peer_commands(directory).items() if with_peers else ():
            path = shutil.which(name)
            if path is not None:
                processes[f"{name} ({os.path.getsize(path) / 1024:.0f} KiB)"] = stack.enter_context(running([path] + arguments))
        ours = stack.enter_context(running([agent]))
        processes = {"inet-agent": ours, **processes}
        wait_until(sockets_there, "the agent's start")
        time.sleep(3 if with_peers else 0)
        settled(ours)
        before = {pid: activity(pid) for pid in processes.values()}
        time.sleep(seconds)
        print(f"| idle for {seconds} s | private memory | clean pages of files beside it | threads | wake-ups | processor time |\n"
              "|---|--:|--:|--:|--:|--:|")
        for name, pid in processes.items():
            after = activity(pid)
            new = ("", 0, 0)
            woken, ticks = (sum(now[i] - before[pid].get(thread, new)[i] for thread, now in after.items()) for i in (1, 2))
            private, clean = memory(pid)
            print(f"| {name} | {private / 1024:.2f} MiB | {clean / 1024:.2f} MiB | {len(after)} | {woken} | "
                  f"{ticks * 1000 // os.sysconf('SC_CLK_TCK')} ms |")
            if pid == ours:
                judge(private <= 2048, "private memory of at most 2 MiB")
                judge(woken == 0, "no wake-up")
        print(flush=True)


missed = []


def judge(reached, goal):
    if not reached:
        missed.append(goal)


def start_times(agent, empty, rounds):
    """Milliseconds: from the call that starts the program to both sockets; to the end of the empty one."""
    ours, others = [], []
    for _ in range(rounds):
        begin = time.perf_counter()
        with running([agent]) as pid:
            wait_until(sockets_there, "the agent's start")
            ours.append((time.perf_counter() - begin) * 1000)
            # Stopped before it has set up its signals it would end without removing the files.
            wait_until(lambda pid=pid: len(activity(pid)) >= 6, "the agent's threads")
        wait_until(lambda: not any(map(os.path.exists, AGENT_SOCKETS)), "the agent's stop")
        begin = time.perf_counter()
        os.waitpid(os.posix_spawn(empty, [empty], os.environ), 0)
        others.append((time.perf_counter() - begin) * 1000)
    return ours, others


class Small(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Length", "200")
        self.end_headers()
        self.wfile.write(b"." * 200)

    def log_message(self, *arguments):
        pass


def card(fields):
    out = b""
    for name, value in fields:
        key = name.encode() + b"\0"
        if isinstance(value, int):
            out += struct.pack("<HH", 12, len(key)) + key + struct.pack("<i", value)
        else:
            text = value.encode() + b"\0"
            out += struct.pack("<HH", 19, len(key)) + key + struct.pack("<I", len(text)) + text
    return struct.pack("<I", len(out) + 1) + out + b"\0"


class Requester:
    def __init__(self, url):
        self.url, self.name, self.last = url, "footprint", 0
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(DIRECTORY + self.name)
        self.socket.settimeout(LIMIT)

    def get(self):
        self.last += 1
        self.socket.sendto(card([("TO", "inet-agent-cs"), ("FROM", self.name), ("REQ", "GET"), ("TX-ID", self.last),
                                 ("URL", self.url), ("TIMEOUT-SEC", LIMIT)]), AGENT_SOCKETS[0])
        while b"HTTP-RESP-CODE\0" not in self.socket.recv(65536):
            pass  # announcements


def counts(file):
    return collections.Counter({address: count for address, count, _ in SITE.iter_unpack(bytes(file)) if count})


def load_addresses(pid):
    """Of every mapped file: name, first and last address."""
    objects = {}
    for line in read(f"/proc/{pid}/maps").splitlines():
        parts = line.split(maxsplit=5)
        if len(parts) == 6 and parts[5].startswith("/"):
            low, high = (int(number, 16) for number in parts[0].split("-"))
            first, last = objects.get(parts[5], (low, high))
            objects[parts[5]] = min(first, low), max(last, high)
    return objects


def print_allocations(agent, counter):
    with contextlib.ExitStack() as stack:
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Small)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        stack.callback(server.shutdown)
        file = stack.enter_context(tempfile.NamedTemporaryFile())
        file.truncate(SITES * SITE.size)
        table = mmap.mmap(file.fileno(), 0)
        pid = stack.enter_context(running([agent], dict(os.environ, LD_PRELOAD=counter, ALLOCATION_COUNTS=file.name)))
        wait_until(sockets_there, "the agent's start")
        requester = Requester(f"http://127.0.0.1:{server.server_port}/")
        for _ in range(10):  # connection, caches
            requester.get()
        settled(pid)
        before = counts(table)
        for _ in range(REQUESTS):
            requester.get()
        settled(pid)
        made = counts(table) - before
        objects = load_addresses(pid)
        private, _ = memory(pid)

    by_object, own = collections.Counter(), collections.Counter()
    for address, number in made.items():
        name = next((path for path, (low, high) in objects.items() if low <= address < high), "?")
        by_object[os.path.basename(name)] += number
        if name == agent:
            own[address - objects[name][0] - 1] += number
    print("| allocations by | for a request |\n|---|--:|")
    for name, number in by_object.most_common():
        if number >= REQUESTS / 10:
            print(f"| {name} | {number / REQUESTS:.1f} |")
    print(f"| together | {sum(by_object.values()) / REQUESTS:.1f} |")
    print(f"\nPrivate memory after {REQUESTS + 10} requests, the counter included: {private / 1024:.2f} MiB. "
          "The agent's own allocations:\n\n| times | in | at |\n|--:|---|---|")
    for address, number in own.most_common():
        if number >= REQUESTS / 10:
            print(f"| {number / REQUESTS:.1f} | {' | '.join(place(agent, address))} |")
    print(flush=True)


def place(agent, address):
    """The innermost of the agent's own functions at an address, without its parameters, and where it stands."""
    lines = subprocess.run(["addr2line", "-Cfie", agent, hex(address)], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    pairs = list(zip(lines[::2], lines[1::2]))
    function, file = next((pair for pair in pairs if "/src/" in pair[1]), pairs[0])
    function = function.replace("zv_loc_fw::", "").replace("(anonymous namespace)::", "")
    return f"`{re.sub(r'[(<].*', '', function)}`", re.sub(r".*/src/| \(.*", "", file)


def print_start(agent, empty, rounds):
    ours, others = start_times(agent, empty, rounds)
    beyond = statistics.median(a - b for a, b in zip(ours, others))
    judge(beyond <= 15, "a start within 15 ms of an empty program's")
    print("| start | median | best |\n|---|--:|--:|")
    print(f"| inet-agent, to both sockets | {statistics.median(ours):.1f} ms | {min(ours):.1f} ms |")
    print(f"| an empty program with its libraries, to its end | {statistics.median(others):.1f} ms | {min(others):.1f} ms |")
    print(f"| beyond it, round by round | {beyond:.1f} ms | |\n", flush=True)


def main():
    agent, empty, counter, seconds, rounds = sys.argv[1:6]
    measure_idle(agent, empty, int(seconds), "--peers" in sys.argv[6:])
    print_start(agent, empty, int(rounds))
    print_allocations(agent, counter)
    for goal in missed:
        print(f"measure: goal missed: {goal}", file=sys.stderr)
    sys.exit(1 if missed else 0)


main()
