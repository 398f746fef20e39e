#!/usr/bin/python3
"""Self-test of the camera lab: it comes up and goes down cleanly, Aravis and
tshark accept the simulated cameras, and a small independent GVCP client gets
the answers the tool relies on. The client half runs inside the lab's host namespace (`--inside`)."""

import json
import os
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
LAB = os.path.join(REPO, "tools", "lab.py")
PYTHON = "/usr/bin/python3"

ETH0, CAM1 = "192.168.10.5", "172.16.0.5"
IN, OUT, REFUSE = "00-0F-31-10-00-01", "00-0F-31-10-00-02", "00-0F-31-10-00-03"
IN2, ZERO = "00-0F-31-20-00-01", "00-0F-31-20-00-02"
NEW_IP = "192.168.10.11"


# --- client half: a throwaway GVCP host, written apart from the simulator ----
class Host:
    """Sockets of one local port, as the tool opens them: interface address and wildcard."""

    def __init__(self, ip, port):
        self.socks = []
        for address in (ip, ""):
            s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            s.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            s.bind((address, port))
            self.socks.append(s)

    def send(self, packet, to="255.255.255.255"):
        self.socks[0].sendto(packet, (to, 3956))

    def collect(self, seconds):
        """(datagram, source address, 'unicast' or 'broadcast') until quiet for `seconds`."""
        got = []
        while True:
            ready, _, _ = select.select(self.socks, [], [], seconds)
            if not ready:
                return got
            for s in ready:
                data, source = s.recvfrom(2048)
                got.append((data, source[0], "unicast" if s is self.socks[0] else "broadcast"))

    def close(self):
        for s in self.socks:
            s.close()


def command(code, req_id, payload=b"", flags=0x01):
    return struct.pack("!BBHHH", 0x42, flags, code, len(payload), req_id) + payload


def mac_raw(text):
    return bytes.fromhex(text.replace("-", ""))


def discover(ip, req_id, to="255.255.255.255"):
    host = Host(ip, 59001)
    host.send(command(0x0002, req_id, flags=0x11), to)
    acks = {}
    for data, _, how in host.collect(0.3):
        status, ack, length, ack_id = struct.unpack_from("!HHHH", data)
        assert (len(data), status, ack, length, ack_id) == (256, 0, 3, 248, req_id), data[:8].hex()
        mac = "-".join(f"{b:02X}" for b in data[18:24])
        acks[mac] = (socket.inet_ntoa(data[44:48]), data[112:144].rstrip(b"\0").decode(), how)
    host.close()
    return acks


def force_ip_ex(mac, ip, req_id):
    payload = bytearray(76)
    payload[2:8] = mac_raw(mac)
    struct.pack_into("!I", payload, 8, 5)
    for offset, text in ((24, ip), (40, "255.255.255.0"), (56, "0.0.0.0")):
        payload[offset:offset + 4] = socket.inet_aton(text)
    host = Host(ETH0, 59003)
    host.send(command(0x9000, req_id, bytes(payload), flags=0x11))
    answers = [(struct.unpack_from("!HHHH", data), how) for data, _, how in host.collect(0.3)]
    host.close()
    return answers


def check_discovery_rules():
    """Unicast inside the subnet, broadcast outside; a zero address still answers."""
    assert discover(ETH0, 0x1234) == {
        IN: ("192.168.10.20", "SIM-IN", "unicast"), REFUSE: ("192.168.10.21", "SIM-REFUSE", "unicast"),
        OUT: ("10.20.0.7", "SIM-OUT", "broadcast")}
    assert discover(CAM1, 0x2345) == {
        IN2: ("172.16.1.30", "SIM-IN", "unicast"), ZERO: ("0.0.0.0", "SIM-ZERO", "broadcast")}


def check_force_ip():
    """0x9000 is answered by broadcast; a refusing camera says 0x8002; FORCEIP 0 restarts."""
    cases = [(OUT, 0x0BCD, 0x0000), (REFUSE, 0x0BCE, 0x8002)]
    for mac, req_id, status in cases:
        assert force_ip_ex(mac, NEW_IP, req_id) == [((status, 0x9001, 0, req_id), "broadcast")], mac
    restart = bytearray(56)
    restart[2:8] = mac_raw(OUT)
    host = Host(ETH0, 59002)
    host.send(command(0x0004, 0x0BCF, bytes(restart)))
    host.close()
    time.sleep(0.1)
    assert OUT not in discover(ETH0, 0x1235), "still answers while restarting"
    time.sleep(0.4)
    assert discover(ETH0, 0x1236)[OUT] == (NEW_IP, "SIM-OUT", "unicast")


def check_registers():
    """Register and memory access over unicast (the host ARPs for the camera first)."""
    cases = [  # code, payload, expected ack code, expected ack payload
        (0x0080, struct.pack("!II", 0x0A00, 0x0024), 0x0081, bytes(4) + socket.inet_aton("192.168.10.20")),
        (0x0082, struct.pack("!II", 0x0A00, 2), 0x0083, struct.pack("!HH", 0, 1)),
        (0x0080, struct.pack("!I", 0x0A00), 0x0081, struct.pack("!I", 2)),
        (0x0084, struct.pack("!IHH", 0x0068, 0, 8), 0x0085, struct.pack("!I", 0x0068) + b"SIM-IN\0\0"),
        (0x0086, struct.pack("!I", 0x00E8) + b"renamed\0", 0x0087, struct.pack("!HH", 0, 8)),
    ]
    host = Host(ETH0, 59001)
    for req_id, (code, payload, ack_code, body) in enumerate(cases, start=0x700):
        host.send(command(code, req_id, payload), to="192.168.10.20")
        (data, source, how), = host.collect(0.3)
        assert (source, how) == ("192.168.10.20", "unicast")
        assert data == struct.pack("!HHHH", 0, ack_code, len(body), req_id) + body, (hex(code), data.hex())
    host.close()


def check_host():
    """Stock settings, strict filtering only where the scenario asks (SIM-OUT passes by the gateway)."""
    def conf(name, key):
        with open(f"/proc/sys/net/ipv4/conf/{name}/{key}", encoding="ascii") as f:
            return int(f.read())
    names = ("all", "default", "eth0", "cam1")
    assert [conf(n, "rp_filter") for n in names] == [2, 2, 1, 2]
    assert [conf(n, "accept_local") for n in ("all", "eth0")] == [0, 0]


def check_aravis():
    listing = subprocess.run(["arv-tool-0.8"], capture_output=True, text=True, timeout=30).stdout
    for serial in ("IN0001", "REF0003", "IN2001"):
        assert serial in listing, listing


def inside():
    """Runs in the lab's host namespace, with tshark listening on eth0."""
    capture = sys.argv[2]
    tshark = subprocess.Popen(["tshark", "-i", "eth0", "-w", capture], stderr=subprocess.PIPE, text=True)
    while "Capturing on" not in tshark.stderr.readline():
        pass
    try:
        for check in (check_host, check_aravis, check_discovery_rules, check_registers, check_force_ip):
            check()
            print("ok", check.__name__, flush=True)
    finally:
        time.sleep(0.2)
        tshark.send_signal(signal.SIGINT)
        tshark.wait()


# --- outer half ----------------------------------------------------------------
def lab(scenario, *extra, timeout=120, interrupt_after=None):
    """Runs the lab; returns (exit code, stdout, stderr, namespaces still present)."""
    proc = subprocess.Popen([PYTHON, LAB, os.path.join(HERE, scenario), *extra],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if interrupt_after:
        time.sleep(interrupt_after)
        proc.send_signal(signal.SIGINT)
    out, err = proc.communicate(timeout=timeout)
    sys.stderr.write(err)
    run_id = re.search(r"host namespace (gvlab\w+)h", err)
    left = subprocess.run(["ip", "netns", "list"], capture_output=True, text=True).stdout
    assert run_id, err
    leftovers = [ns for ns in left.split() if ns.startswith(run_id.group(1))]
    return proc.returncode, out, err, leftovers


def test_lifecycle():
    """Timeouts, signals and failures have their exit codes and leave nothing behind."""
    work = tempfile.mkdtemp()
    bad, bad_sysctl = os.path.join(work, "bad.json"), os.path.join(work, "sysctl.json")
    for path, scenario in ((bad, {"interfaces": [  # the simulator of the second link refuses it
            {"name": "eth0"}, {"name": "eth1", "cameras": [{"mac": "1:2:3:4:5:6", "colour": 1}]}]}),
            (bad_sysctl, {"interfaces": [{"name": "eth0"}], "host_sysctls": {"net/ipv4/conf/all/no_such_key": 1}})):
        with open(path, "w", encoding="utf-8") as f:
            json.dump(scenario, f)
    cases = [  # scenario, extra arguments, interrupt after, expected exit code
        ("lab_selftest.json", ("--timeout", "1", "--", "sleep", "30"), None, 124),
        ("lab_selftest.json", ("--", "sleep", "30"), 1.5, 130),
        ("lab_selftest.json", ("--", "/nonexistent/command"), None, 1),
        (bad, ("--", "true"), None, 125),
        (bad_sysctl, ("--", "true"), None, 125),
    ]
    for scenario, extra, interrupt_after, expected in cases:
        code, _, err, leftovers = lab(scenario, *extra, interrupt_after=interrupt_after)
        assert code == expected and not leftovers, (extra, code, leftovers)
        assert "down in" in err
    shutil.rmtree(work)


def test_exchanges():
    with tempfile.TemporaryDirectory() as tmp:
        capture = os.path.join(tmp, "gvcp.pcapng")
        os.chmod(tmp, 0o777)  # dumpcap may drop privileges before writing
        code, out, _, leftovers = lab("lab_selftest.json", "--", PYTHON, os.path.abspath(__file__), "--inside", capture)
        print(out, end="")
        assert code == 0 and not leftovers, (code, leftovers)
        check_tshark(capture)


def check_tshark(capture):
    def count(display_filter):
        decode = [a for port in (59001, 59002, 59003) for a in ("-d", f"udp.port=={port},gvcp")]
        out = subprocess.run(["tshark", "-r", capture, *decode, "-Y", display_filter],
                             capture_output=True, text=True).stdout
        return len(out.splitlines())
    assert count("udp && (_ws.malformed || _ws.expert.severity >= warning)") == 0
    expected = {"gvcp.ack == 0x0003": 8, "gvcp.ack == 0x0005": 1, "gvcp.ack == 0x0081": 2,
                "gvcp.ack == 0x0083": 1, "gvcp.ack == 0x0085": 1, "gvcp.ack == 0x0087": 1,
                # tshark has no decoder for the vendor's 0x9001: count the bare headers
                "udp.srcport == 3956 && udp.dstport == 59003 && udp.length == 16": 2}
    for display_filter, at_least in expected.items():
        assert count(display_filter) >= at_least, display_filter


def main():
    missing = [tool for tool in ("ip", "arv-tool-0.8", "tshark") if not shutil.which(tool)]
    if missing or os.geteuid():
        sys.exit(f"needs root, ip, arv-tool-0.8 and tshark (Debian: iproute2 aravis-tools-cli "
                 f"tshark); missing: {missing or 'root'}")
    if sys.argv[1:2] == ["--inside"]:
        return inside()
    tests = [test_lifecycle, test_exchanges]
    for test in tests:
        test()
        print("passed", test.__name__, flush=True)
    print(f"{len(tests)} passed, 0 failed")


if __name__ == "__main__":
    main()
