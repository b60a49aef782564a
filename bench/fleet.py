#!/usr/bin/env python3
"""Figures of the sink for docs/fleet.md, against a message server of its own on loopback. Speed is not judged.

  bench/fleet.py rate      at which rate one sink begins to use its buffer, for several sizes of a message
  bench/fleet.py cost      what a message costs an agent: without a sink, with one, and while the server is away
  bench/fleet.py drain     how fast a full buffer is sent after the server has come back
  bench/fleet.py server    what a message, a subject and a connection cost the server
  bench/fleet.py cluster   the rate again with three servers that all keep each message, and one of them killed
"""
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
BUILD = os.environ.get("ZEL_BUILD_DIR", os.path.join(ROOT, "build"))
ZELHOST = os.path.join(BUILD, "release/agent/bin/zelhost")
SINK_RATE = os.path.join(BUILD, "release/bench/sink_rate")
STREAM = os.path.join(ROOT, "scenarios/fleet_stream.json")
WORK = tempfile.mkdtemp()
TICK = 0.01  # seconds between two bursts of the input


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class Server:
    def __init__(self, streams=True, options=()):
        self.port = free_port()
        self.store = tempfile.mkdtemp(dir=WORK)
        self.process = subprocess.Popen(["nats-server", "-a", "127.0.0.1", "-p", str(self.port), "-js", "-sd", self.store,
                                         *options], stderr=subprocess.DEVNULL)
        self.address = f"nats://127.0.0.1:{self.port}/fleet"
        while streams and subprocess.run([ZELHOST, "watch", "--create-stream", STREAM, "--once", self.address],
                                         capture_output=True).returncode != 0:
            time.sleep(0.05)

    def resident(self):
        with open(f"/proc/{self.process.pid}/status") as status:
            return next(int(line.split()[1]) * 1024 for line in status if line.startswith("VmRSS"))

    def end(self):
        self.process.kill()
        self.process.wait()


def run(lines, rate, address, buffer=None, *options):
    """Plays lines at a rate, all at once when it is 0: the summary, and the processor time of the run in seconds."""
    command = [ZELHOST, "run", "--events", "771", "--summary", "json", "--log", "/dev/null", "--log-level", "error",
               "--queue-max", "500", *options]
    if address:
        command += ["--sink", address, "--sink-buffer", buffer or tempfile.mkdtemp(dir=WORK)]
    process = subprocess.Popen(command, env={**os.environ, "agentid": "bench"}, stdin=subprocess.PIPE,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    burst = max(1, int(rate * TICK)) if rate else max(len(lines), 1)
    begin = time.monotonic()
    for number in range(0, len(lines), burst):
        process.stdin.write("".join(lines[number:number + burst]))
        process.stdin.flush()
        if rate:
            time.sleep(max(0.0, begin + (number + burst) / rate - time.monotonic()))
    took = time.monotonic() - begin
    process.stdin.close()
    words = process.stderr.read()
    _, _, usage = os.wait4(process.pid, 0)
    summary = json.loads(words.splitlines()[-1])
    return summary, usage.ru_utime + usage.ru_stime, len(lines) / took if took > 0 else 0


def report_lines(count, size):
    return [json.dumps({"event": 1541, "text": "x" * size}) + "\n"] * count


def load():
    return "load average " + " ".join(f"{value:.1f}" for value in os.getloadavg())


def rate():
    """Up to the rate at which one message in a hundred goes through the buffer."""
    for size in (1000, 3400, 16000):
        wanted = 1000
        while True:
            server = Server()
            line = subprocess.run([SINK_RATE, server.address, str(size), str(wanted), "3"], capture_output=True, text=True).stdout
            server.end()
            print(f"{line.strip()}; {load()}", flush=True)
            if float(line.split("(")[1].split(" %")[0]) > 1 or wanted > 200_000:
                break
            wanted = int(wanted * 1.5)
    for size in (1000, 3400):
        server = Server()
        server.end()
        line = subprocess.run([SINK_RATE, server.address, str(size), "2000", "3"], capture_output=True, text=True).stdout
        print(f"without a server: {line.strip()}; {load()}", flush=True)


def alert_lines(count):
    """The first alert of the demo with a GUID of its own each time, so that each has a message."""
    with open(os.path.join(ROOT, "scenarios/demo.jsonl")) as demo:
        alert = next(line for line in demo if '"alert_type"' in line or '"alert"' in line)
    document = json.loads(alert)
    inner = document.get("alert", document)
    lines = []
    for number in range(count):
        inner["Guid"] = f"00000000-0000-4000-8000-{number:012d}"
        lines.append(json.dumps(document) + "\n")
    return lines


def cost():
    server, away = Server(), Server()
    away.end()
    inputs = {"1541, 1000 bytes": report_lines(6000, 1000), "the demo's first alert": alert_lines(6000)}
    for name, lines in inputs.items():
        best = {}
        for _ in range(4):
            for kind, address in (("no sink", None), ("server there", server.address), ("server away", away.address)):
                summary, seconds, _ = run(lines, 2000, address)
                out = sum(summary["given_out"][key] for key in ("first_reports", "traces", "memory_checks"))
                best[kind] = min(best.get(kind, (1e9, 0)), (seconds / len(lines) * 1e6, out))
        base = best["no sink"][0]
        for kind, (micros, out) in best.items():
            print(f"{name}, 2000/s, {kind}: {micros:.1f} us of processor time for an event, {micros / base:.2f} of that "
                  f"without a sink, {out / len(lines):.2f} messages for an event; {load()}", flush=True)
    server.end()


def drain():
    for size in (1000, 3400):
        away = Server()
        away.end()
        buffer = tempfile.mkdtemp(dir=WORK)
        summary, _, _ = run(report_lines(40000, size), 8000, away.address, buffer)
        left = summary["sink"]["buffered"]
        server = Server()
        begin, sent = time.monotonic(), 0
        while left > sent:
            summary, _, _ = run([], 0, server.address, buffer, "--idle-ms", "1")
            sent += summary["sink"]["acknowledged"]
        took = time.monotonic() - begin
        server.end()
        print(f"{size} bytes: {left} messages in {took:.1f} s, {left / took:.0f}/s; {load()}", flush=True)


def server_cost():
    server = Server()
    time.sleep(1)
    before = server.resident()
    count = 60000
    for size in (1000,):
        run(report_lines(count, size), 6000, server.address)
    stored = sum(os.path.getsize(os.path.join(folder, file)) for folder, _, files in os.walk(server.store) for file in files)
    print(f"{count} messages of 1000 bytes and more: {stored / count:.0f} bytes each on the server's disk, its memory grew by "
          f"{(server.resident() - before) / 1e6:.1f} MB")
    server.end()
    for subjects in (1, 100_000):
        server = Server()
        time.sleep(1)
        before = server.resident()
        with socket.create_connection(("127.0.0.1", server.port)) as client:
            client.sendall(b'CONNECT {"verbose":false}\r\n')
            client.sendall(b"".join(b"PUB fleet.769.agent-%d 4\r\ntext\r\n" % (number % subjects) for number in range(100_000)))
            client.sendall(b"PING\r\n")
            while b"PONG" not in client.recv(65536):
                pass
        time.sleep(3)
        print(f"100000 short messages on {subjects} subjects: the server's memory grew by "
              f"{(server.resident() - before) / 1e6:.1f} MB")
        server.end()
    server = Server()
    time.sleep(1)
    before, connections = server.resident(), []
    for _ in range(2000):
        each = socket.create_connection(("127.0.0.1", server.port))
        each.sendall(b'CONNECT {"verbose":false}\r\nSUB inbox.* 1\r\nPING\r\n')
        connections.append(each)
    for each in connections:
        while b"PONG" not in each.recv(4096):
            pass
    print(f"2000 idle connections: {(server.resident() - before) / 2000 / 1e3:.1f} kB each; {load()}")
    server.end()


def cluster():
    routes = [free_port() for _ in range(3)]
    listed = ",".join(f"nats://127.0.0.1:{port}" for port in routes)
    servers = [Server(False, ["--name", f"n{port}", "--cluster_name", "fleet", "--cluster", f"nats://127.0.0.1:{port}",
                              "--routes", listed]) for port in routes]
    address = "nats://" + ",".join(f"127.0.0.1:{server.port}" for server in servers) + "/fleet"
    stream = os.path.join(WORK, "replicas.json")
    with open(STREAM) as one, open(stream, "w") as three:
        json.dump({**json.load(one), "num_replicas": 3}, three)
    while subprocess.run([ZELHOST, "watch", "--create-stream", stream, "--once", address], capture_output=True).returncode != 0:
        time.sleep(0.2)
    for wanted in (1000, 2000, 3000, 4500, 6750, 10000, 15000):
        line = subprocess.run([SINK_RATE, address, "3400", str(wanted), "3"], capture_output=True, text=True).stdout
        print(f"three replicas: {line.strip()}; {load()}", flush=True)
        if float(line.split("(")[1].split(" %")[0]) > 1:
            break
    buffer = tempfile.mkdtemp(dir=WORK)
    agent = subprocess.Popen([ZELHOST, "run", "--sink", address, "--sink-buffer", buffer, "--summary", "json", "--events", "771",
                              "--log", "/dev/null", "--log-level", "error"], stdin=subprocess.PIPE, stderr=subprocess.PIPE,
                             text=True, env={**os.environ, "agentid": "bench"})
    for number in range(60):
        agent.stdin.write("".join(report_lines(50, 3400)))
        agent.stdin.flush()
        time.sleep(0.05)
        if number == 20:
            servers[0].end()
    agent.stdin.close()
    sinks = [json.loads(agent.stderr.read().splitlines()[-1])["sink"]]
    agent.wait()
    while sinks[-1]["buffered"] > 0:
        sinks.append(run([], 0, address, buffer)[0]["sink"])
    words = ""
    while "alerts" not in words:  # a new leader may have to be found first
        words = subprocess.run([ZELHOST, "watch", "--once", address], capture_output=True, text=True).stderr.strip()
    print(f"one of three killed: {sinks[0]['handed_over']} handed over, {sum(sink['acknowledged'] for sink in sinks)} acknowledged, "
          f"{sinks[0]['spilled']} through the buffer, {sinks[0]['connections']} connections; {words}")
    for server in servers:
        server.end()


try:
    {"cluster": cluster, "rate": rate, "cost": cost, "drain": drain, "server": server_cost}[sys.argv[1]]()
finally:
    shutil.rmtree(WORK, ignore_errors=True)
