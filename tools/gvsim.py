#!/usr/bin/python3
"""Simulated GigE Vision cameras on one Ethernet link.

One process serves every camera of a link through a raw packet socket: it
parses and builds Ethernet, ARP, IPv4 and UDP itself, answers GVCP as the
devices would (with per-camera faults) and logs every command as JSON lines.
Standard library only, and on purpose no code shared with the C++ tool.
A control pipe (--control) takes "plug MAC", "unplug MAC" and "cycle MAC" lines while it runs.
"""

import argparse
import heapq
import json
import os
import random
import select
import signal
import socket
import struct
import sys
import time

ETH_P_ALL = 0x0003
ETH_P_IP = 0x0800
ETH_P_ARP = 0x0806
PACKET_OUTGOING = 4
SO_SNDBUFFORCE, SO_RCVBUFFORCE = 32, 33  # Linux; not in Python 3.11's socket module
BROADCAST_MAC = b"\xff" * 6
LIMITED_BROADCAST = 0xFFFFFFFF
GVCP_PORT = 3956
GVCP_KEY = 0x42
FLAG_ACK_REQUIRED = 0x01
FLAG_BROADCAST_ACK = 0x10
MIN_FRAME = 60
# RFC 5227: a device that has taken an address announces it twice, two seconds apart.
ANNOUNCE_NUM = 2
ANNOUNCE_INTERVAL_S = 2.0

# --- wire layouts (all big-endian) -------------------------------------------
ETH = struct.Struct("!6s6sH")
ARP = struct.Struct("!HHBBH6s4s6s4s")
IPV4 = struct.Struct("!BBHHHBBH4s4s")
UDP = struct.Struct("!HHHH")
GVCP_CMD = struct.Struct("!BBHHH")          # key, flags, command, length, request id
GVCP_ACK = struct.Struct("!HHHH")           # status, acknowledge, length, acknowledge id
DISCOVERY_ACK = struct.Struct("!HHI2s6sII12sI12sI12sI32s32s32s48s16s16s")
FORCEIP = struct.Struct("!2s6s12sI12sI12sI")
FORCEIP_EX = struct.Struct("!2s6sII8sI12sI12sI16s")
MEM_REQ = struct.Struct("!IHH")             # READMEM: address, reserved, count
INDEX_ACK = struct.Struct("!HH")            # WRITEREG/WRITEMEM ack: reserved, index
assert (ETH.size, ARP.size, IPV4.size, UDP.size) == (14, 28, 20, 8)
assert DISCOVERY_ACK.size == 248 and FORCEIP.size == 56 and FORCEIP_EX.size == 76

COMMANDS = {
    0x0002: "discovery", 0x0004: "forceip", 0x0080: "readreg", 0x0082: "writereg",
    0x0084: "readmem", 0x0086: "writemem", 0x9000: "forceip_ex",
}
CODES = {name: code for code, name in COMMANDS.items()}
ACK_OF = {code: code + 1 for code in COMMANDS}

STATUS_OK = 0x0000
STATUS_NOT_IMPLEMENTED = 0x8001
STATUS_INVALID_PARAMETER = 0x8002
STATUS_INVALID_ADDRESS = 0x8003
STATUS_WRITE_PROTECT = 0x8004
STATUS_BAD_ALIGNMENT = 0x8005
STATUS_ACCESS_DENIED = 0x8006
MAX_MEM_BLOCK = 536

# --- bootstrap register map ---------------------------------------------------
REG_VERSION = 0x0000
REG_DEVICE_MODE = 0x0004
REG_MAC_HIGH = 0x0008
REG_MAC_LOW = 0x000C
REG_IP_CONFIG_OPTIONS = 0x0010
REG_IP_CONFIG_CURRENT = 0x0014
REG_CURRENT_IP = 0x0024
REG_CURRENT_MASK = 0x0034
REG_CURRENT_GATEWAY = 0x0044
TEXT_REGS = {  # address: (attribute, width)
    0x0048: ("vendor", 32), 0x0068: ("model", 32), 0x0088: ("version", 32),
    0x00A8: ("manufacturer_info", 48), 0x00D8: ("serial", 16), 0x00E8: ("user_name", 16),
}
REG_USER_NAME = 0x00E8
REG_NUM_INTERFACES = 0x0600
REG_GVCP_CAPABILITY = 0x0934
REG_PERSISTENT_IP = 0x064C
REG_PERSISTENT_MASK = 0x065C
REG_PERSISTENT_GATEWAY = 0x066C
PERSISTENT_REGS = (REG_PERSISTENT_IP, REG_PERSISTENT_MASK, REG_PERSISTENT_GATEWAY)
REG_HEARTBEAT = 0x0938
REG_CCP = 0x0A00
REGISTER_SPACE = 0x0A04
CCP_EXCLUSIVE, CCP_CONTROL = 0x1, 0x2
IP_CONFIG_PERSISTENT, IP_CONFIG_LLA = 0x1, 0x4
LINK_LOCAL_MASK = 0xFFFF0000


def fail(message):
    raise SystemExit("gvsim: " + message)


def number(value):
    """Scenario numbers may be written as ints or as hex/decimal strings."""
    return int(value, 0) if isinstance(value, str) else int(value)


def ip_int(text):
    try:
        return struct.unpack("!I", socket.inet_aton(text))[0]
    except OSError:
        fail(f"bad IPv4 address {text!r}")


def ip_text(value):
    return socket.inet_ntoa(struct.pack("!I", value & 0xFFFFFFFF))


def mac_bytes(text):
    parts = text.replace("-", ":").split(":")
    if len(parts) != 6:
        fail(f"bad MAC address {text!r}")
    return bytes(int(p, 16) for p in parts)


def mac_text(mac):
    return "-".join(f"{b:02X}" for b in mac)


def text_field(text, width, full):
    """A text given as {"hex": "..."} is taken as raw bytes, invalid UTF-8 included."""
    raw = (bytes.fromhex(text["hex"]) if isinstance(text, dict) else text.encode("utf-8"))[:width]
    if full:  # every byte used, no terminating NUL
        raw = (raw or b"X") * (width // max(len(raw), 1) + 1)
    return raw[:width].ljust(width, b"\0")


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


# --- frames ------------------------------------------------------------------
class Frames:
    """Builds outgoing Ethernet frames; keeps the IPv4 identification counter."""

    def __init__(self):
        self.ip_id = random.randrange(0x10000)

    @staticmethod
    def pad(frame):
        return frame.ljust(MIN_FRAME, b"\0")

    def arp_reply(self, cam_mac, cam_ip, peer_mac, peer_ip):
        arp = ARP.pack(1, ETH_P_IP, 6, 4, 2, cam_mac, struct.pack("!I", cam_ip),
                       peer_mac, struct.pack("!I", peer_ip))
        return self.pad(ETH.pack(peer_mac, cam_mac, ETH_P_ARP) + arp)

    def arp_announce(self, cam_mac, cam_ip):
        """Gratuitous ARP request: sender and target address are the camera's own, to everyone."""
        address = struct.pack("!I", cam_ip)
        arp = ARP.pack(1, ETH_P_IP, 6, 4, 1, cam_mac, address, bytes(6), address)
        return self.pad(ETH.pack(BROADCAST_MAC, cam_mac, ETH_P_ARP) + arp)

    def udp(self, src_mac, dst_mac, src_ip, dst_ip, sport, dport, payload, bad_checksum=False):
        self.ip_id = (self.ip_id + 1) & 0xFFFF
        src, dst = struct.pack("!I", src_ip), struct.pack("!I", dst_ip)
        length = UDP.size + len(payload)
        pseudo = src + dst + struct.pack("!BBH", 0, socket.IPPROTO_UDP, length)
        udp_sum = checksum(pseudo + UDP.pack(sport, dport, length, 0) + payload) or 0xFFFF
        header = IPV4.pack(0x45, 0, IPV4.size + length, self.ip_id, 0, 64,
                           socket.IPPROTO_UDP, 0, src, dst)
        header = header[:10] + struct.pack("!H", checksum(header) ^ (0xFFFF if bad_checksum else 0)) + header[12:]
        return self.pad(ETH.pack(dst_mac, src_mac, ETH_P_IP) + header
                        + UDP.pack(sport, dport, length, udp_sum) + payload)


class Request:
    """One GVCP command as it arrived, with where it came from."""

    def __init__(self, src_mac, dst_mac, src_ip, dst_ip, src_port, dst_port, data):
        self.src_mac, self.dst_mac = src_mac, dst_mac
        self.src_ip, self.dst_ip = src_ip, dst_ip
        self.src_port, self.dst_port = src_port, dst_port
        _, self.flags, self.code, self.length, self.req_id = GVCP_CMD.unpack_from(data)
        self.payload = data[GVCP_CMD.size:GVCP_CMD.size + self.length]
        self.name = COMMANDS.get(self.code, f"0x{self.code:04x}")

    def target_mac(self):
        """MAC carried in the payload of force-IP commands."""
        return self.payload[2:8] if len(self.payload) >= 8 else None


# --- cameras -----------------------------------------------------------------
FAULT_KEYS = {
    "silent", "no_answer", "status", "wrong_ack_id", "stale_ack_id", "duplicate_discovery",
    "no_restart", "slow_ms", "flood", "truncate_ack", "oversize_ack", "full_text",
    "second_address", "vanish_after_forceip", "early_acks", "answer_port", "bad_checksum_discovery",
}
CAMERA_KEYS = {
    "mac", "ip", "mask", "gateway", "model", "vendor", "version", "serial", "user_name",
    "manufacturer_info", "gev_version", "device_mode", "ip_config_options",
    "ip_config_current", "persistent", "restart_delay_ms", "answer_window_ms", "faults",
    "kind", "held_by", "plugged", "announces",
}


def command_set(value):
    """A fault given as true hits every command, a list only the named ones."""
    if value is True:
        return set(CODES)
    if not value:
        return set()
    unknown = set(value) - set(CODES)
    if unknown:
        fail(f"unknown command names in fault: {sorted(unknown)}")
    return set(value)


def per_command(value, convert):
    """A number for every command, or a {command: number} map."""
    if isinstance(value, dict):
        command_set(list(value))
        return {name: convert(v) for name, v in value.items()}
    return {name: convert(value) for name in CODES} if value else {}


class Faults:
    def __init__(self, conf):
        unknown = set(conf) - FAULT_KEYS
        if unknown:
            fail(f"unknown faults: {sorted(unknown)}")
        self.mute = command_set(True if conf.get("silent") else conf.get("no_answer"))
        self.status = per_command(conf.get("status", {}), number)
        self.early = per_command(conf.get("early_acks", {}), lambda statuses: [number(s) for s in statuses])
        self.wrong_id = command_set(conf.get("wrong_ack_id"))
        self.stale_id = command_set(conf.get("stale_ack_id"))
        self.slow = per_command(conf.get("slow_ms", 0), lambda ms: number(ms) / 1000.0)
        self.duplicates = number(conf.get("duplicate_discovery", 0))
        self.bad_checksums = number(conf.get("bad_checksum_discovery", 0))
        self.no_restart = bool(conf.get("no_restart"))
        self.vanish = bool(conf.get("vanish_after_forceip"))
        self.flood = conf.get("flood")
        self.truncate = conf.get("truncate_ack")
        self.oversize = conf.get("oversize_ack")
        self.full_text = bool(conf.get("full_text"))
        self.second_address = conf.get("second_address")
        self.answer_port = number(conf.get("answer_port", GVCP_PORT))

    def ack_id(self, name, req_id):
        if name in self.wrong_id:
            return (req_id + 0x100) & 0xFFFF
        if name in self.stale_id:
            return (req_id - 1) & 0xFFFF
        return req_id


class Camera:
    def __init__(self, conf, window_ms, control_ms):
        unknown = set(conf) - CAMERA_KEYS
        if unknown:
            fail(f"unknown camera fields: {sorted(unknown)}")
        if "mac" not in conf:
            fail("camera without mac")
        self.mac = mac_bytes(conf["mac"])
        self.ip = ip_int(conf.get("ip", "0.0.0.0"))
        self.mask = ip_int(conf.get("mask", "255.255.255.0" if self.ip else "0.0.0.0"))
        self.gateway = ip_int(conf.get("gateway", "0.0.0.0"))
        self.model = conf.get("model", "GVSIM-CAM")
        self.vendor = conf.get("vendor", "GVSim")
        self.version = conf.get("version", "1.0.0")
        self.serial = conf.get("serial", self.mac[3:].hex().upper())
        self.user_name = conf.get("user_name", "")
        self.manufacturer_info = conf.get("manufacturer_info", "")
        major, minor = str(conf.get("gev_version", "2.0")).split(".")
        self.gev_version = (int(major), int(minor))
        self.device_mode = number(conf.get("device_mode", 0x80000001))
        self.ip_config_options = number(conf.get("ip_config_options", 0x80000007))
        self.ip_config_current = number(conf.get("ip_config_current", 0x5))
        stored = conf.get("persistent", {})
        self.persistent = (
            ip_int(stored.get("ip", ip_text(self.ip))),
            ip_int(stored.get("mask", ip_text(self.mask))),
            ip_int(stored.get("gateway", ip_text(self.gateway))),
            number(stored.get("ipconfig", self.ip_config_current)),
        )
        self.restart_delay = number(conf.get("restart_delay_ms", 2000)) / 1000.0
        low, high = conf.get("answer_window_ms", window_ms)
        self.window = (number(low) / 1000.0, number(high) / 1000.0)
        self.control_window = (control_ms[0] / 1000.0, control_ms[1] / 1000.0)
        self.faults = Faults(conf.get("faults", {}))
        self.kind = conf.get("kind", "vendor")
        if self.kind not in ("vendor", "standard"):
            fail(f"unknown camera kind {self.kind!r}")
        self.heartbeat = 3000
        self.release()
        if "held_by" in conf:  # another application that keeps its heartbeat going
            ip, port = conf["held_by"].split(":")
            self.ccp, self.controller, self.control_until = CCP_CONTROL, (ip_int(ip), int(port)), float("inf")
        self.online = True
        self.plugged = bool(conf.get("plugged", True))  # false: on the shelf until a "plug" control line
        self.announces = bool(conf.get("announces", True))  # false: firmware without RFC 5227 announcements

    # control privilege: a standard camera ties it to the address and port that took it
    def release(self):
        self.ccp, self.controller, self.control_until = 0, None, 0.0

    def holds_control(self, req):
        """Whether `req` comes from the controller; its commands keep the heartbeat alive."""
        if self.controller and time.monotonic() > self.control_until:
            self.release()
        held = self.controller == (req.src_ip, req.src_port)
        if held and self.control_until != float("inf"):
            self.control_until = time.monotonic() + self.heartbeat / 1000.0
        return held

    def may_write(self, address, req):
        if self.kind != "standard" or self.holds_control(req):
            return True
        return address == REG_CCP and self.controller is None

    def power_cycle(self):
        """Boots from the persistent address when 0x0014 asks for it, else link-local, else none."""
        self.release()
        self.heartbeat = 3000
        ip, mask, gateway = self.persistent[:3]
        if self.ip_config_current & IP_CONFIG_PERSISTENT and ip:
            self.ip, self.mask, self.gateway = ip, mask, gateway
        elif self.ip_config_current & IP_CONFIG_LLA:
            self.ip, self.mask, self.gateway = 0xA9FE0000 | int.from_bytes(self.mac[4:], "big"), LINK_LOCAL_MASK, 0
        else:
            self.ip, self.mask, self.gateway = 0, 0, 0

    def in_subnet(self, ip):
        return bool(self.ip and self.mask and ip) and (ip ^ self.ip) & self.mask == 0

    def hears(self, dst_ip):
        directed = self.ip | (~self.mask & 0xFFFFFFFF) if self.ip else None
        return dst_ip in (self.ip, LIMITED_BROADCAST, directed)

    def delay(self, name):
        """Discovery answers are spread out as devices do to avoid a burst; the rest come at once."""
        window = self.window if name == "discovery" else self.control_window
        return random.uniform(*window) + self.faults.slow.get(name, 0.0)

    def discovery_ack(self, ack_id, ip=None):
        full = self.faults.full_text
        body = DISCOVERY_ACK.pack(
            self.gev_version[0], self.gev_version[1], self.device_mode, b"", self.mac,
            self.ip_config_options, self.ip_config_current, b"", self.ip if ip is None else ip,
            b"", self.mask, b"", self.gateway,
            *(text_field(getattr(self, attr), width, full) for attr, width in TEXT_REGS.values()))
        status = self.faults.status.get("discovery", STATUS_OK)
        data = GVCP_ACK.pack(status, CODES["discovery"] + 1, DISCOVERY_ACK.size, ack_id) + body
        if self.faults.truncate is not None:
            data = data[:number(self.faults.truncate)]
        if self.faults.oversize is not None:
            data = data.ljust(number(self.faults.oversize), b"\0")
        return data

    # register space
    def register_image(self):
        image = bytearray(REGISTER_SPACE)
        words = {
            REG_VERSION: self.gev_version[0] << 16 | self.gev_version[1],
            REG_DEVICE_MODE: self.device_mode,
            REG_MAC_HIGH: int.from_bytes(self.mac[:2], "big"),
            REG_MAC_LOW: int.from_bytes(self.mac[2:], "big"),
            REG_IP_CONFIG_OPTIONS: self.ip_config_options,
            REG_IP_CONFIG_CURRENT: self.ip_config_current,
            REG_CURRENT_IP: self.ip, REG_CURRENT_MASK: self.mask,
            REG_CURRENT_GATEWAY: self.gateway, REG_NUM_INTERFACES: 1, REG_GVCP_CAPABILITY: 0x80000000,
            REG_PERSISTENT_IP: self.persistent[0], REG_PERSISTENT_MASK: self.persistent[1],
            REG_PERSISTENT_GATEWAY: self.persistent[2], REG_HEARTBEAT: self.heartbeat,
            REG_CCP: self.ccp,
        }
        for address, value in words.items():
            struct.pack_into("!I", image, address, value & 0xFFFFFFFF)
        for address, (attr, width) in TEXT_REGS.items():
            image[address:address + width] = text_field(getattr(self, attr), width, False)
        return image

    def read(self, address, count):
        if address % 4:
            return STATUS_BAD_ALIGNMENT, b""
        if address + count > REGISTER_SPACE:
            return STATUS_INVALID_ADDRESS, b""
        return STATUS_OK, bytes(self.register_image()[address:address + count])

    def write_word(self, address, value, req):
        if address % 4:
            return STATUS_BAD_ALIGNMENT
        if not self.may_write(address, req):
            return STATUS_ACCESS_DENIED
        if address == REG_CCP:
            self.ccp = value
            if self.kind == "standard":
                self.controller = (req.src_ip, req.src_port) if value & (CCP_EXCLUSIVE | CCP_CONTROL) else None
                self.control_until = time.monotonic() + self.heartbeat / 1000.0
        elif address == REG_HEARTBEAT:
            self.heartbeat = value
        elif address == REG_IP_CONFIG_CURRENT:
            self.ip_config_current = value
        elif address in PERSISTENT_REGS:
            values = list(self.persistent)
            values[PERSISTENT_REGS.index(address)] = value
            self.persistent = tuple(values)
        elif address < REGISTER_SPACE:
            return STATUS_WRITE_PROTECT
        else:
            return STATUS_INVALID_ADDRESS
        return STATUS_OK

    def write_block(self, address, data, req):
        """Only the user-defined name is writable as a text block."""
        if address == REG_USER_NAME and len(data) <= 16:
            self.user_name = data.split(b"\0", 1)[0].decode("utf-8", "replace")
            return STATUS_OK, len(data)
        written = 0
        for offset in range(0, len(data) - len(data) % 4, 4):
            status = self.write_word(address + offset, int.from_bytes(data[offset:offset + 4], "big"), req)
            if status:
                return status, written
            written += 4
        return (STATUS_OK if written == len(data) else STATUS_BAD_ALIGNMENT), written


def expand_generated(block):
    """Many cameras from one template: consecutive MACs and addresses."""
    template = dict(block)
    count = number(template.pop("count"))
    mac = int.from_bytes(mac_bytes(template.pop("mac_start", "00:0f:31:00:00:01")), "big")
    first_ip = ip_int(template.pop("ip_start", "0.0.0.0"))
    cameras = []
    for i in range(count):
        conf = dict(template, mac=mac_text((mac + i).to_bytes(6, "big")))
        if first_ip:
            conf["ip"] = ip_text(first_ip + i)
        cameras.append(conf)
    return cameras


# --- the link ----------------------------------------------------------------
class Simulator:
    def __init__(self, config, iface, segment, record, window_ms, control_ms, control=None):
        confs = list(config.get("cameras", []))
        for block in config.get("generate", []):
            confs += expand_generated(block)
        self.cameras = [Camera(conf, window_ms, control_ms) for conf in confs]
        self.by_mac = {}
        for cam in self.cameras:
            if cam.mac in self.by_mac:
                fail(f"duplicate camera MAC {mac_text(cam.mac)}")
            self.by_mac[cam.mac] = cam
        self.hosts = {mac_bytes(mac): name for mac, name in config.get("hosts", {}).items()}
        self.segment = segment
        self.frames = Frames()
        self.events = []
        self.seq = 0
        self.pending = []
        self.cycle_pending = False
        self.record = open(record, "a", encoding="utf-8") if record else None
        self.sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        # past rmem_max/wmem_max (we are root): a discovery of 1000 cameras comes in one burst
        self.sock.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 8 << 20)
        self.sock.setsockopt(socket.SOL_SOCKET, SO_SNDBUFFORCE, 8 << 20)
        self.sock.bind((iface, 0))
        self.sock.setblocking(False)
        # read-write, so the pipe never reports end of file between writers and opening never blocks
        self.control = os.open(control, os.O_RDWR | os.O_NONBLOCK) if control else None
        self.control_text = b""
        for cam in self.cameras:
            if cam.plugged and cam.ip and cam.announces:  # once, before "ready": before any command runs
                self.send(self.frames.arp_announce(cam.mac, cam.ip))

    # scheduling
    def at(self, delay, action, *args):
        self.seq += 1
        heapq.heappush(self.events, (time.monotonic() + delay, self.seq, action, args))

    def send(self, frame):
        try:
            self.sock.send(frame)
        except BlockingIOError:
            self.at(0.001, self.send, frame)

    def announce(self, cam):
        for index in range(ANNOUNCE_NUM if cam.ip and cam.announces else 0):
            self.at(index * ANNOUNCE_INTERVAL_S, self.send_announcement, cam, cam.ip)

    def send_announcement(self, cam, ip):
        if cam.plugged and cam.online and cam.ip == ip:
            self.send(self.frames.arp_announce(cam.mac, ip))

    def send_udp(self, cam_mac, src_ip, dest, payload, src_port=GVCP_PORT, bad_checksum=False):
        mac, ip, port = dest
        self.send(self.frames.udp(cam_mac, mac, src_ip, ip, src_port, port, payload, bad_checksum))

    def reply(self, cam, name, payload, dest, delay=None, bad_checksum=False):
        """Queue one answer; returns what the log says about it."""
        delay = cam.delay(name) if delay is None else delay
        self.at(delay, self.send_udp, cam.mac, cam.ip, dest, payload, cam.faults.answer_port, bad_checksum)
        status, ack, _, ack_id = GVCP_ACK.unpack_from(payload.ljust(8, b"\0"))
        return {"status": status, "ack": ack, "ack_id": ack_id, "bytes": len(payload),
                "to": f"{ip_text(dest[1])}:{dest[2]}", "delay_ms": round(delay * 1000, 1)}

    def ack(self, cam, req, status, body=b"", dest=None):
        """The answer, after any early ones the faults ask for, 1 ms apart; logs the last."""
        name = req.name
        statuses = cam.faults.early.get(name, []) + [cam.faults.status.get(name, status)]
        ack_id = cam.faults.ack_id(name, req.req_id)
        delay = cam.delay(name)
        for i, each in enumerate(statuses):
            header = GVCP_ACK.pack(each, req.code + 1, len(body), ack_id)
            answer = self.reply(cam, name, header + body, dest or self.sender(req), delay + 0.001 * i)
        return answer

    @staticmethod
    def sender(req):
        return (req.src_mac, req.src_ip, req.src_port)

    @staticmethod
    def broadcast(req):
        return (BROADCAST_MAC, LIMITED_BROADCAST, req.src_port)

    def subnet_dest(self, cam, req, broadcast_ok):
        """Unicast inside the camera's subnet, else broadcast when allowed."""
        if cam.in_subnet(req.src_ip):
            return self.sender(req)
        return self.broadcast(req) if broadcast_ok else None

    # inbound
    def on_frame(self, frame):
        if len(frame) < ETH.size:
            return
        dst, src, ethertype = ETH.unpack_from(frame)
        if ethertype == ETH_P_ARP:
            self.on_arp(dst, frame[ETH.size:])
        elif ethertype == ETH_P_IP:
            self.on_ipv4(dst, src, frame[ETH.size:])

    def on_arp(self, dst, data):
        if len(data) < ARP.size:
            return
        htype, ptype, _, _, op, sha, spa, _, tpa = ARP.unpack_from(data)
        if (htype, ptype, op) != (1, ETH_P_IP, 1):
            return
        target = struct.unpack("!I", tpa)[0]
        for cam in self.cameras:
            if cam.plugged and cam.online and cam.ip == target and dst in (BROADCAST_MAC, cam.mac):
                self.send(self.frames.arp_reply(cam.mac, cam.ip, sha, struct.unpack("!I", spa)[0]))

    def on_ipv4(self, dst_mac, src_mac, data):
        if len(data) < IPV4.size:
            return
        vihl, _, total, _, frag, _, proto, _, src, dst = IPV4.unpack_from(data)
        ihl = (vihl & 0x0F) * 4
        if vihl >> 4 != 4 or proto != socket.IPPROTO_UDP or frag & 0x3FFF:
            return
        udp = data[ihl:total]
        if len(udp) < UDP.size:
            return
        sport, dport, length, _ = UDP.unpack_from(udp)
        payload = udp[UDP.size:length]
        if dport != GVCP_PORT or len(payload) < GVCP_CMD.size or payload[0] != GVCP_KEY:
            return
        req = Request(src_mac, dst_mac, struct.unpack("!I", src)[0], struct.unpack("!I", dst)[0],
                      sport, dport, payload)
        self.dispatch(req)

    def addressed(self, req):
        return [cam for cam in self.addressed_any(req) if cam.plugged]

    def addressed_any(self, req):
        if req.dst_mac == BROADCAST_MAC:
            if req.name == "discovery":  # hosts also use subnet-directed broadcasts
                return list(self.cameras)
            if req.name in ("forceip", "forceip_ex"):
                cam = self.by_mac.get(req.target_mac())
                return [cam] if cam else []
            return [cam for cam in self.cameras if cam.hears(req.dst_ip)]
        cam = self.by_mac.get(req.dst_mac)
        return [cam] if cam and cam.ip == req.dst_ip else []

    def dispatch(self, req):
        handler = getattr(self, "on_" + req.name, self.on_unknown)
        cameras = self.addressed(req)
        fields = decoded_fields(req)
        if not cameras and req.name in ("forceip", "forceip_ex"):
            self.log(req, None, fields, None, "no such camera")
        for cam in cameras:
            if not cam.online:
                self.log(req, cam, fields, None, "offline")
            elif req.name in cam.faults.mute:
                self.log(req, cam, fields, None, "silent")
            else:
                self.flood(cam, req)
                cam.holds_control(req)  # any command of the controller is a heartbeat
                self.log(req, cam, fields, handler(cam, req), "online")

    def flood(self, cam, req):
        flood = cam.faults.flood
        if not flood or number(flood.get("port", 0)) != req.src_port:
            return
        for _ in range(number(flood.get("count", 100))):
            junk = os.urandom(number(flood.get("size", 64)))
            self.at(random.uniform(*cam.window), self.send_udp, cam.mac, cam.ip,
                    self.broadcast(req), junk)

    # commands
    def on_discovery(self, cam, req):
        dest = self.subnet_dest(cam, req, req.flags & FLAG_BROADCAST_ACK)
        if dest is None:
            return None
        ack_id = cam.faults.ack_id("discovery", req.req_id)
        answer = self.reply(cam, "discovery", cam.discovery_ack(ack_id), dest)
        later = answer["delay_ms"] / 1000.0
        for copy in range(cam.faults.duplicates):
            self.reply(cam, "discovery", cam.discovery_ack(ack_id), dest, later + 0.001 * (copy + 1))
        for copy in range(cam.faults.bad_checksums):
            self.reply(cam, "discovery", cam.discovery_ack(ack_id), dest, later + 0.001 * (copy + 1), True)
        if cam.faults.second_address:
            other = ip_int(cam.faults.second_address)
            self.reply(cam, "discovery", cam.discovery_ack(ack_id, other), dest, later + 0.002)
        return answer

    def on_forceip(self, cam, req):
        _, _, _, ip, _, mask, _, gateway = FORCEIP.unpack_from(req.payload.ljust(FORCEIP.size, b"\0"))
        refused = cam.faults.status.get("forceip", STATUS_OK)
        if refused == STATUS_OK and ip:
            cam.ip, cam.mask, cam.gateway = ip, mask, gateway
        answer = None
        if req.flags & FLAG_ACK_REQUIRED:
            answer = self.ack(cam, req, STATUS_OK, dest=self.subnet_dest(cam, req, True))
        if refused == STATUS_OK and not ip:
            self.restart(cam)
        self.vanish(cam)
        return answer

    def on_forceip_ex(self, cam, req):
        if cam.kind == "standard":  # no vendor command: silent, or the refusal its faults give
            refused = "forceip_ex" in cam.faults.status and req.flags & FLAG_ACK_REQUIRED
            return self.ack(cam, req, STATUS_NOT_IMPLEMENTED, dest=self.broadcast(req)) if refused else None
        _, _, ipconfig, reset, _, ip, _, mask, _, gateway, _ = FORCEIP_EX.unpack_from(
            req.payload.ljust(FORCEIP_EX.size, b"\0"))
        if cam.faults.status.get("forceip_ex", STATUS_OK) == STATUS_OK:
            if reset:
                self.restart(cam)
            else:
                cam.persistent = (ip, mask, gateway, ipconfig)
        answer = None
        if req.flags & FLAG_ACK_REQUIRED:
            answer = self.ack(cam, req, STATUS_OK, dest=self.broadcast(req))
        self.vanish(cam)
        return answer

    def restart(self, cam):
        """Restart of the IP configuration: offline, then back with the stored one."""
        cam.online = False
        if not cam.faults.no_restart:
            self.at(cam.restart_delay, self.come_back, cam)

    def come_back(self, cam):
        cam.ip, cam.mask, cam.gateway, cam.ip_config_current = cam.persistent
        cam.online = True
        self.announce(cam)

    @staticmethod
    def vanish(cam):
        if cam.faults.vanish:
            cam.online = False

    def on_readreg(self, cam, req):
        count = len(req.payload) // 4
        addresses = struct.unpack(f"!{count}I", req.payload[:count * 4])
        status, values = STATUS_OK if count else STATUS_INVALID_PARAMETER, b""
        for address in addresses:
            word_status, word = cam.read(address, 4)
            status = status or word_status
            values += word.ljust(4, b"\0")
        return self.ack(cam, req, status, values)

    def on_writereg(self, cam, req):
        pairs = len(req.payload) // 8
        status, written = STATUS_OK if pairs else STATUS_INVALID_PARAMETER, 0
        for address, value in struct.iter_unpack("!II", req.payload[:pairs * 8]):
            status = cam.write_word(address, value, req)
            if status:
                break
            written += 1
        return self.ack(cam, req, status, INDEX_ACK.pack(0, written))

    def on_readmem(self, cam, req):
        if len(req.payload) < MEM_REQ.size:
            return self.ack(cam, req, STATUS_INVALID_PARAMETER)
        address, _, count = MEM_REQ.unpack_from(req.payload)
        status, data = cam.read(address, count) if count <= MAX_MEM_BLOCK else (STATUS_INVALID_PARAMETER, b"")
        return self.ack(cam, req, status, struct.pack("!I", address) + data)

    def on_writemem(self, cam, req):
        if len(req.payload) < 4:
            return self.ack(cam, req, STATUS_INVALID_PARAMETER)
        address = struct.unpack_from("!I", req.payload)[0]
        status, written = cam.write_block(address, req.payload[4:], req)
        return self.ack(cam, req, status, INDEX_ACK.pack(0, written))

    def on_unknown(self, cam, req):
        if req.flags & FLAG_ACK_REQUIRED and req.dst_mac != BROADCAST_MAC:
            return self.ack(cam, req, STATUS_NOT_IMPLEMENTED)
        return None

    # record
    def log(self, req, cam, fields, answer, state):
        self.pending.append({
            "t": round(time.time(), 6), "segment": self.segment,
            "iface": self.hosts.get(req.src_mac), "camera": mac_text(cam.mac) if cam else None,
            "cmd": req.name, "code": req.code, "flags": req.flags, "req_id": req.req_id,
            "src": f"{ip_text(req.src_ip)}:{req.src_port}", "dst": f"{ip_text(req.dst_ip)}:{req.dst_port}",
            "fields": fields, "state": state, "answer": answer,
        })

    def flush(self):
        if self.record and self.pending:
            self.record.write("".join(json.dumps(entry) + "\n" for entry in self.pending))
            self.record.flush()
        self.pending.clear()

    # main loop
    def power_cycle_all(self):
        """Every camera off, then each boots after its restart delay."""
        self.cycle_pending = False
        for cam in self.cameras:
            cam.online = False
            self.at(cam.restart_delay, self.boot, cam)

    def boot(self, cam):
        cam.power_cycle()
        cam.online = True
        self.announce(cam)

    # control pipe
    def on_control(self):
        try:
            self.control_text += os.read(self.control, 4096)
        except BlockingIOError:
            return
        *lines, self.control_text = self.control_text.split(b"\n")
        for line in lines:
            words = line.decode("ascii", "replace").split()
            mac = control_mac(words[1]) if len(words) == 2 else None
            if mac is None or words[0] not in ("plug", "unplug", "cycle"):
                print(f"gvsim: bad control line {line!r}", file=sys.stderr, flush=True)
                continue
            cam = self.by_mac.get(mac)
            if cam:  # a camera of another link is that link's business
                getattr(self, "control_" + words[0])(cam)
                self.log_control(words[0], cam)

    def control_plug(self, cam):
        """Plugged in (or powered): boots from its stored configuration at once."""
        cam.plugged = True
        self.boot(cam)

    @staticmethod
    def control_unplug(cam):
        cam.plugged, cam.online = False, False
        cam.release()

    def control_cycle(self, cam):
        cam.online = False
        self.at(cam.restart_delay, self.boot, cam)

    def log_control(self, action, cam):
        self.pending.append({
            "t": round(time.time(), 6), "segment": self.segment, "iface": None, "camera": mac_text(cam.mac),
            "cmd": action, "fields": {"ip": ip_text(cam.ip)}, "state": "online" if cam.online else "offline",
            "answer": None})

    def final_state(self):
        """What a read of each camera's registers would give at the end, for the record."""
        for cam in self.cameras:
            ip, mask, gateway = cam.persistent[:3]
            self.pending.append({
                "t": round(time.time(), 6), "segment": self.segment, "iface": None, "camera": mac_text(cam.mac),
                "cmd": "final", "answer": None,
                "state": "unplugged" if not cam.plugged else "online" if cam.online else "offline",
                "fields": {"ip": ip_text(cam.ip), "mask": ip_text(cam.mask), "persistent_ip": ip_text(ip),
                           "persistent_mask": ip_text(mask), "persistent_gateway": ip_text(gateway),
                           "ip_config": f"0x{cam.ip_config_current:X}", "ccp": cam.ccp}})

    def run(self):
        while True:
            if self.cycle_pending:
                self.power_cycle_all()
            now = time.monotonic()
            while self.events and self.events[0][0] <= now:
                _, _, action, args = heapq.heappop(self.events)
                action(*args)
            wait = min(self.events[0][0] - time.monotonic(), 0.2) if self.events else 0.2
            if wait > 0.01 or len(self.pending) > 5000:
                self.flush()
            sources = [self.sock] + ([self.control] if self.control is not None else [])
            readable, _, _ = select.select(sources, [], [], max(wait, 0))
            if self.sock in readable:
                self.drain()
            if self.control in readable:
                self.on_control()

    def drain(self):
        for _ in range(2000):
            try:
                frame, address = self.sock.recvfrom(65535)
            except BlockingIOError:
                return
            if address[2] != PACKET_OUTGOING:
                self.on_frame(frame)


def control_mac(text):
    """A MAC of a control line; None when it is not one (the simulator keeps running)."""
    try:
        mac = bytes.fromhex(text.replace(":", "").replace("-", ""))
    except ValueError:
        return None
    return mac if len(mac) == 6 else None


def decoded_fields(req):
    """The command's payload, decoded for the record."""
    data = req.payload
    if req.name == "forceip":
        _, mac, _, ip, _, mask, _, gateway = FORCEIP.unpack_from(data.ljust(FORCEIP.size, b"\0"))
        return {"mac": mac_text(mac), "ip": ip_text(ip), "mask": ip_text(mask), "gateway": ip_text(gateway)}
    if req.name == "forceip_ex":
        _, mac, ipconfig, reset, _, ip, _, mask, _, gateway, text = FORCEIP_EX.unpack_from(
            data.ljust(FORCEIP_EX.size, b"\0"))
        return {"mac": mac_text(mac), "ipconfig": ipconfig, "reset": reset, "ip": ip_text(ip),
                "mask": ip_text(mask), "gateway": ip_text(gateway), "text": text.hex()}
    if req.name == "readreg":
        return {"addresses": [f"0x{a:04X}" for a, in struct.iter_unpack("!I", data[:len(data) // 4 * 4])]}
    if req.name == "writereg":
        return {"writes": {f"0x{a:04X}": v for a, v in struct.iter_unpack("!II", data[:len(data) // 8 * 8])}}
    if req.name == "readmem" and len(data) >= MEM_REQ.size:
        address, _, count = MEM_REQ.unpack_from(data)
        return {"address": f"0x{address:04X}", "count": count}
    if req.name == "writemem" and len(data) >= 4:
        return {"address": f"0x{struct.unpack_from('!I', data)[0]:04X}", "data": data[4:].hex()}
    return {"length": req.length, "payload": data.hex()} if data else {}


def parse_args(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--iface", required=True, help="link to serve (inside its namespace)")
    parser.add_argument("--config", required=True, help="JSON: cameras, generate, hosts")
    parser.add_argument("--record", help="append one JSON line per command received")
    parser.add_argument("--segment", default="", help="segment name written to the record")
    parser.add_argument("--control", help="named pipe of control lines: plug MAC, unplug MAC, cycle MAC")
    parser.add_argument("--window-ms", default="0,30",
                        help="default discovery answer delay window in ms, LOW,HIGH (default 0,30)")
    parser.add_argument("--control-window-ms", default="0,0",
                        help="answer delay window of every other command in ms (default 0,0)")
    return parser.parse_args(argv)


def main(argv=None):
    args = parse_args(argv)
    with open(args.config, encoding="utf-8") as f:
        config = json.load(f)
    window, control = ([float(v) for v in text.split(",")] for text in (args.window_ms, args.control_window_ms))
    sim = Simulator(config, args.iface, args.segment or args.iface, args.record, window, control, args.control)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.signal(signal.SIGINT, lambda *_: sys.exit(0))
    signal.signal(signal.SIGUSR1, lambda *_: setattr(sim, "cycle_pending", True))
    print(f"ready {len(sim.cameras)} cameras on {args.iface}", flush=True)
    try:
        sim.run()
    finally:
        sim.final_state()
        sim.flush()


if __name__ == "__main__":
    main()
