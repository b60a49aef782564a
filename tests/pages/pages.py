#!/usr/bin/env python3
"""Checks what the project's pages say that a program can check.

  pages.py ZELHOST [ROOT [PAGE...]]    ROOT defaults to the project, PAGE to each *.md below it

Links and their anchors lead somewhere. Files and folders of the project that stand in backticks exist. Each zelhost command and option on
a page is one that zelhost knows. No page holds a forbidden word or a path of the writer's machine. A code block below the line

  <!-- output of: COMMAND -->

holds what the command prints, run by bash in ROOT with zelhost in PATH. Lines that begin with "$ " or "> " are left out; "..." stands for
any text within a line, or alone on a line for any lines.

What a page tells the reader to make is not there yet. Files that a patch in docs/add/examples makes may be named, and a command whose file
it makes. Others are listed on their page, as patterns of the shell:

  <!-- not there yet: src/decode/new_record.h tests/new/* -->
"""
import fnmatch
import os
import pathlib
import re
import subprocess
import sys

FORBIDDEN = ("TODO", "FIXME", "TBD", "XXX")
# A page may name absolute paths below these, or below a folder that this machine does not have.
EVERYBODYS_FOLDERS = {"bin", "boot", "dev", "etc", "lib", "opt", "proc", "root", "run", "srv", "sys", "tmp", "usr", "var"}
# Below these a page may name a file without the folders before it.
SHORT_FOR = ("", "src", "host", "standin", "tests", "agent", "scenarios")
SOURCE = re.compile(r"[\w./-]+\.(cpp|h|proto|py|sh|map|cmake)")
PATH = re.compile(r"[\w.-]+(/[\w.*{},+-]+)+/?|[\w.-]+/")
MADE_BY_A_BUILD = ("build/", "agent/bin/", "agent/lib/")
MADE_BY_A_COMPILER = (".pb.h",)
LONGEST_COMMAND_S = 60
# A command begins a line or follows a prompt, a pipe, a variable that is set for it, or a program that runs it.
COMMAND = re.compile(r"(?:^|[$>|;&(] ?|/|\w=\S* |(?:sudo|time|exec|--args|--) )(?:zelhost|\./run\.sh)((?:\s+[^\s|;&()<>#]+)+)")

FENCE = re.compile(r" {0,3}(```+|~~~+)")
LIST_ITEM = re.compile(r" {0,3}([-*+]|\d+\.) ")
MARK = re.compile(r"<!-- ([a-z ]+): (.*?) -->", re.DOTALL)


class Page:
    """A page taken apart: prose and code by line."""

    def __init__(self, root, path):
        self.path = path
        self.name = path.relative_to(root).as_posix()
        text = path.read_text(encoding="utf-8")
        self.lines = text.splitlines()
        self.code = self.code_lines()
        self.prose = [(n, re.sub(r"<!--.*?-->", "", line)) for n, line in enumerate(self.lines, 1) if n not in self.code]
        self.marks = [(text.count("\n", 0, mark.end()) + 1, mark[1], mark[2]) for mark in MARK.finditer(text)]

    def code_lines(self):
        """The text of each line of a code block, by its number."""
        code, fence, in_list, before_blank = {}, None, False, True
        for number, line in enumerate(self.lines, 1):
            mark = FENCE.match(line)
            if fence is not None:
                if mark and mark[1] == fence:
                    fence = None
                    code[number] = None
                else:
                    code[number] = line
            elif mark:
                fence = mark[1]
                code[number] = None
            elif line.startswith("    ") and not in_list and (before_blank or number - 1 in code):
                code[number] = line[4:]
            elif line.strip():
                in_list = LIST_ITEM.match(line) is not None or in_list and line.startswith(" ")
            before_blank = not line.strip()
        return code

    def spans(self):
        """Each inline code span with its line."""
        return [(number, span) for number, line in self.prose for span in re.findall(r"`([^`]+)`", line)]

    def block_below(self, number):
        """The lines of the first code block below a line; none if text stands between."""
        block = []
        for at in range(number + 1, len(self.lines) + 1):
            if at in self.code:
                block.append(self.code[at])
            elif self.lines[at - 1].strip():
                break
            elif block:
                # A blank line is part of an indented block that goes on below it.
                block.append("")
        return [line.rstrip() for line in "\n".join(line for line in block if line is not None).rstrip().split("\n")] if block else []

    def anchors(self):
        found, seen = set(), {}
        for _, line in self.prose:
            if heading := re.match(r"#{1,6} +(.*?)[ #]*$", line):
                plain = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading[1]).replace("`", "")
                slug = re.sub(r"[^\w\- ]", "", plain.lower()).replace(" ", "-")
                count = seen.get(slug, 0)
                seen[slug] = count + 1
                found.add(f"{slug}-{count}" if count else slug)
            found.update(re.findall(r'<a (?:id|name)="([^"]+)"', line))
        return found


class Zelhost:
    """The commands and options of a zelhost, as its help tells them."""

    def __init__(self, program):
        self.program = program
        self.options = {"": self.options_in(self.help())}
        for command in re.findall(r"^  ([a-z]+) {2,}\S", self.help(), re.MULTILINE):
            self.options[command] = self.options_in(self.help(command))

    def help(self, *command):
        return subprocess.run([self.program, *command, "--help"], capture_output=True, text=True, check=True).stdout

    @staticmethod
    def options_in(text):
        return {option for line in re.findall(r"^ +(-.*?)(?: {2,}|$)", text, re.MULTILINE)
                for option in re.findall(r"(?<!\S)(-\w|--[a-z][\w-]*)", line)}

    def fault_of(self, words):
        """What is wrong with the words behind "zelhost", or nothing."""
        command = "" if not words or words[0].startswith("-") else words.pop(0)
        if command and not re.fullmatch(r"[a-z]+", command):
            return None  # a placeholder, or a sentence
        if command not in self.options:
            return f"zelhost has no command '{command}'"
        for word in words:
            option = re.match(r"--?[A-Za-z][\w-]*", word)
            if option and option[0] not in self.options[command]:
                return f"zelhost {command} has no option {option[0]}"
        return None


def loose(pattern):
    """An upper-case word stands for any name."""
    return re.sub(r"(?<![A-Za-z])[A-Z][A-Z_0-9]*(?![a-z])", "*", pattern)


def commands_of_zelhost(text):
    """The words behind each "zelhost" or "./run.sh" of a line of code, up to the end of that command."""
    text = re.sub(r"(^|\s)# .*", "", text)
    for found in COMMAND.finditer(text):
        # What the quotes hold is the value of an option.
        words = re.sub(r"'[^']*'|\"[^\"]*\"", "VALUE", found[1]).split()
        if words[0] != "...":
            yield [word.strip("`,.:") for word in words]


class Check:
    def __init__(self, root, zelhost, pages):
        self.root = root
        self.zelhost = zelhost
        self.pages = [Page(root, path) for path in pages]
        self.faults = []
        self.sources = None
        self.made_later = [path for patch in root.glob("docs/add/examples/*.patch")
                           for path in re.findall(r"^--- /dev/null\n\+\+\+ b/(\S+)", patch.read_text(encoding="utf-8"), re.MULTILINE)]
        self.made_later += [f"docs/man/zelhost-{pathlib.Path(path).stem}.1" for path in self.made_later
                            if path.startswith("host/commands/")]
        self.tops = {path.name for path in root.iterdir() if path.is_dir()}

    def fault(self, page, number, text):
        self.faults.append(f"{page.name}:{number}: {text}")

    def run(self):
        for page in self.pages:
            for part in (self.links, self.files, self.commands, self.words, self.outputs):
                part(page)
        return self.faults

    def links(self, page):
        for number, line in page.prose:
            plain = re.sub(r"`[^`]*`", "", line)
            for target in re.findall(r"\]\(([^)\s]+)[^)]*\)|(?:src|href)=\"([^\"]+)\"", plain):
                target = target[0] or target[1]
                if re.match(r"[a-z]+:", target):
                    continue
                file, _, anchor = target.partition("#")
                path = (page.path.parent / file).resolve() if file else page.path
                if not path.exists():
                    self.fault(page, number, f"the link {target} leads nowhere")
                elif anchor and path.suffix == ".md" and anchor not in Page(self.root, path).anchors():
                    self.fault(page, number, f"the link {target} leads to no heading")

    def files(self, page):
        later = [pattern for _, kind, patterns in page.marks if kind == "not there yet" for pattern in patterns.split()]
        for number, span in page.spans():
            for word in span.split():
                word = word.strip("\"',;:").removeprefix("./")
                if any(fnmatch.fnmatch(word, pattern) for pattern in later) or self.is_made_later(word):
                    continue
                if SOURCE.fullmatch(word) and not self.is_source(word):
                    self.fault(page, number, f"the project has no source `{word}`")
                elif PATH.fullmatch(word) and not self.is_path(page, word):
                    self.fault(page, number, f"the project has no `{word}`")

    def is_made_later(self, word):
        return any(("/" + path).endswith("/" + word) or word.endswith("/") and path.startswith(word) for path in self.made_later)

    def is_source(self, word):
        """A source may be named by the end of its path, and an upper-case word in it stands for any name."""
        if self.sources is None:
            self.sources = ["/" + path.relative_to(self.root).as_posix() for path in all_files(self.root)]
        patterns = ("*/" + word, "*/" + loose(word))
        return word.endswith(MADE_BY_A_COMPILER) or any(fnmatch.fnmatchcase(path, form) for form in patterns for path in self.sources)

    def is_path(self, page, word):
        """Only what begins like a folder of the project counts as one of its paths."""
        first = word.split("/")[0]
        if first not in self.tops or word.startswith(MADE_BY_A_BUILD):
            return True
        pattern = re.sub(r"\{[^}]*\}", "*", word.rstrip("/"))  # {a,b} is one of several
        return any(any(self.root.glob(f"{base}/{form}".lstrip("/"))) for base in SHORT_FOR for form in (pattern, loose(pattern))) \
            or any(page.path.parent.glob(pattern))

    def commands(self, page):
        if self.zelhost is None:
            return
        code, joined = [], ""
        for number, text in page.code.items():
            joined += (text or "").rstrip("\\") if (text or "").endswith("\\") else (text or "")
            if not (text or "").endswith("\\"):
                code.append((number, joined))
                joined = ""
        for number, text in code + page.spans():
            for words in commands_of_zelhost(text):
                if not self.is_made_later(f"host/commands/{words[0]}.cpp") and (fault := self.zelhost.fault_of(words)):
                    self.fault(page, number, fault)

    def words(self, page):
        for number, line in enumerate(page.lines, 1):
            for word in FORBIDDEN:
                if re.search(rf"\b{word}\b", line):
                    self.fault(page, number, f"the word {word} stands on a page")
            for folder in re.findall(r"(?<![\w./*}\])>~@-])/([a-z][\w-]*)/", line):
                if folder not in EVERYBODYS_FOLDERS and os.path.isdir("/" + folder):
                    self.fault(page, number, f"/{folder}/ is a path of somebody's machine")

    def outputs(self, page):
        for number, kind, command in page.marks:
            if kind not in ("output of", "not there yet"):
                self.fault(page, number, f"a mark '{kind}' is not known; there are 'output of' and 'not there yet'")
            if kind != "output of" or self.zelhost is None:
                continue
            wanted = [line for line in page.block_below(number) if not line.startswith(("$ ", "> "))]
            if not wanted:
                self.fault(page, number, "no code block with an output follows the mark")
                continue
            if text := difference(wanted, self.output_of(command)):
                self.fault(page, number, f"{command}: {text}")

    def output_of(self, command):
        kept = {name: value for name, value in os.environ.items() if name != "agentid" and not name.startswith("ZEL_LOG")}
        folder = str(pathlib.Path(self.zelhost.program).parent)
        kept |= {"PATH": folder + ":" + kept["PATH"], "NO_COLOR": "1", "LC_ALL": "C.UTF-8"}
        try:
            done = subprocess.run(["bash", "-c", command], cwd=self.root, env=kept, stdin=subprocess.DEVNULL, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=LONGEST_COMMAND_S, check=False)
        except subprocess.TimeoutExpired:
            return [f"no end within {LONGEST_COMMAND_S} s"]
        return [line.rstrip() for line in done.stdout.splitlines()]


def difference(wanted, printed):
    """Nothing if the lines agree. A line of dots matches any lines, dots within a line any text."""
    positions = {0}  # how many of the printed lines may be used up so far
    for line in wanted:
        if line.strip() == "...":
            positions = set(range(min(positions), len(printed) + 1))
            continue
        shape = re.compile(".*".join(map(re.escape, line.split("..."))))
        reached = {at + 1 for at in positions if at < len(printed) and shape.fullmatch(printed[at])}
        if not reached:
            at = min(positions)
            return f"the page has '{line}', printed is '{printed[at] if at < len(printed) else 'nothing more'}'"
        positions = reached
    if len(printed) not in positions:
        return f"the page ends, printed is also '{printed[min(positions)]}'"
    return None


def all_files(root):
    """The files of the project: without what is built, and without hidden folders but that of the checks before a push."""
    for folder, below, files in os.walk(root):
        below[:] = [name for name in below if name != "build" and (not name.startswith(".") or name == ".ci")]
        yield from (pathlib.Path(folder, name) for name in files)


def main():
    if len(sys.argv) < 2 or sys.argv[1].startswith("-"):
        sys.exit("usage: pages.py ZELHOST [ROOT [PAGE...]]")
    program = pathlib.Path(sys.argv[1]).resolve()
    root = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else pathlib.Path(__file__).parents[2]).resolve()
    try:
        pages = [pathlib.Path(page).resolve() for page in sys.argv[3:]] or sorted(path for path in all_files(root) if path.suffix == ".md")
        faults = Check(root, Zelhost(str(program)), pages).run()
    except OSError as failure:
        sys.exit(f"pages: {failure.filename}: {failure.strerror}; build zelhost first, and name files that exist")
    print("\n".join(faults), end="\n" if faults else "")
    if faults or not pages:
        sys.exit(f"pages: {len(faults)} fault(s) on {len(pages)} page(s)")


if __name__ == "__main__":
    main()
