#!/usr/bin/python3
"""Stands in for the tool's watch mode in the runner's self-test: prints an "appeared" event for
every ARP announcement it hears, a "moved" event once $GVLAB_RECORD_DIR/moved exists, and ends with
status 0 on SIGTERM (with --slow-exit two seconds late). Other arguments are ignored."""

import json
import os
import select
import signal
import socket
import sys
import time

ETH_P_ARP = 0x0806


def now_text():
    ms = int(time.time() * 1000)
    return time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(ms // 1000)) + f".{ms % 1000:03d}Z"


def say(event, interface, mac, ip):
    print(json.dumps({"time": now_text(), "event": event, "interface": interface, "mac": mac, "ip": ip}), flush=True)


def announcement(frame):
    """(MAC text, address) of an RFC 5227 announcement, else None."""
    if len(frame) < 42 or frame[12:14] != b"\x08\x06" or frame[20:22] != b"\x00\x01" or frame[28:32] != frame[38:42]:
        return None
    return "-".join(f"{b:02X}" for b in frame[22:28]), socket.inet_ntoa(frame[28:32])


def main():
    slow = "--slow-exit" in sys.argv
    signal.signal(signal.SIGTERM, lambda *_: (time.sleep(2 if slow else 0), sys.exit(0)))
    flag = os.path.join(os.environ["GVLAB_RECORD_DIR"], "moved")
    arp = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ARP))
    moved = False
    while True:
        if select.select([arp], [], [], 0.05)[0]:
            frame, address = arp.recvfrom(100)
            seen = announcement(frame)
            if seen:
                say("appeared", address[0], *seen)
        if not moved and os.path.exists(flag):
            moved = True
            say("moved", "eth0", "00-0F-31-77-00-01", "192.168.1.11")


if __name__ == "__main__":
    main()
