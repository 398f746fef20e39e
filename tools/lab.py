#!/usr/bin/python3
"""Virtual GigE Vision camera network.

Builds a host network namespace with the scenario's interfaces, one segment
namespace per link with a camera simulator on it, runs a command on the host
side, and removes everything it made on every exit path. Its own progress
goes to stderr; stdout carries only the command's output.

usage: lab.py SCENARIO.json [--record FILE.jsonl] [--tool PATH] [--timeout SECONDS]
              [--window-ms LOW,HIGH] [--control-window-ms LOW,HIGH] [-- COMMAND ARGS...]
"""

import argparse
import json
import os
import re
import secrets
import shutil
import signal
import subprocess
import sys
import tempfile
import time

TOOLS = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(TOOLS)
PYTHON = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
SIMULATOR = os.path.join(TOOLS, "gvsim.py")
ARP_HOST = os.path.join(TOOLS, "arphost.py")
BRIDGE = "br0"
EXIT_TIMEOUT = 124
EXIT_LAB_FAILED = 125
EXIT_INTERRUPTED = 130
INTERFACE_KEYS = {"name", "mac", "addresses", "gateway", "routes", "mtu", "down", "segment",
                  "cameras", "generate", "hosts"}
HOST_KEYS = {"name", "mac", "address", "answer_delay_ms", "arping_dad"}
SECOND_HOST_KEYS = {"segment", "interface", "mac", "addresses", "gateway"}
SECOND_HOST_MAC = "02:00:00:00:5e:01"
# A concurrent claim: arping -D probes once a second (whole seconds only); two of them half a
# second apart put a probe into every window of a second, until the lab goes down.
ARPING_DAD = ["arping", "-D", "-q", "-c", "100000"]
ARPING_STAGGER_S = 0.5
LINK_READY_S = 5.0
SYSCTL_KEY = re.compile(r"net/(core|ipv4|ipv6)(/[\w.-]+)+")
# Drops the raw-network right for good: from the bounding set and from what an exec may inherit.
NO_NET_RAW = ["setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw", "--"]

STOCK_HOST_SYSCTLS = {
    # as Debian's systemd leaves a host: loose reverse-path filtering, our own addresses refused
    # as sources; interfaces created later inherit "default"
    "net/ipv4/conf/all/rp_filter": 2, "net/ipv4/conf/default/rp_filter": 2,
    "net/ipv4/conf/all/accept_local": 0, "net/ipv4/conf/default/accept_local": 0,
    "net/ipv6/conf/all/disable_ipv6": 1, "net/ipv6/conf/default/disable_ipv6": 1,
}
SEGMENT_SYSCTLS = {
    "net/ipv6/conf/all/disable_ipv6": 1, "net/ipv6/conf/default/disable_ipv6": 1,
}


class LabError(Exception):
    pass


class Interrupted(Exception):
    pass


def say(message):
    print(f"lab: {message}", file=sys.stderr, flush=True)


def run(*argv):
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode:
        raise LabError(f"{' '.join(argv)}: {result.stderr.strip()}")
    return result.stdout


def sysctl_script(values):
    return "; ".join(f"echo {v} > /proc/sys/{k}" for k, v in values.items())


def load_scenario(path):
    with open(path, encoding="utf-8") as f:
        scenario = json.load(f)
    interfaces = scenario.get("interfaces")
    if not interfaces:
        raise LabError(f"{path}: no interfaces")
    names = [itf.get("name") for itf in interfaces]
    for itf in interfaces:
        unknown = set(itf) - INTERFACE_KEYS
        if unknown or not itf.get("name") or len(itf["name"]) > 15:
            raise LabError(f"{path}: bad interface {itf.get('name')!r} {sorted(unknown)}")
    for host in (h for itf in interfaces for h in itf.get("hosts", [])):
        if set(host) - HOST_KEYS or not host.get("name") or len(host["name"]) > 8:
            raise LabError(f"{path}: bad host {host}")
    if len(set(names)) != len(names):
        raise LabError(f"{path}: interface names repeat")
    check_host_sysctls(path, scenario.get("host_sysctls", {}), names)
    second = scenario.get("second_host")
    segments = {itf.get("segment", itf["name"]) for itf in interfaces}
    if second is not None and (set(second) - SECOND_HOST_KEYS or len(second.get("interface", "eth0")) > 15
                               or second.get("segment", interfaces[0].get("segment", names[0])) not in segments):
        raise LabError(f"{path}: bad second_host {second}")
    if not isinstance(scenario.get("no_net_raw", False), bool):
        raise LabError(f"{path}: no_net_raw is true or false")
    return scenario


def check_host_sysctls(path, sysctls, names):
    """Keys under net/, per-interface ones only for the scenario's interfaces; whole numbers."""
    for key, value in sysctls.items():
        if (not SYSCTL_KEY.fullmatch(key) or ".." in key.split("/") or type(value) is not int
                or interface_of(key) not in [None] + names):
            raise LabError(f"{path}: bad host_sysctls entry {key!r}: {value!r}")


def interface_of(key):
    """The interface a net/ipv4/conf/NAME/... key sets; None for all, default and global keys.
    Such keys can only be set once the interfaces exist."""
    parts = key.split("/")
    is_conf = parts[2:3] == ["conf"] and len(parts) > 4
    return parts[3] if is_conf and parts[3] not in ("all", "default") else None


class Lab:
    def __init__(self, scenario, windows):
        self.scenario = scenario
        self.windows = windows
        self.run_id = f"{os.getpid() % 100000}{secrets.token_hex(2)}"
        self.host_ns = f"gvlab{self.run_id}h"
        self.second_ns = f"gvlab{self.run_id}b"
        self.segments = self.plan_segments()
        self.namespaces = []
        self.simulators = []
        self.command = None
        self.workdir = tempfile.mkdtemp(prefix=f"gvlab{self.run_id}-")

    def plan_segments(self):
        """Interfaces naming the same segment share one link (a bridge)."""
        segments = {}
        for index, itf in enumerate(self.scenario["interfaces"]):
            itf.setdefault("mac", f"02:00:00:00:{index + 1:02x}:01")
            name = itf.get("segment", itf["name"])
            segment = segments.setdefault(name, {"interfaces": [], "cameras": [], "generate": [], "hosts": []})
            segment["interfaces"].append(itf)
            segment["hosts"] += itf.get("hosts", [])
            segment["cameras"] += itf.get("cameras", [])
            generate = itf.get("generate", [])
            segment["generate"] += generate if isinstance(generate, list) else [generate]
        for index, segment in enumerate(segments.values()):
            segment["ns"] = f"gvlab{self.run_id}s{index}"
        second = self.scenario.get("second_host")
        if second is not None:
            first = self.scenario["interfaces"][0]
            second = dict({"segment": first.get("segment", first["name"]), "interface": "eth0",
                           "mac": SECOND_HOST_MAC, "addresses": []}, **second)
            segments[second["segment"]]["second_host"] = second
        return segments

    # bring-up
    def up(self):
        say(f"host namespace {self.host_ns}")
        sysctls = dict(STOCK_HOST_SYSCTLS, **self.scenario.get("host_sysctls", {}))
        self.add_namespace(self.host_ns, {k: v for k, v in sysctls.items() if interface_of(k) is None})
        run("ip", "-n", self.host_ns, "link", "set", "lo", "up")
        for name, segment in self.segments.items():
            self.add_namespace(segment["ns"], SEGMENT_SYSCTLS)
            self.add_bridge(segment["ns"])
            for port, itf in enumerate(segment["interfaces"]):
                self.add_interface(itf, segment["ns"], f"p{port}")
            if "second_host" in segment:
                self.add_second_host(segment["second_host"], segment["ns"])
            self.start_simulator(name, segment)
            for index, host in enumerate(segment["hosts"]):
                self.add_host(host, segment["ns"], f"{segment['ns']}x{index}", f"q{index}")
        self.set_sysctls(self.host_ns, {k: v for k, v in sysctls.items() if interface_of(k)})
        self.wait_links_ready()
        if self.scenario.get("host_sysctls"):
            say(f"host settings {self.scenario['host_sysctls']}")

    def wait_links_ready(self):
        """Until the kernel has activated each link and bridge port: before that they drop every frame."""
        waits = [(self.host_ns, ["ip", "-o", "link", "show", "up"], itf["name"], "state UP")
                 for itf in self.scenario["interfaces"] if not itf.get("down")]
        waits += [(segment["ns"], ["bridge", "link", "show"], f"p{port}", "state forwarding")
                  for segment in self.segments.values()
                  for port, itf in enumerate(segment["interfaces"]) if not itf.get("down")]
        give_up = time.monotonic() + LINK_READY_S
        while waits and time.monotonic() < give_up:
            waits = [w for w in waits if not re.search(rf"^\d+: {re.escape(w[2])}(@\S+)?:.* {w[3]} ",
                                                       run(w[1][0], "-n", w[0], *w[1][1:]), re.M)]
            time.sleep(0.01 if waits else 0)
        if waits:
            raise LabError(f"links not up after {LINK_READY_S} s: {[w[2] for w in waits]}")

    def add_namespace(self, ns, sysctls):
        run("ip", "netns", "add", ns)
        self.namespaces.append(ns)
        self.set_sysctls(ns, sysctls)

    @staticmethod
    def set_sysctls(ns, sysctls):
        if sysctls:
            run("ip", "netns", "exec", ns, "sh", "-ec", sysctl_script(sysctls))

    @staticmethod
    def add_bridge(ns):
        # promiscuous so the simulator sees frames for every camera MAC
        run("ip", "-n", ns, "link", "add", BRIDGE, "type", "bridge", "stp_state", "0")
        run("ip", "-n", ns, "link", "set", BRIDGE, "promisc", "on", "up")

    def add_interface(self, itf, segment_ns, peer):
        name, ns = itf["name"], self.host_ns
        run("ip", "link", "add", name, "netns", ns, "address", itf["mac"], "type", "veth",
            "peer", "name", peer, "netns", segment_ns)
        run("ip", "-n", segment_ns, "link", "set", peer, "master", BRIDGE, "up")
        if "mtu" in itf:
            run("ip", "-n", ns, "link", "set", name, "mtu", str(itf["mtu"]))
        run("ip", "-n", ns, "link", "set", name, "down" if itf.get("down") else "up")
        for index, address in enumerate(itf.get("addresses", [])):
            label = name if index == 0 else f"{name}:{index}"
            run("ip", "-n", ns, "addr", "add", address, "brd", "+", "dev", name, "label", label)
        if "gateway" in itf:
            run("ip", "-n", ns, "route", "append", "default", "via", itf["gateway"], "dev", name)
        for route in itf.get("routes", []):
            run("ip", "-n", ns, "route", "append", route["to"], "via", route["via"], "dev", name)

    def add_host(self, host, segment_ns, ns, peer):
        """Another machine on the link (a PLC, a PC): its kernel answers ARP for its address; with
        answer_delay_ms a responder answers instead, late; with arping_dad it claims that address
        with duplicate address detection probes while the command runs."""
        self.add_namespace(ns, SEGMENT_SYSCTLS)
        mac = host.get("mac", f"02:00:00:00:f0:{len(self.namespaces):02x}")
        run("ip", "link", "add", "h0", "netns", ns, "address", mac, "type", "veth",
            "peer", "name", peer, "netns", segment_ns)
        run("ip", "-n", segment_ns, "link", "set", peer, "master", BRIDGE, "up")
        run("ip", "-n", ns, "link", "set", "h0", "up")
        address = host.get("address")
        if address and "answer_delay_ms" in host:
            self.start_helper(ns, [PYTHON, ARP_HOST, "--iface", "h0", "--mac", mac, "--address",
                                   address.split("/")[0], "--delay-ms", str(host["answer_delay_ms"])])
        elif address:
            run("ip", "-n", ns, "addr", "add", address, "dev", "h0")
        for stagger in (0, ARPING_STAGGER_S) if "arping_dad" in host else ():
            time.sleep(stagger)
            self.start_helper(ns, ARPING_DAD + ["-I", "h0", host["arping_dad"]], wait_ready=False)
        say(f"host {host['name']} ({mac}): {address or 'no address'}"
            f"{', answers after %s ms' % host['answer_delay_ms'] if 'answer_delay_ms' in host else ''}"
            f"{', probing ' + host['arping_dad'] if 'arping_dad' in host else ''}")

    def add_second_host(self, second, segment_ns):
        """Another stock host on the link, able to run a copy of the tool: two hosts, one camera network."""
        ns, name = self.second_ns, second["interface"]
        self.add_namespace(ns, STOCK_HOST_SYSCTLS)
        run("ip", "-n", ns, "link", "set", "lo", "up")
        run("ip", "link", "add", name, "netns", ns, "address", second["mac"], "type", "veth",
            "peer", "name", "r0", "netns", segment_ns)
        run("ip", "-n", segment_ns, "link", "set", "r0", "master", BRIDGE, "up")
        run("ip", "-n", ns, "link", "set", name, "up")
        for address in second["addresses"]:
            run("ip", "-n", ns, "addr", "add", address, "brd", "+", "dev", name)
        if "gateway" in second:
            run("ip", "-n", ns, "route", "append", "default", "via", second["gateway"], "dev", name)
        say(f"second host {ns}: {name} {', '.join(second['addresses']) or 'no address'}")

    def start_helper(self, ns, argv, wait_ready=True):
        helper = subprocess.Popen(["ip", "netns", "exec", ns] + argv, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True, start_new_session=True)
        self.simulators.append(helper)
        if wait_ready and not helper.stdout.readline().startswith("ready"):
            raise LabError(f"{argv[1]} did not start in {ns}")

    def start_simulator(self, name, segment):
        config = os.path.join(self.workdir, f"{name}.json")
        segment["record"] = os.path.join(self.workdir, f"{name}.jsonl")
        control = os.path.join(self.workdir, f"{name}.ctl")
        os.mkfifo(control)
        hosts = {i["mac"]: i["name"] for i in segment["interfaces"]}
        if "second_host" in segment:
            hosts[segment["second_host"]["mac"]] = "second:" + segment["second_host"]["interface"]
        with open(config, "w", encoding="utf-8") as f:
            json.dump({"cameras": segment["cameras"], "generate": segment["generate"], "hosts": hosts}, f)
        sim = subprocess.Popen(
            ["ip", "netns", "exec", segment["ns"], PYTHON, SIMULATOR, "--iface", BRIDGE,
             "--config", config, "--record", segment["record"], "--segment", name, "--control", control,
             "--window-ms", self.windows[0], "--control-window-ms", self.windows[1]],
            stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.simulators.append(sim)
        ready = sim.stdout.readline().strip()
        if not ready.startswith("ready"):
            raise LabError(f"simulator of segment {name} did not start")
        say(f"segment {name}: {', '.join(i['name'] for i in segment['interfaces'])}; {ready}")

    # the command
    def run_command(self, argv, timeout):
        env = dict(os.environ, GVLAB_HOST_NS=self.host_ns, GVLAB_RECORD_DIR=self.workdir,
                   GVLAB_SEGMENT_NS=",".join(f"{n}={s['ns']}" for n, s in self.segments.items()),
                   GVLAB_SIMULATORS=" ".join(str(sim.pid) for sim in self.simulators))
        if self.second_ns in self.namespaces:
            env["GVLAB_SECOND_HOST_NS"] = self.second_ns
        if self.scenario.get("no_net_raw"):
            say("command runs without the raw-network right")
            argv = NO_NET_RAW + argv
        self.command = subprocess.Popen(["ip", "netns", "exec", self.host_ns] + argv,
                                        env=env, process_group=0)
        try:
            return self.command.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            say(f"command still running after {timeout} s: stopped")
            return EXIT_TIMEOUT

    # teardown
    def down(self, record):
        if self.command and self.command.poll() is None:
            stop(self.command)
        for sim in self.simulators:
            stop(sim)
        if record:
            self.merge_records(record)
        for ns in self.namespaces:
            self.kill_leftovers(ns)
            subprocess.run(["ip", "netns", "del", ns], capture_output=True)
        shutil.rmtree(self.workdir, ignore_errors=True)

    @staticmethod
    def kill_leftovers(ns):
        """Whatever still runs inside a namespace of this run was started by it."""
        pids = subprocess.run(["ip", "netns", "pids", ns], capture_output=True, text=True).stdout
        for pid in pids.split():
            try:
                os.kill(int(pid), signal.SIGKILL)
            except ProcessLookupError:
                pass

    def merge_records(self, path):
        entries = []
        for segment in self.segments.values():
            if os.path.exists(segment.get("record", "")):
                with open(segment["record"], encoding="utf-8") as f:
                    entries += [json.loads(line) for line in f if line.strip()]
        entries.sort(key=lambda entry: entry["t"])
        with open(path, "w", encoding="utf-8") as f:
            f.writelines(json.dumps(entry) + "\n" for entry in entries)
        say(f"{len(entries)} commands recorded in {path}")


def stop(process):
    """SIGTERM to its process group, then SIGKILL if it does not go within two seconds."""
    for sig in (signal.SIGTERM, signal.SIGKILL):
        try:
            os.killpg(process.pid, sig)
            process.wait(timeout=2)
            return
        except (ProcessLookupError, PermissionError):
            return
        except subprocess.TimeoutExpired:
            continue


def default_command(tool):
    path = tool or os.environ.get("AUTOIPCONFIG") or os.path.join(REPO, "build/app/autoipconfig")
    if not os.access(path, os.X_OK):
        raise LabError(f"tool not found: {path} (build it, or give --tool or a command)")
    return [os.path.abspath(path)]


def parse_args(argv):
    if "--" in argv:
        split = argv.index("--")
        argv, command = argv[:split], argv[split + 1:]
    else:
        command = []
    parser = argparse.ArgumentParser(
        usage="lab.py SCENARIO.json [--record FILE.jsonl] [--tool PATH] "
              "[--timeout SECONDS] [--window-ms LOW,HIGH] [--control-window-ms LOW,HIGH] "
              "[-- COMMAND ARGS...]",
        description=__doc__.splitlines()[0])
    parser.add_argument("scenario")
    parser.add_argument("--record", help="write every command the cameras received (JSON lines)")
    parser.add_argument("--tool", help="tool to run when no command is given")
    parser.add_argument("--timeout", type=float, help="stop the command after this many seconds")
    parser.add_argument("--window-ms", default="0,30", help="default discovery answer delay window")
    parser.add_argument("--control-window-ms", default="0,0", help="answer delay window of other commands")
    args = parser.parse_args(argv)
    args.command = command
    return args


def interrupt(signum, _frame):
    raise Interrupted(signal.Signals(signum).name)


def main(argv):
    args = parse_args(argv)
    for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(sig, interrupt)
    lab = None
    code = EXIT_LAB_FAILED
    try:
        command = args.command or default_command(args.tool)
        lab = Lab(load_scenario(args.scenario), (args.window_ms, args.control_window_ms))
        started = time.monotonic()
        lab.up()
        say(f"up in {time.monotonic() - started:.2f} s")
        code = lab.run_command(command, args.timeout)
    except Interrupted as signame:
        say(f"interrupted by {signame}")
        code = EXIT_INTERRUPTED
    except (LabError, OSError, ValueError, KeyError) as error:
        say(f"failed: {error}")
    finally:
        for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(sig, signal.SIG_IGN)
        if lab:
            started = time.monotonic()
            lab.down(args.record)
            say(f"down in {time.monotonic() - started:.2f} s")
    return code


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
