#!/usr/bin/env python3
"""Plants faults in copies of pages and sources, and fails when a check does not find one of them.

  planted_faults.py ZELHOST
"""
import importlib.machinery
import importlib.util
import pathlib
import shutil
import sys
import tempfile

sys.dont_write_bytecode = True
import pages

PROJECT = pathlib.Path(__file__).resolve().parents[2]
REFERENCE = "docs/reference.md"
OPERATE = "docs/operate.md"

# What tools/check_reference is to find: a file, a text in it, what takes its place, and a part of the line that says so.
IN_TABLES = (
    # The page has too little or says something else.
    (REFERENCE, "| `void reset_db_end(void)`", "| `void reset_db_over(void)`", "no row for the export 'void reset_db_end(void)'"),
    (REFERENCE, "uint32_t size, uint32_t context)` | traces", "uint32_t context)` | traces", "no export"),
    (REFERENCE, "| 1543 | serialised", "| 1545 | serialised", "no row for the incoming event ('1543'"),
    (REFERENCE, "| nothing; accepted and ignored", "| 769", "no incoming event ('2304', 'handled'"),
    (REFERENCE, "on unread; also in pure mode", "on unread", "no incoming event ('1541', 'handled', '')"),
    (REFERENCE, "| 771 | ", "| 772 | ", "no row for the outgoing event '771'"),
    (REFERENCE, "| queue_max | 100 |", "| queue_max | 200 |", "no setting"),
    (REFERENCE, "`/root/kq-agent/reshdlproto_flag` | at", "`/root/kq-agent/proto_flag` | at", "no row for the flag file"),
    (REFERENCE, "| `ZEL_LOG_LEVEL` |", "| `ZEL_LEVEL` |", "no row for the environment variable 'ZEL_LOG_LEVEL'"),
    (REFERENCE, "| `delay_time` | 60000", "| `delay_time` | 6000", "no live key"),
    (REFERENCE, "| `agent_cfg.json` |", "| `agent.json` |", "no row for the file with settings 'agent_cfg.json'"),
    (REFERENCE, "| WARN | `drop alarm: %s`", "| ERROR | `drop alarm: %s`", "'drop alarm: %s' is logged as WARN"),
    (REFERENCE, "`LoadMbDll failed!` |", "`LoadMbDll fails!` |", "does not log 'LoadMbDll fails!'"),
    (REFERENCE, "`invalid param` |", "`on parser json` |", "'on parser json' stands in"),
    (REFERENCE, "`init failed!` |", "init failed! |", "no row for 'init failed!'"),
    (REFERENCE, "| call | ", "| calls | ", "no row for the work that is given up 'call'"),
    (REFERENCE, "| trunk | ", "| trunkline | ", "no other page uses the word 'trunkline'"),
    (REFERENCE, "| Level | Text | Meaning |\n", "| Level | Line | Meaning |\n", "no row for"),
    (REFERENCE, "| 2304 | any |", "| 2304 |", "a row of 2 cells, its table has 3 columns"),
    (OPERATE, "`drop alarm: %s`", "`drop alert: %s`", "no row for 'drop alarm: %s'"),
    (OPERATE, "| `Unknown event!`", "| `invalid param` / `Unknown event!`", "'invalid param' stands in"),
    (OPERATE, "| `maxCost` |", "| `maxCosts` |", "no row for the figure of the statistics 'maxCost'"),
    (OPERATE, "`zelhost_traces_waiting`", "`zelhost_traces_lost`", "no metric zelhost_traces_lost"),
    # The sources have more, or something else.
    ("src/plugin/exports.map", "    reset_db_end;\n", "", "differs from the header: ['reset_db_end']"),
    ("src/platform/zelreshdl.h", "int plugin_stop(void);", "int plugin_stop(void);\nint plugin_pause(void);", "export 'int plugin_pause"),
    ("src/pipeline/reshdlwork_intake.cpp", "{event_id::kov, yes, no,", "{event_id::kov, yes, yes,", "also in pure mode"),
    ("src/pipeline/reshdlwork_intake.cpp", "{event_id::kov, yes, no,", "{event_id::kov, yes, !no,", "cannot read"),
    ("src/pipeline/reshdlwork_findings.cpp", "event_id::credible_report", "event_id::first_report", "no outgoing event '771'"),
    ("src/pipeline/settings.cpp", '"interval", 5, 1,', '"interval", 5, 2,', "no row for the setting ('zelreshdl.ini', 'config', 'interval'"),
    ("agent/reshdl/config/zelreshdl.ini", "queue_max=100", "queue_max=10", "default of a setting"),
    ("src/pipeline/settings.h", "alert_filter_disable_flag", "filter_disable_flag", "no row for the flag file"),
    ("src/trace/getprotobuf.cpp", 'getenv("agentid")', 'getenv("AGENT_ID")', "no row for the environment variable 'AGENT_ID'"),
    ("src/plugin/zelreshdl_config.cpp", 'root.get(), "queue_size"', 'root.get(), "queue_max"', "no live key ('queue_size'"),
    ("src/common/pure_mode.h", '"enable"', '"enabled"', "do not read 'enable'"),
    ("src/pipeline/sibling_modules.cpp", 'LOG_WARN("The module has', 'LOG_ERROR("The module has', "is logged as ERROR"),
    ("src/pipeline/sibling_modules.cpp", '"load moudle failed!"', '"load module failed!"', "no row for 'load module failed!'"),
    ("src/pipeline/sibling_modules.cpp", 'LOG_ERROR("load moudle failed!"', "LOG_ERROR(text", "a log call without a text"),
    ("src/pipeline/sibling_modules.cpp", 'LOG_ERROR("load', 'zel_log_output(0, "load', "finds no text"),
    ("src/trace/getiocprotobuf.cpp", '"GetThreatAlertInfo failed!"', '"GetIoc failed!"', "no row for 'GetIoc failed!'"),
    ("src/trace/getiocprotobuf.cpp", '"GetThreatAlertInfo failed!"', "text_of(stNode)", "cannot read"),
    ("src/trace/getioaprotobuf_objects.cpp", '"mutable_object_exit failed!"', '"no object"', "no row for 'no object'"),
    ("src/pipeline/reshdlwork.cpp", 'guarded("trace"', 'guarded("delayed trace"', "work that is given up 'delayed trace'"),
    ("src/common/statistics.h", '{"sentToMbCount"', '{"sentCount"', "no row for the figure of the statistics 'sentCount'"),
)

# What pages.py is to find on a page that has this text, and a part of the line that says so.
ON_PAGES = (
    ("[a](nowhere.md)", "the link nowhere.md leads nowhere"),
    ("![a](images/nothing.svg)", "the link images/nothing.svg leads nowhere"),
    ('<img src="nothing.svg">', "the link nothing.svg leads nowhere"),
    ("# One heading\n\n[a](#another-heading)", "leads to no heading"),
    ("# One\n\n    # Two\n\n[a](#two)", "leads to no heading"),
    ("[a](reference.md#imports)", "leads to no heading"),
    ("`tools/no_such_tool`", "has no `tools/no_such_tool`"),
    ("`tests/*/nothing/`", "has no `tests/*/nothing/`"),
    ("`standin/LIBRARY/nothing.h`", "no source `standin/LIBRARY/nothing.h`"),
    ("`decode/record.h`", "no source `decode/record.h`"),
    ("`no_such_file.cpp`", "no source `no_such_file.cpp`"),
    ("`zelhost runs`", "no command 'runs'"),
    ("`zelhost run --speed 3`", "zelhost run has no option --speed"),
    ("    $ cat x | build/release/agent/bin/zelhost decode --hexx 00", "no option --hexx"),
    ("    $ agentid=web-1 zelhost runs", "no command 'runs'"),
    ("`echo | (zelhost runs)`", "no command 'runs'"),
    ("```sh\n./run.sh check --stric FILE\n```", "no option --stric"),
    ("    zelhost run --log x \\\n        --loglevel debug", "no option --loglevel"),
    ("1. one\n\n    `zelhost runs`", "no command 'runs'"),
    ("TO" + "DO: more", "stands on a page"),
    ("`/home/me/file`", "/home/ is a path of somebody's machine"),
    ("<!-- output of: echo one -->\n\n    $ echo one\n    two", "the page has 'two', printed is 'one'"),
    ("<!-- output of: echo one -->\n\n    one\n    two", "printed is 'nothing more'"),
    ("<!-- output of: printf '1\\n2\\n' -->\n\n    1", "printed is also '2'"),
    ("<!-- output of: printf '1\\n2\\n3\\n' -->\n\n    ...\n    2", "printed is also '3'"),
    ("<!-- output of: zelhost decode --hex 0a -->\n\n    agent_id: ...", "the page has 'agent_id: ...'"),
    ("<!-- output of: echo one -->\n\nText.\n\n    one", "no code block with an output follows"),
    ("<!-- output: echo one -->\n\n    one", "a mark 'output' is not known"),
)

# What must stand on a page without a fault.
WITHOUT_FAULT = """# A `heading`, with signs!

[one](#a-heading-with-signs) [two](reference.md#exports) [three](../README.md) [four](https://example.com/nothing)

`src/platform/zelreshdl.h` `platform/zelreshdl.h` `zelreshdl.h` `./test.sh` `standin/LIBRARY/` `tests/{common,decode}/` `build/release/agent/`
`host/commands/NAME.cpp` `retrace.pb.h` `later/page.cpp` `/opt/agent` `libzelreshdl.so` `zelhost COMMAND --help` `zelhost run --log-level debug`
`apt remove zelhost zelreshdl` `make zelhost --jobs`

<!-- not there yet: later/* -->
<!-- output of: printf 'one 1\\n2\\n3\\nfour\\n' -->

    $ printf ...
    one ...
    ...
    four

- a list

    [a](reference.md)
"""


def load_check_reference():
    loader = importlib.machinery.SourceFileLoader("check_reference", str(PROJECT / "tools/check_reference"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_reference", loader))
    loader.exec_module(module)
    return module


def faults_in_tables(folder):
    """A line for each planted fault that is not found."""
    check = load_check_reference()
    missed = [f"without a planted fault: {fault}" for fault in check.faults_of(folder)]
    for name, text, other, expected in IN_TABLES:
        path = folder / name
        kept = path.read_text(encoding="utf-8")
        if text not in kept:
            missed.append(f"{name} does not hold: {text}")
            continue
        path.write_text(kept.replace(text, other), encoding="utf-8")
        found = check.faults_of(folder)
        if not any(expected in fault for fault in found):
            missed.append(f"{name}, {text!r} -> {other!r}: expected '{expected}', found {found}")
        path.write_text(kept, encoding="utf-8")
    return missed


def faults_on_pages(folder, program):
    """A line for each text that is not judged as it should be."""
    zelhost, page = pages.Zelhost(program), folder / "docs/page.md"
    missed = []
    for text, expected in (*ON_PAGES, (WITHOUT_FAULT, None)):
        page.write_text(text + "\n", encoding="utf-8")
        found = pages.Check(folder, zelhost, [page]).run()
        if expected is None and found or expected is not None and not any(expected in fault for fault in found):
            missed.append(f"{text!r}: expected {expected}, found {found}")
    return missed


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: planted_faults.py ZELHOST")
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / "project"
        shutil.copytree(PROJECT, copy, ignore=shutil.ignore_patterns("build", ".git"))
        missed = faults_in_tables(copy) + faults_on_pages(copy, str(pathlib.Path(sys.argv[1]).resolve()))
    print("\n".join(missed), end="\n" if missed else "")
    if missed:
        sys.exit(f"planted_faults: {len(missed)} of {len(IN_TABLES) + len(ON_PAGES) + 2} went wrong")


if __name__ == "__main__":
    main()
