#!/usr/bin/python3
"""Holds the schemas of zelhost against what they describe: against the decoder, by way of
libzelcheck.so, and against run.

    schema.py ZELHOST VERDICTS DEMO_SCENARIO FOLDER_OF_DOCUMENTS
"""
import copy
import glob
import json
import os
import re
import subprocess
import sys
import tempfile

from jsonschema import Draft202012Validator

host, verdicts, demo, corpus = sys.argv[1:]
failures = 0


def expect(holds, text):
    global failures
    if not holds:
        failures += 1
        print("schema.py:", text, file=sys.stderr)


def zelhost(*arguments):
    return subprocess.run([host, *arguments], capture_output=True, text=True, env={**os.environ, "agentid": "A-1"})


# --- the agent's own verdict ---

agent = subprocess.Popen([verdicts], stdin=subprocess.PIPE, stdout=subprocess.PIPE)


def refusal(document):
    """Why the agent refuses a document; empty if it does not."""
    agent.stdin.write(json.dumps(document).encode() + b"\n")
    agent.stdin.flush()
    answer = agent.stdout.readline()
    if not answer:
        sys.exit(f"schema.py: {verdicts} has ended")
    return answer.rstrip().decode("utf-8", "replace")


# --- the command ---

schemas = {}
for kind in ("document", "input", "output"):
    printed = zelhost("schema", kind).stdout
    schemas[kind] = json.loads(printed)
    Draft202012Validator.check_schema(schemas[kind])
    with tempfile.NamedTemporaryFile("r") as file:
        expect(zelhost("schema", kind, "-o", file.name).returncode == 0, f"{kind}: no file")
        expect(file.read() == printed, f"{kind} is another one in a file")
expect(json.loads(zelhost("schema").stdout) == schemas["document"], "the document is not the default")
for code, arguments in ((2, ["frob"]), (1, ["-o", "/dev/full"]), (1, ["-o", "/nowhere/x"])):
    done = zelhost("schema", *arguments)
    expect(done.returncode == code and done.stderr.count("\n") == 1, f"schema {arguments}: {done}")
valid = {kind: Draft202012Validator(schema).is_valid for kind, schema in schemas.items()}


def no_words(schema, path=""):
    """Keys that a schema names and says nothing about."""
    if isinstance(schema, dict):
        for key, value in schema.get("properties", {}).items():
            if "description" not in value and not ({"const", "enum"} & set(value)) and not re.search("/(if|anyOf)$", path):
                yield f"{path}/{key}"
        for key, value in schema.items():
            yield from no_words(value, f"{path}/{key}")
    elif isinstance(schema, list):
        for value in schema:
            yield from no_words(value, path)


for kind, schema in schemas.items():
    expect(not list(no_words(schema)), f"{kind}: no words for {list(no_words(schema))}")

# --- documents ---

# What a schema does not see: the case of keys and which of two comes first.
BEYOND = {"key_case_and_doubles.json", "event_34_type_first.json"}
BY_KEYS = re.compile(r"is missing|, an? \w+ is needed|an object with the key|no alert type|takes no event")


def changes(value):
    """Documents that differ from the value in one place, which is gone or holds another type or number."""
    if isinstance(value, dict):
        for key, child in value.items():
            yield key, {k: v for k, v in value.items() if k != key}
            for name, changed in changes(child):
                yield f"{key}.{name}", {**value, key: changed}
    elif isinstance(value, list):
        for i, child in enumerate(value[:1]):
            for name, changed in changes(child):
                yield f"[].{name}", value[:i] + [changed] + value[i + 1 :]
    elif isinstance(value, (int, float)):
        yield "half", value + 0.5
    yield "type", 5 if isinstance(value, str) else "5"
    for name, other in (("null", None), ("list", []), ("object", {}), ("wrong list", [5])):
        if type(other) is not type(value):
            yield name, other


def agrees(document, name):
    """Whether the agent takes a document. The schema has to see each refusal for a key, and no other."""
    reason = refusal(document)
    by_keys = BY_KEYS.search(reason) is not None
    expect(valid["document"](document) != by_keys, f"{name}: the agent says '{reason or 'accepted'}', the schema does not")
    return not reason


compared = 0
seen = set()
every_key = {}
seeds = set()
for path in sorted(glob.glob(corpus + "/*.json")):
    name = os.path.basename(path)
    try:
        with open(path, "rb") as file:
            document = json.loads(file.read())
    except ValueError:
        continue
    if name in BEYOND or not agrees(document, name):
        continue
    events = document["rule"][0].get("event", [{}]) if isinstance(document["rule"], list) and document["rule"] else [{}]
    kind = events[0].get("type") if isinstance(events, list) and events else None
    seeds.add(kind)
    every_key = {**(events[0] if kind else {}), **every_key}
    for change, changed in changes(document):
        # Each place once: those of an event for each type of event, those outside of rules for each type of alert.
        alert = None if change.startswith("rule.") else document["alert_type"]
        place = (alert, kind if ".event." in change else None, change)
        if place in seen:
            continue
        seen.add(place)
        compared += 1
        agrees(changed, f"{name}, {change}")
expect(compared > 2000, f"only {compared} documents compared")
print(compared, "changed documents compared with the agent's own verdict")

# One event that has the keys of all types, under each type; and each type of alert.
with open(corpus + "/event_01.json", "rb") as file:
    base = json.loads(file.read())
taken = set()
for number in [*range(-1, 64), 1000]:
    document = copy.deepcopy(base)
    document["rule"][0]["event"] = [{**every_key, "type": number}]
    if agrees(document, f"event type {number}"):
        taken.add(number)
    # All keys of all documents are there, so a key that is missing is that of a type without a document.
    reason = refusal(document)
    expect("is missing" not in reason, f"event type {number} has no document in fuzz/corpus/alert: {reason}")
    agrees({**base, "alert_type": number}, f"alert type {number}")
expect(len(taken) > 30 and not taken & {0, 30, 31, 32, 33, 1000}, f"event types {taken} are taken")
expect(taken <= seeds, f"event types {taken - seeds} have no document in fuzz/corpus/alert")
with open(corpus + "/../../alert.dict", encoding="utf-8") as file:
    dictionary = file.read()
unknown = sorted(key for key in every_key if f'"{key}"' not in dictionary)
expect(not unknown, f"fuzz/alert.dict lacks {unknown}; tools/fuzz.sh --dictionary writes it")

# --- lines ---

with open(demo, encoding="utf-8") as file:
    demo_lines = [line for line in file if not line.startswith("#")]
for line in demo_lines:
    value = json.loads(line)
    expect(valid["input"](value), f"not a line of a script: {line:.80}")
    document = value.get("alert", value if "alert_type" in value else None)
    if document is not None:
        agrees(document, f"{line:.80}")

# run skips a line if and only if the schema refuses it.
LINES = r"""
{"event":1541,"hex":"ff"}
{"event":1541,"hex":"f"}
{"event":1541,"text":5}
{"event":1541,"text":"a","hex":""}
{"event":1541}
{"event":1541,"data":null}
{"event":1541,"data":5}
{"event":-1,"text":""}
{"event":1541,"dns":{}}
{"event":1543,"message":{"dup_alerts":{"alert_guid":"a"},"traceStart":5,"cmd":"5"}}
{"event":1543,"message":{"threat":{"alert_tags":[null]},"agentId":null}}
{"event":1543,"message":{"threat":"x"}}
{"event":1543,"message":{"agent_id":5}}
{"event":1543,"message":{"cmd":"nothing"}}
{"event":1543,"message":{"agnt_id":"x"}}
{"event":1543,"message":null}
{"event":1281,"dns":{"kind":9}}
{"event":1281,"dns":{"kind":2.5}}
{"event":1281,"dns":{"variant":1}}
{"event":1281,"dns":{"kind":3,"longs":[1,2],"tail":[null,"a","b"]}}
{"event":1281,"dns":{"longs":[1,2,3]}}
{"event":1281,"text":"x"}
{"do":null,"alert_type":5}
{"do":5}
{"do":"sleep"}
{"do":"sleep","ms":-1}
{"do":"config","text":"{}"}
{"do":"file_trace","kind":"1"}
{"do":"process_trace","data":null}
{"do":"process_trace","data":null,"text":"x"}
{"do":"process_trace","data":{},"text":"x"}
{"do":"process_trace"}
{"Guid":"x"}
{"guide":"x"}
""".split()
# What run knows it lists when it is given something else: the actions, and the keys of each line.
definitions = schemas["input"]["$defs"]
actions = {name for name, schema in definitions.items() if "do" in schema.get("properties", {})}
ask = {'{"do":"?"}': actions, '{"event":1281,"dns":{"?":1}}': set(definitions["dns"]["properties"])}
ask['{"event":1,"?":1}'] = set(definitions["event"]["properties"])
ask['{"event":1281,"?":1}'] = set(definitions["dns_event"]["properties"])
for action in actions:
    ask[json.dumps({"do": action, "?": 1})] = set(definitions[action]["properties"])
lines = [line.rstrip("\n") for line in demo_lines] + LINES + list(ask)
with tempfile.NamedTemporaryFile("w", suffix=".jsonl") as script:
    script.write("\n".join(lines) + "\n")
    script.flush()
    played = zelhost("run", "--input", script.name, "--log-level", "error", "--not-ready", "0",
                     "--set", "zelreshdl:cache:cache_size=10", "--set", "zelreshdl:cache:die_num=100")  # fmt: skip
skipped = {int(n) - 1: text for n, text in re.findall(r"line (\d+) skipped: (.*)", played.stderr)}
for i, line in enumerate(lines):
    accepted = valid["input"](json.loads(line))
    expect(accepted == (i not in skipped), f"run says '{skipped.get(i, 'accepted')}', the schema does not: {line:.80}")
    if line in ask:
        known = set(skipped.get(i, "").partition("known: ")[2].split(", "))
        expect(known == ask[line], f"{line}: run knows {known}, the schema {ask[line]}")

written = [json.loads(line) for line in played.stdout.splitlines()]
for line in written:
    expect(valid["output"](line), f"not a line of the output: {json.dumps(line):.200}")
keys = {key for line in written for key in line}
expect(keys >= {"event", "memory_check", "callback", "report"}, f"the run wrote only {keys}")
expect('"latin1"' in played.stdout, "the run wrote no text that is no UTF-8")
sys.exit(failures > 0)
