#!/usr/bin/python3
"""Runs one command inside a camera lab's host namespace and prints one JSON line about it.

What it reports: the command's wall time, CPU time (user, sys, from wait4), peak resident
memory (GNU time's, see run_command), its standard output with the arrival time of every chunk, the ARP probe
frames sent while it ran (destination FF-FF-FF-FF-FF-00), and the namespace's UDP
counters and receive queues sampled every few milliseconds. Times are Unix seconds so
that they line up with the simulator's record.

usage: measure.py [--poll-ms N] [--env NAME=VALUE ...] -- COMMAND ARGS...
"""

import argparse
import ctypes
import json
import os
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

ETH_P_ALL = 0x0003
SO_ATTACH_FILTER = 26
PACKET_OUTGOING = 4
GNU_TIME = "/usr/bin/time"
GVCP_HOST_PORTS = {59001, 59002, 59003, 59004}

# Classic BPF: ARP frames whose destination is FF-FF-FF-FF-FF-00, the probe's own mark.
PROBE_FILTER = [
    (0x28, 0, 0, 12),          # ldh [12]          ethertype
    (0x15, 0, 5, 0x0806),      # jeq ARP
    (0x20, 0, 0, 0),           # ld  [0]           destination bytes 0-3
    (0x15, 0, 3, 0xFFFFFFFF),
    (0x28, 0, 0, 4),           # ldh [4]           destination bytes 4-5
    (0x15, 0, 1, 0xFF00),
    (0x06, 0, 0, 0xFFFF),      # accept
    (0x06, 0, 0, 0),           # drop
]


def refuse_outside_lab():
    """This wrapper starts the tool: only ever inside the lab's own host namespace."""
    ns = os.environ.get("GVLAB_HOST_NS", "")
    try:
        inside = ns and os.stat("/proc/self/ns/net").st_ino == os.stat(f"/run/netns/{ns}").st_ino
    except OSError:
        inside = False
    if not inside:
        sys.exit("measure.py: not inside a lab host namespace (run it through tools/lab.py)")


def udp_counters():
    with open("/proc/net/snmp", encoding="ascii") as f:
        rows = [line.split() for line in f if line.startswith("Udp:")]
    return dict(zip(rows[0][1:], map(int, rows[1][1:])))


def udp_queue_bytes():
    """Largest receive queue among the sockets on the GVCP host ports, in bytes."""
    largest = 0
    with open("/proc/net/udp", encoding="ascii") as f:
        next(f)
        for line in f:
            fields = line.split()
            port = int(fields[1].split(":")[1], 16)
            if port in GVCP_HOST_PORTS:
                largest = max(largest, int(fields[4].split(":")[1], 16))
    return largest


class Sampler(threading.Thread):
    """UDP counters and queue depth over time; a row is kept only when something changed."""

    def __init__(self, interval):
        super().__init__(daemon=True)
        self.interval = interval
        self.rows = []
        self.done = threading.Event()

    def sample(self):
        counters = udp_counters()
        row = [round(time.time(), 4), counters["InDatagrams"], counters["RcvbufErrors"],
               counters["NoPorts"], udp_queue_bytes()]
        if not self.rows or row[1:] != self.rows[-1][1:]:
            self.rows.append(row)

    def run(self):
        while not self.done.is_set():
            self.sample()
            self.done.wait(self.interval)

    def finish(self):
        self.done.set()
        self.join()
        self.sample()


class ProbeSniffer(threading.Thread):
    """Time, interface and claimed address of every ARP probe frame the tool sends."""

    def __init__(self):
        super().__init__(daemon=True)
        self.probes = []
        self.done = threading.Event()
        program = b"".join(struct.pack("HBBI", *insn) for insn in PROBE_FILTER)
        self.program = ctypes.create_string_buffer(program)
        fprog = struct.pack("HL", len(PROBE_FILTER), ctypes.addressof(self.program))
        self.sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        self.sock.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER, fprog)
        self.discard_unfiltered()
        self.sock.settimeout(0.05)

    def discard_unfiltered(self):
        """Frames queued before the filter was attached; the command has not started yet."""
        self.sock.setblocking(False)
        try:
            while True:
                self.sock.recv(128)
        except BlockingIOError:
            pass

    def run(self):
        while not self.done.is_set():
            try:
                frame, address = self.sock.recvfrom(128)
            except socket.timeout:
                continue
            if address[2] == PACKET_OUTGOING and len(frame) >= 32:
                self.probes.append([round(time.time(), 4), address[0], socket.inet_ntoa(frame[28:32])])

    def finish(self):
        self.done.set()
        self.join()
        self.sock.close()


def run_command(argv, env):
    """Output chunks with their arrival times, then wall time and rusage from wait4.

    A process forked from this one keeps its peak resident set across exec, so wait4's maxrss
    would be Python's. GNU time, a small process, forks the command and reports the command's own.
    CPU times include GNU time's, a millisecond or so."""
    with tempfile.NamedTemporaryFile("r", prefix="aic-measure-") as peak:
        started = time.time()
        child = subprocess.Popen([GNU_TIME, "-f", "%M", "-o", peak.name, "--", *argv],
                                 stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, env=env)
        chunks = []
        while True:
            data = os.read(child.stdout.fileno(), 65536)
            if not data:
                break
            chunks.append([round(time.time(), 4), data.decode("utf-8", "replace")])
        _, status, usage = os.wait4(child.pid, 0)
        ended = time.time()
        child.stdout.close()
        maxrss = int(peak.read().split()[-1])  # after a "Command exited ..." line, if any
    return {"start": round(started, 4), "end": round(ended, 4), "wall_s": round(ended - started, 4),
            "exit": os.waitstatus_to_exitcode(status), "user_s": usage.ru_utime,
            "sys_s": usage.ru_stime, "maxrss_kib": maxrss, "chunks": chunks}


def main():
    argv = sys.argv[1:]
    split = argv.index("--") if "--" in argv else len(argv)
    parser = argparse.ArgumentParser(usage="measure.py [--poll-ms N] [--env NAME=VALUE ...] -- COMMAND ARGS...")
    parser.add_argument("--poll-ms", type=float, default=5.0, help="sampling interval of the counters")
    parser.add_argument("--env", action="append", default=[], help="set for the command only")
    args = parser.parse_args(argv[:split])
    env = dict(os.environ, **dict(item.split("=", 1) for item in args.env))
    command = argv[split + 1:]
    if not command:
        parser.error("no command")
    refuse_outside_lab()
    with open("/proc/loadavg", encoding="ascii") as f:
        load1 = float(f.read().split()[0])  # other work on the machine skews every figure
    sampler, sniffer = Sampler(args.poll_ms / 1000.0), ProbeSniffer()
    sampler.sample()
    sampler.start()
    sniffer.start()
    try:
        result = run_command(command, env)
    finally:
        sniffer.finish()
        sampler.finish()
    result.update(probes=sniffer.probes, udp=sampler.rows, load1=load1,
                  rmem_default=int(open("/proc/sys/net/core/rmem_default", encoding="ascii").read()))
    print(json.dumps(result), flush=True)


if __name__ == "__main__":
    main()
