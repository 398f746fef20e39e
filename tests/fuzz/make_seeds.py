#!/usr/bin/python3
"""Writes the seed corpus of the fuzz harnesses: valid packets of every kind each harness feeds,
plus the hostile shapes the lab uses (short, long, unterminated, stale). Run from anywhere; the
files land in corpus/<harness>/ beside this script and are checked in."""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
ANSWER_ID = 0x01       # discovery and force-IP harnesses: carry the command's request id
BROADCAST = 0x02       # discovery harness: to the wildcard endpoint
NEXT_ID = 0x04         # control-port harness: carry the n-th next request id (low bits)
CAMERA_MAC = bytes.fromhex("000f31000001")
PROBE_MAC = bytes.fromhex("02000000fa01")  # fz0 of the ARP harness: 02:00:00:00:fa:01


def ack_header(status, ack, length, ack_id=0):
    return struct.pack(">HHHH", status, ack, length, ack_id)


def text(value, width):
    return value.encode()[:width].ljust(width, b"\0")


def discovery_ack(ip=0xC0A80114, mask=0xFFFFFF00, model="M1", full=False, mac=CAMERA_MAC):
    fields = [("SIM-VENDOR", 32), (model, 32), ("1.0", 32), ("", 48), ("SN0001", 16), ("user", 16)]
    texts = b"".join((b"X" * w) if full else text(v, w) for v, w in fields)
    payload = (struct.pack(">HHI", 2, 0, 0x80000001) + b"\0\0" + mac + struct.pack(">II", 7, 5) +
               b"\0" * 12 + struct.pack(">I", ip) + b"\0" * 12 + struct.pack(">I", mask) + b"\0" * 12 +
               struct.pack(">I", 0) + texts)
    packet = ack_header(0, 0x0003, 248) + payload
    assert len(packet) == 256
    return packet


def record(data, flags):
    return struct.pack(">HB", len(data), flags) + data


def write(harness, name, data):
    folder = os.path.join(HERE, "corpus", harness)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def device_info():
    write("device_info", "valid", discovery_ack())
    write("device_info", "full_text", discovery_ack(full=True))
    write("device_info", "short", discovery_ack()[:100])
    write("device_info", "zero_address", discovery_ack(ip=0, mask=0))


def discovery():
    valid = discovery_ack()
    write("discovery", "unicast", record(valid, ANSWER_ID))
    write("discovery", "broadcast", record(valid, ANSWER_ID | BROADCAST))
    write("discovery", "hostile_mix",
          record(b"\x55" * 64, BROADCAST) + record(valid[:255], ANSWER_ID) +
          record(valid + b"\xAA" * 44, ANSWER_ID) + record(discovery_ack(full=True), ANSWER_ID | BROADCAST) +
          record(valid, 0) + record(valid, ANSWER_ID) + record(discovery_ack(ip=0x0A00054D), ANSWER_ID))
    write("discovery", "two_cameras",
          record(valid, ANSWER_ID) + record(discovery_ack(mac=bytes.fromhex("000f31000002")), ANSWER_ID | BROADCAST))


def control(operation, amount, seed, retries, *records):
    return struct.pack(">BHBB", operation, amount, seed, retries) + b"".join(records)


def ctrl_port():
    read_ccp = lambda status, value=0, nth=0: record(ack_header(status, 0x0081, 4) + struct.pack(">I", value), NEXT_ID | nth)
    write_ack = lambda code, index, status=0, nth=0: record(ack_header(status, code, 4) + struct.pack(">HH", 0, index),
                                                             NEXT_ID | nth)
    mem_ack = lambda count, nth: record(ack_header(0, 0x0085, 4 + count) + struct.pack(">I", 0x48) + b"\x41" * count,
                                        NEXT_ID | nth)
    write("ctrl_port", "access_free", control(0, 0, 0, 0, read_ccp(0, 0)))
    write("ctrl_port", "access_denied", control(0, 0, 0, 0, read_ccp(0x8006)))
    write("ctrl_port", "access_busy", control(0, 0, 0, 0, read_ccp(0xC000)))
    write("ctrl_port", "readreg_two", control(1, 1, 0, 0, record(ack_header(0, 0x0081, 8) + b"\0\0\0\1\0\0\0\2", NEXT_ID)))
    write("ctrl_port", "readreg_stale_then_good",
          control(1, 0, 0, 2, read_ccp(0, 1, 3), record(b"\0\0\0\x81", NEXT_ID), read_ccp(0, 2)))
    write("ctrl_port", "writereg", control(2, 0, 0, 0, write_ack(0x0083, 1)))
    write("ctrl_port", "readmem_1300", control(3, 1299, 0, 0, mem_ack(512, 0), mem_ack(512, 1), mem_ack(276, 2)))
    write("ctrl_port", "readmem_short_block", control(3, 1299, 0, 0, mem_ack(100, 0), mem_ack(0, 1)))
    write("ctrl_port", "writemem_600", control(4, 599, 0, 0, write_ack(0x0087, 512, 0, 0), write_ack(0x0087, 88, 0, 1)))
    write("ctrl_port", "privilege_denied", control(5, 0, 1, 0, write_ack(0x0083, 0, 0x8006)))


def forceip_ex():
    ok = ack_header(0, 0x9001, 0)
    write("forceip_ex", "accepted", record(ok, ANSWER_ID))
    write("forceip_ex", "forbidden", record(ack_header(0x8002, 0x9001, 0), ANSWER_ID))
    write("forceip_ex", "status_8001", record(ack_header(0x8001, 0x9001, 0), ANSWER_ID) * 3)
    write("forceip_ex", "wrong_code", record(ack_header(0, 0x0005, 0), ANSWER_ID))
    write("forceip_ex", "junk_then_accepted", record(b"\xFF" * 8, 0) + record(b"", 0) + record(ok, ANSWER_ID))


def arp_frame(operation, sender_ip, target_mac):
    return (b"\xFF" * 6 + bytes.fromhex("02000000fa02") + b"\x80\x35" + struct.pack(">HHBBH", 1, 0x0800, 6, 4, operation) +
            bytes.fromhex("02000000fa02") + sender_ip + target_mac + bytes(4) + bytes(18))


def arp():
    write("arp", "reply_other_host", b"\0" + arp_frame(2, bytes([10, 98, 0, 20]), PROBE_MAC))
    write("arp", "reply_matching", b"\1" + arp_frame(2, bytes([7, 0, 0, 0]), PROBE_MAC))
    write("arp", "request", b"\1" + arp_frame(1, bytes([7, 0, 0, 0]), PROBE_MAC))
    write("arp", "header_only", b"\0" + arp_frame(2, bytes(4), PROBE_MAC)[:14])


if __name__ == "__main__":
    device_info()
    discovery()
    ctrl_port()
    forceip_ex()
    arp()
