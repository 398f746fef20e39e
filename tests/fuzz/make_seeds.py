#!/usr/bin/python3
"""Writes the seed corpus of the fuzz targets: well-formed packets of every kind each target reads,
plus the hostile shapes the lab uses (short, long, unterminated, stale). The files land in
corpus/<target>/ beside this script and are checked in."""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
PROBE_MAC = bytes.fromhex("02000000fa01")  # the ARP target's own MAC


def ack(status, code, ack_id, payload=b""):
    return struct.pack(">HHHH", status, code, len(payload), ack_id) + payload


def discovery_ack(ack_id=7, full=False):
    fields = [("SIM-VENDOR", 32), ("M1", 32), ("1.0", 32), ("", 48), ("SN0001", 16), ("user", 16)]
    texts = b"".join(b"X" * w if full else v.encode().ljust(w, b"\0") for v, w in fields)
    payload = (struct.pack(">HHI", 2, 0, 0x80000001) + b"\0\0" + bytes.fromhex("000f31000001") +
               struct.pack(">II", 7, 5) + bytes(12) + struct.pack(">I", 0xC0A80114) + bytes(12) +
               struct.pack(">I", 0xFFFFFF00) + bytes(16) + texts)
    return ack(0, 0x0003, ack_id, payload)


def arp_frame(operation, sender_ip):
    return (b"\xFF" * 6 + bytes.fromhex("02000000fa02") + b"\x80\x35" + struct.pack(">HHBBH", 1, 0x0800, 6, 4, operation)
            + bytes.fromhex("02000000fa02") + sender_ip + PROBE_MAC + bytes(22))


def udp_frame(payload, options=b""):
    """IPv4 (checksummed) and UDP from 10.77.0.2:3956 to 10.77.0.1:59001 around payload."""
    ihl = 5 + len(options) // 4
    total = ihl * 4 + 8 + len(payload)
    header = struct.pack(">BBHHHBBH4s4s", 0x40 | ihl, 0, total, 1, 0, 64, 17, 0, bytes([10, 77, 0, 2]),
                         bytes([10, 77, 0, 1])) + options
    words = sum(struct.unpack(f">{len(header) // 2}H", header))
    while words > 0xFFFF:
        words = (words & 0xFFFF) + (words >> 16)
    header = header[:10] + struct.pack(">H", ~words & 0xFFFF) + header[12:]
    return header + struct.pack(">HHHH", 3956, 59001, 8 + len(payload), 0) + payload


SEEDS = {
    "device_info": {"valid": b"\1" + discovery_ack(), "full_text": b"\3" + discovery_ack(full=True),
                    "unknown_id": b"\4" + discovery_ack()[:100]},
    "discovery": {"valid": b"\0\7" + discovery_ack(), "long": b"\0\7" + discovery_ack() + b"\xAA" * 44,
                  "short": b"\0\7" + discovery_ack()[:255], "stale": b"\0\6" + discovery_ack()},
    "ctrl_port": {"readreg_two": b"\0\0\7" + ack(0, 0x0081, 7, b"\0\0\0\1\0\0\0\2"),
                  "access_denied": b"\0\0\7" + ack(0x8006, 0x0081, 7, bytes(4)),
                  "writereg": b"\1\0\7" + ack(0, 0x0083, 7, b"\0\0\0\1"),
                  "readmem": b"\2\0\7" + ack(0, 0x0085, 7, b"\0\0\0\x48" + b"A" * 512),
                  "writemem": b"\3\0\7" + ack(0, 0x0087, 7, b"\0\0\2\0"), "short": b"\0\0\7\0\0\0\x81"},
    "forceip_ex": {"accepted_id_0": b"\0\0\x90\x01\0\0\0\0",
                   "fields": b"\x12\x34\0\x0f\x31\0\0\1\0\0\0\5" + bytes(8) + b"\xc0\xa8\1\x0b" + bytes(24)},
    "arp": {"reply_matching": bytes([7, 0, 0, 0]) + arp_frame(2, bytes([7, 0, 0, 0])),
            "reply_other_host": bytes([10, 98, 0, 1]) + arp_frame(2, bytes([10, 98, 0, 20])),
            "request": bytes([7, 0, 0, 0]) + arp_frame(1, bytes([7, 0, 0, 0]))},
    "link_frame": {"discovery_ack": udp_frame(discovery_ack()), "padded": udp_frame(ack(0, 0x9001, 7)) + bytes(6),
                   "options": udp_frame(ack(0, 0x0081, 7, bytes(4)), options=bytes(4))},
}

if __name__ == "__main__":
    for target, seeds in SEEDS.items():
        os.makedirs(os.path.join(HERE, "corpus", target), exist_ok=True)
        for name, data in seeds.items():
            with open(os.path.join(HERE, "corpus", target, name), "wb") as f:
                f.write(data)
