#!/usr/bin/python3
"""Sends forged ARP announcements, each from a random MAC and address, on one interface: at most
COUNT frames within SECONDS. A stand-in for a hostile or broken device on a camera link.

usage: arp_flood.py INTERFACE COUNT SECONDS"""

import os
import socket
import struct
import sys
import time


def announcement(mac, ip):
    """RFC 5227: a broadcast request whose sender and target address are the sender's own."""
    arp = struct.pack("!HHBBH6s4s6s4s", 1, 0x0800, 6, 4, 1, mac, ip, b"\0" * 6, ip)
    return b"\xff" * 6 + mac + b"\x08\x06" + arp


def main(argv):
    interface, count, seconds = argv[0], int(argv[1]), float(argv[2])
    link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    link.bind((interface, 0))
    end, sent = time.monotonic() + seconds, 0
    while sent < count and time.monotonic() < end:
        random = os.urandom(8)
        # locally administered unicast MACs, addresses in the link's subnet
        mac, ip = bytes([random[0] & 0xFC | 0x02]) + random[1:6], bytes([192, 168, 1, random[6] | 1])
        try:
            link.send(announcement(mac, ip))
            sent += 1
        except BlockingIOError:
            time.sleep(0.001)
        if sent % 100 == 0:
            time.sleep(max(0.0, sent * seconds / count - (seconds - (end - time.monotonic()))))
    print(f"arp_flood: {sent} announcements sent", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
