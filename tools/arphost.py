#!/usr/bin/python3
"""A lab host that answers ARP requests for its address late, as a slow PLC or a busy PC does.

Replies as Linux does, by unicast to the asker, also to probes (sender 0.0.0.0), `--delay-ms`
after each request. Prints "ready" once it listens; runs until it is stopped.

usage: arphost.py --iface NAME --mac MAC --address IP --delay-ms N
"""

import argparse
import heapq
import select
import socket
import struct
import time

ETH_P_ARP = 0x0806
ETH = struct.Struct("!6s6sH")
ARP = struct.Struct("!HHBBH6s4s6s4s")
MIN_FRAME = 60


def reply(mac, address, request):
    """The answer to one ARP request for `address`, or None when the frame asks for another one."""
    if len(request) < ETH.size + ARP.size:
        return None
    _, _, ethertype = ETH.unpack_from(request)
    htype, ptype, hlen, plen, op, sha, spa, _, tpa = ARP.unpack_from(request, ETH.size)
    if (ethertype, htype, ptype, hlen, plen, op) != (ETH_P_ARP, 1, 0x0800, 6, 4, 1) or tpa != address:
        return None
    arp = ARP.pack(1, 0x0800, 6, 4, 2, mac, address, sha, spa)
    return (ETH.pack(sha, mac, ETH_P_ARP) + arp).ljust(MIN_FRAME, b"\0")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--iface", required=True)
    parser.add_argument("--mac", required=True)
    parser.add_argument("--address", required=True)
    parser.add_argument("--delay-ms", type=float, required=True)
    args = parser.parse_args()
    mac = bytes.fromhex(args.mac.replace(":", "").replace("-", ""))
    address = socket.inet_aton(args.address)
    sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ARP))
    sock.bind((args.iface, ETH_P_ARP))
    print(f"ready {args.address} answers after {args.delay_ms:g} ms", flush=True)
    due = []  # (time, sequence, frame)
    sequence = 0
    while True:
        wait = max(0.0, due[0][0] - time.monotonic()) if due else None
        if select.select([sock], [], [], wait)[0]:
            frame, meta = sock.recvfrom(2048)
            answer = reply(mac, address, frame) if meta[2] != socket.PACKET_OUTGOING else None
            if answer:
                sequence += 1
                heapq.heappush(due, (time.monotonic() + args.delay_ms / 1000, sequence, answer))
        while due and due[0][0] <= time.monotonic():
            sock.send(heapq.heappop(due)[2])


if __name__ == "__main__":
    main()
