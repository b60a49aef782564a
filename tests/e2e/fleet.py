#!/usr/bin/env python3
"""The sink of zelhost run and zelhost watch against a real message server on loopback, with a store of its own: the server is
killed under load and started again, connections are cut in the middle of a message and after an answer was lost, the buffer
on disk fills up, agents are killed, the server stands still, and TLS with credentials.

What must hold each time: the account of each run closes, the reader gets all that was not counted as lost, and nothing twice.

  fleet.py ZELHOST STREAM_JSON [TEST...]
"""
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

ZELHOST, STREAM = sys.argv[1:3]
WORK = tempfile.mkdtemp()
LONGEST = 120  # seconds for anything that is waited for
ENDS = ("acknowledged", "refused", "shed_full", "shed_size", "shed_age", "shed_disk", "in_memory", "buffered")
servers = []
agents = []


def check(holds, what):
    if not holds:
        raise AssertionError(what)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class Server:
    """A message server with a store that outlives it."""

    def __init__(self, name, extra=""):
        self.port = free_port()
        self.folder = os.path.join(WORK, name)
        os.makedirs(self.folder)
        self.config = os.path.join(self.folder, "server.conf")
        with open(self.config, "w") as file:
            file.write(f'listen: "127.0.0.1:{self.port}"\njetstream {{ store_dir: "{self.folder}/store" }}\n{extra}\n')
        servers.append(self)
        self.start()

    def start(self):
        log = open(os.path.join(self.folder, "log"), "a")
        self.process = subprocess.Popen(["nats-server", "-c", self.config], stdout=log, stderr=log)
        end = time.monotonic() + LONGEST
        while time.monotonic() < end:
            check(self.process.poll() is None, f"the server ended, see its log: {open(log.name).read()}")
            try:
                with socket.create_connection(("127.0.0.1", self.port), 1) as probe:
                    if probe.recv(4) == b"INFO":
                        return
            except OSError:
                time.sleep(0.02)
        raise AssertionError("the server does not start")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def address(self, subject="fleet"):
        return f"nats://127.0.0.1:{self.port}/{subject}"


class Proxy:
    """Takes connections on a port of its own and hands each to `treat`, with a connection to the server."""

    def __init__(self, server, treat):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.count = 0
        threading.Thread(target=self.work, args=(server, treat), daemon=True).start()

    def work(self, server, treat):
        while True:
            client, _ = self.listener.accept()
            self.count += 1
            try:
                upstream = socket.create_connection(("127.0.0.1", server.port))
            except OSError:
                client.close()
                continue
            threading.Thread(target=treat, args=(self.count, client, upstream), daemon=True).start()


def pump(source, target, most=None):
    """Hands bytes on, at most so many, and then cuts both connections."""
    try:
        while most is None or most > 0:
            data = source.recv(4096 if most is None else min(4096, most))
            if not data:
                break
            target.sendall(data)
            most = None if most is None else most - len(data)
    except OSError:
        pass
    for each in (source, target):
        try:
            each.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


class Agent:
    """A run with a sink. It reads from a pipe, so that the test decides when it ends."""

    def __init__(self, name, address, *options, buffer=None):
        self.name = name
        self.buffer = buffer or os.path.join(WORK, "buffer-" + name)
        self.errors = open(os.path.join(WORK, f"err-{name}-{time.monotonic_ns()}"), "w+")
        self.process = subprocess.Popen(
            [ZELHOST, "run", "--sink", address, "--sink-buffer", self.buffer, "--summary", "json", "--log", "/dev/null",
             "--log-level", "error", "--idle-ms", "20", "--queue-max", "500", *options],
            env={**os.environ, "agentid": name}, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.errors, text=True)
        self.guids = []  # of what the plug-in gave out, in its order
        self.lines = threading.Condition()
        agents.append(self)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            event = json.loads(line)
            with self.lines:
                self.guids.append(event.get("guid"))
                self.lines.notify_all()

    def play(self, *lines):
        for line in lines:
            self.process.stdin.write(json.dumps(line) + "\n")
        self.process.stdin.flush()

    def play_reports(self, count, size=1000):
        """The plug-in sheds what comes faster than it works, so it may finish some before the next. Its queue holds two
        such parts, should the machine be so busy that a worker's pause is taken for idleness."""
        for begin in range(0, count, 240):
            self.play(*[{"event": 1541, "text": "x" * size}] * min(240, count - begin), {"do": "wait"})

    def wait_for_lines(self, count):
        with self.lines:
            check(self.lines.wait_for(lambda: len(self.guids) >= count, LONGEST), f"{len(self.guids)} lines, not {count}")

    def said(self):
        self.errors.seek(0)
        return self.errors.read()

    def finish(self):
        """The sink's part of the summary, which must close."""
        self.process.stdin.close()
        code = self.process.wait(LONGEST)
        self.reader.join()
        check(code == 0, f"exit status {code}: {self.said()}")
        summary = json.loads(self.said().splitlines()[-1])
        sink = summary["sink"]
        check(sink["left_before"] + sink["handed_over"] == sum(sink[end] for end in ENDS), f"no closed account: {sink}")
        check(sink["handed_over"] == len(self.guids), f"{len(self.guids)} lines were shown: {sink}")
        return sink


def send_the_rest(name, address, *options, buffer=None):
    """Later runs without input, until the buffer is empty: what each of them says."""
    sinks = []
    while not sinks or sinks[-1]["buffered"] > 0:
        check(len(sinks) < 10, f"the buffer does not become empty: {sinks}")
        sinks.append(Agent(name, address, *options, buffer=buffer).finish())
    return sinks


def watch(address, *options):
    """All alerts in the stream by agent and GUID, and the closing words."""
    done = subprocess.run([ZELHOST, "watch", address, *options], capture_output=True, text=True, timeout=LONGEST)
    check(done.returncode == 0, f"watch: {done.stderr}")
    return [json.loads(line) for line in done.stdout.splitlines()], done.stderr


def check_reader(address, expected, messages, *options):
    """Each alert of `expected`, pairs of agent and GUID, is there, and the stream holds so many messages, none of them twice."""
    views, words = watch(address, "--once", *options)
    got = {(view["agent"], view["guid"]) for view in views}
    check(got == set(expected), f"{len(set(expected) - got)} alerts are missing, {len(got - set(expected))} are strange: {words}")
    ids = [identity for view in views for identity in view["ids"]]
    check(len(ids) == len(set(ids)) and ", 0 of them twice" in words, f"a message came twice: {words}")
    total = int(words.split()[1]) + int(words.split()[-3])
    check(total == messages, f"{total} messages in the stream instead of {messages}: {words}")
    return views


def total(sinks, key):
    return sum(sink[key] for sink in sinks)


def server_killed_under_load():
    server = Server("killed")
    watch(server.address(), "--create-stream", STREAM, "--once")
    fleet = [Agent(name, server.address()) for name in ("web.1", "web 2", "db\xe9")]
    for agent in fleet:
        threading.Thread(target=agent.play_reports, args=(4000,), daemon=True).start()
    for lines in (800, 2200):
        fleet[0].wait_for_lines(lines)
        server.kill()
        fleet[0].wait_for_lines(lines + 800)
        server.start()
    for agent in fleet:
        agent.wait_for_lines(4000)
    sinks = [agent.finish() for agent in fleet]
    check(total(sinks, "spilled") > 0, "the buffer was not used")
    for agent in fleet:
        sinks += send_the_rest(agent.name, server.address())
    check(total(sinks, "acknowledged") == 12000, f"not all is acknowledged: {sinks}")
    check_reader(server.address(), [(agent.name, guid) for agent in fleet for guid in agent.guids], 12000)
    server.kill()
    return f"12000 messages of 3 agents, {total(sinks, 'spilled')} through the buffer, {total(sinks, 'known')} known already"


def connections_cut():
    """An odd connection ends in the middle of a message, an even one loses the server's answers and ends then."""
    server = Server("cut")
    watch(server.address(), "--create-stream", STREAM, "--once")

    def treat(number, client, upstream):
        cut = number <= 8
        to_server = 60_000 + number * 4_321 if cut and number % 2 == 1 else None
        to_client = 3_000 if cut and number % 2 == 0 else None
        threading.Thread(target=pump, args=(upstream, client, to_client), daemon=True).start()
        pump(client, upstream, to_server)

    proxy = Proxy(server, treat)
    agent = Agent("cut", f"nats://127.0.0.1:{proxy.port}/fleet")
    while proxy.count <= 8:
        shown = len(agent.guids)
        agent.play_reports(400)
        agent.wait_for_lines(shown + 400)
    sinks = [agent.finish()]
    sinks += send_the_rest("cut", server.address())
    check(total(sinks, "acknowledged") == len(agent.guids), f"not all is acknowledged: {sinks}")
    check(total(sinks, "known") > 0, "no answer was lost, so the test tests nothing")
    check(sinks[0]["connections"] > 8, f"not every connection was cut: {sinks}")
    check_reader(server.address(), [("cut", guid) for guid in agent.guids], len(agent.guids))
    server.kill()
    return f"{len(agent.guids)} messages over {proxy.count} connections, {total(sinks, 'known')} sent again that had arrived"


def buffer_full():
    """Nobody listens. The newest messages are kept, the others are counted."""
    server = Server("late")
    server.kill()
    buffer = os.path.join(WORK, "buffer-full")
    agent = Agent("full", server.address(), "--sink-buffer-mb", "2")
    agent.play_reports(3000, 4000)
    agent.wait_for_lines(3000)
    sink = agent.finish()
    check(sink["shed_size"] > 0 and sink["shed_size"] + sink["buffered"] == 3000, f"lost without a count: {sink}")
    check(sink["buffer_bytes"] <= 2 << 20, f"the buffer is too large: {sink}")
    size = sum(entry.stat().st_size for entry in os.scandir(buffer))
    check(size <= 16 << 20, f"the folder holds {size} bytes")
    check("messages go to the buffer" in agent.said() and "no server answers" in agent.said(), agent.said())
    server.start()
    watch(server.address(), "--create-stream", STREAM, "--once")
    sinks = send_the_rest("full", server.address())
    check(sinks[0]["left_before"] == sink["buffered"], f"{sinks}")
    check_reader(server.address(), [("full", guid) for guid in agent.guids[-sink["buffered"]:]], sink["buffered"])
    server.kill()
    return f"{sink['shed_size']} of 3000 shed from 2 MiB, {sink['buffered']} delivered later"


def agent_killed():
    """What is in the buffer survives the agent, and nothing of it comes twice."""
    server = Server("dead")
    server.kill()
    agent = Agent("dead", server.address())
    agent.play_reports(1200)
    agent.wait_for_lines(1200)
    agent.process.kill()
    agent.process.wait()
    agent.reader.join()
    server.start()
    watch(server.address(), "--create-stream", STREAM, "--once")
    sinks = send_the_rest("dead", server.address())
    left = sinks[0]["left_before"]
    check(0 < left <= 1200, f"{left} messages were in the buffer")
    check_reader(server.address(), [("dead", guid) for guid in agent.guids[:left]], left)
    server.kill()
    return f"{left} of 1200 were in the buffer of a killed agent"


def server_stands_still():
    """The plug-in goes on, whatever the server does."""
    server = Server("still")
    watch(server.address(), "--create-stream", STREAM, "--once")
    agent = Agent("still", server.address())
    agent.play_reports(400)
    agent.wait_for_lines(400)
    server.process.send_signal(signal.SIGSTOP)
    agent.play_reports(10000)
    agent.wait_for_lines(10400)
    sinks = [agent.finish()]
    server.process.send_signal(signal.SIGCONT)
    check(total(sinks, "buffered") > 0, f"{sinks}")
    sinks += send_the_rest("still", server.address())
    check(total(sinks, "acknowledged") == 10400, f"{sinks}")
    check_reader(server.address(), [("still", guid) for guid in agent.guids], 10400)
    server.kill()
    return f"10000 messages while the server stood still, {sinks[0]['buffered']} of them left to the next run"


def what_a_server_refuses():
    """Without a stream all waits; what is too large is given up, the rest goes on."""
    server = Server("picky", "max_payload: 65536")
    agent = Agent("picky", server.address())
    agent.play({"event": 1541, "text": "a"}, {"event": 1541, "text": "b" * 70000}, {"event": 1541, "text": "c"})
    sinks = [agent.finish()]
    check(sinks[0]["acknowledged"] == 0 and sinks[0]["connections"] == 1, f"{sinks}: {agent.said()}")
    check("no stream takes fleet.*.*" in agent.said(), agent.said())
    small = os.path.join(WORK, "small.json")
    with open(STREAM) as file, open(small, "w") as out:
        json.dump({**json.load(file), "max_msg_size": 4096}, out)
    watch(server.address(), "--create-stream", small, "--once")
    watch(server.address(), "--create-stream", small, "--once")
    agent2 = Agent("picky", server.address())
    agent2.play({"event": 1541, "text": "d" * 5000}, {"event": 1541, "text": "e"})
    sinks.append(agent2.finish())
    check(total(sinks, "refused") == 2 and total(sinks, "acknowledged") == 3, f"{sinks}: {agent2.said()}")
    said = agent.said() + agent2.said()
    check("larger than the server takes" in said and "message size exceeds" in said, said)
    check_reader(server.address(), [("picky", guid) for guid in [agent.guids[0], agent.guids[2], agent2.guids[1]]], 3)
    server.kill()
    return "2 too large, 3 kept"


def certificate(name, signer=None, subject_alternative=None):
    key, cert = (os.path.join(WORK, f"{name}.{ending}") for ending in ("key", "pem"))
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
               "-subj", f"/CN={name}", "-keyout", key, "-out", cert]
    if signer:
        command += ["-CA", f"{WORK}/{signer}.pem", "-CAkey", f"{WORK}/{signer}.key", "-addext", "basicConstraints=CA:FALSE"]
    if subject_alternative:
        command += ["-addext", f"subjectAltName={subject_alternative}"]
    done = subprocess.run(command, capture_output=True, text=True)
    check(done.returncode == 0, done.stderr)
    return cert, key


def tls_and_credentials():
    ca, _ = certificate("ca")
    other_ca, _ = certificate("other")
    cert, key = certificate("server", "ca", "IP:127.0.0.1")
    own_cert, own_key = certificate("agent", "ca")
    server = Server("safe", f'tls {{ cert_file: "{cert}", key_file: "{key}", ca_file: "{ca}", verify: true }}\n'
                            'authorization { users: [ { user: fleet, password: "s3:cret" } ] }')
    creds, wrong = (os.path.join(WORK, name) for name in ("creds", "wrong"))
    for path, text in ((creds, "fleet:s3:cret\n"), (wrong, "fleet:other\n")):
        with open(path, "w") as file:
            file.write(text)
    files = {"creds": creds, "ca": ca, "cert": own_cert, "key": own_key}

    def options(prefix, without=(), **other):
        chosen = {**files, **other}
        return [word for name, path in chosen.items() if name not in without for word in (f"--{prefix}{name}", path)]

    address = server.address()
    watch(address, "--create-stream", STREAM, "--once", *options(""))
    elsewhere = address.replace("127.0.0.1", "localhost")  # which is not in the certificate
    wrongs = [(address, options("sink-", creds=wrong)), (address, options("sink-", without=["creds"])),
              (address, options("sink-", ca=other_ca)), (address, options("sink-", without=["cert", "key"])),
              (elsewhere, options("sink-"))]
    guids = []
    for number, (place, words) in enumerate(wrongs):
        agent = Agent("safe", place, *words)
        agent.play({"event": 1541, "text": "x"})
        sink = agent.finish()
        check(sink["acknowledged"] == 0 and sink["buffered"] == number + 1, f"{words}: {sink}")
        check("messages go to the buffer" in agent.said(), agent.said())
        guids += agent.guids
    sinks = send_the_rest("safe", address, *options("sink-"))
    check(total(sinks, "acknowledged") == len(wrongs), f"{sinks}")
    check_reader(address, [("safe", guid) for guid in guids], len(guids), *options(""))
    for words, said in ((["--sink-ca", "/none"], "/none"), (["--sink-creds", ca], "NAME:PASSWORD"),
                        (["--sink-cert", own_cert], "--sink-key"), (["--sink-creds", "/none"], "/none")):
        done = subprocess.run([ZELHOST, "run", "--sink", address, "--sink-buffer", WORK + "/buffer-none", *words],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True)
        check(done.returncode in (1, 2) and said in done.stderr and len(done.stderr.splitlines()) == 1, done.stderr)
    server.kill()
    return f"{len(wrongs)} ways to be turned away, and one in"


def follow():
    """A reader that follows the stream over a restart of the server, and joins reports with their chains."""
    server = Server("follow")
    watch(server.address(), "--create-stream", STREAM, "--once")
    reader = subprocess.Popen([ZELHOST, "watch", server.address(), "--limit", "5"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True)
    lines = []
    agent = Agent("one", server.address(), "--not-ready", "0")
    dns = {"event": 1281, "dns": {}}
    agent.play(dns, {"do": "wait"})
    lines += [json.loads(reader.stdout.readline()) for _ in range(2)]
    server.kill()
    server.start()
    agent.play({"event": 1541, "text": "x"}, {"event": 1541, "text": "y"}, {"event": 1541, "text": "z"})
    agent.wait_for_lines(5)
    lines += [json.loads(line) for line in reader.stdout]
    check(reader.wait(LONGEST) == 0, "watch failed")
    agent.finish()
    send_the_rest("one", server.address())
    check([line["guid"] for line in lines] == agent.guids, f"{lines} {agent.guids}")
    check(lines[0]["report"] and not lines[0]["chains"] and lines[1]["report"] and len(lines[1]["chains"]) == 1, f"{lines[:2]}")
    server.kill()
    return "5 lines over a restart"


TESTS = (server_killed_under_load, connections_cut, buffer_full, agent_killed, server_stands_still, what_a_server_refuses,
         tls_and_credentials, follow)


def main():
    if shutil.which("nats-server") is None:
        print("nats-server is not installed; tools/setup.sh installs it", file=sys.stderr)
        return 77
    try:
        for test in TESTS if len(sys.argv) == 3 else [test for test in TESTS if test.__name__ in sys.argv[3:]]:
            began = time.monotonic()
            print(f"{test.__name__}: {test()}; {time.monotonic() - began:.1f} s", flush=True)
    finally:
        for each in servers + agents:
            each.process.kill()
        shutil.rmtree(WORK, ignore_errors=True)
    return 0


sys.exit(main())
