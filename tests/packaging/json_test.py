#!/usr/bin/python3
"""What tavstrg prints with --json is what schema/tavstrg.schema.json says, of every command, on machines of every kind,
and of commands that fail; and the schema is strict: no field can go, change its name or its type unnoticed.

usage: json_test.py BUILD_DIRECTORY
"""

import copy
import json
import os
import signal
import struct
import subprocess
import sys
import tempfile

import jsonschema

BUILD = sys.argv[1]
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TOOL = os.path.join(BUILD, "bin", "tavstrg")
MACHINES = os.path.join(SOURCE, "examples", "machines")

with open(os.path.join(SOURCE, "schema", "tavstrg.schema.json"), encoding="utf-8") as file:
    SCHEMA = json.load(file)
jsonschema.Draft202012Validator.check_schema(SCHEMA)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)
KINDS = [kind["$ref"].rsplit("/", 1)[1] for kind in SCHEMA["oneOf"]]

failures = []
seen = {kind: [] for kind in KINDS}  # documents that were met


def fail(text):
    failures.append(text)
    print("FAILED: " + text, file=sys.stderr)


def kind_of(document):
    return next((kind for kind in ("failure", "note") if kind in document), document.get("command"))


def validate(what, text):
    document = json.loads(text)
    kind = kind_of(document)
    if kind not in seen:
        fail(f"{what}: a document of no kind: {text[:200]}")
        return None
    # Against its own kind, so that what is told is what is wrong.
    own = jsonschema.Draft202012Validator({"$ref": "#/$defs/" + kind, "$defs": SCHEMA["$defs"]})
    error = jsonschema.exceptions.best_match(own.iter_errors(document))
    if error is not None:
        fail(f"{what}: at {error.json_path}: {error.message[:300]}")
    elif not VALIDATOR.is_valid(document):
        fail(f"{what}: is of several kinds")
    seen[kind].append(document)
    return document


def run(*words, machine=None, status=0):
    """Both outputs of a command, validated: what it prints, and, when its status is 1, why it failed, in one line."""
    words = (["--machine", os.path.join(MACHINES, machine)] if machine else []) + list(words)
    what = " ".join(words)
    done = subprocess.run([TOOL, "--json"] + words, capture_output=True, text=True, timeout=60, check=False)
    if done.returncode not in (status if isinstance(status, tuple) else (status,)):
        fail(f"{what}: exit status {done.returncode}: {done.stderr}")
    lines = done.stderr.splitlines()
    if len(lines) != done.returncode:
        fail(f"{what}: exit status {done.returncode}, and on standard error {lines}")
    why = validate(what, lines[-1]) if lines else None
    return validate(what, done.stdout) if done.stdout else None, why and why["failure"]


def same(what, expected, actual):
    if expected != actual:
        fail(f"{what}: {actual!r} instead of {expected!r}")


def check_commands():
    classes = [entry["name"] for entry in run("classes")[0]["classes"]]
    for machine in sorted(os.listdir(MACHINES)):
        for command in (["show"], ["metrics", "--classes"]):
            _, why = run(*command, machine=machine, status=(0, 1))
            # Without options.inf the provider refuses the kernels of some machines.
            if why is not None and "kernel release" not in why["messages"][0]:
                fail(f"{machine}: {command[0]}: {why['messages']}")
        run("disks", machine=machine)
        _, why = run("metrics", machine=machine, status=(0, 1))
        if why is not None and "/sys/block" not in why["messages"][0]:  # the kernels before it
            fail(f"{machine}: metrics: {why['messages']}")
    for machine in ("empty.json", "failing.json", "ide.json", "workstation.json"):
        for name in classes:
            printed, why = run("enum", name, machine=machine, status=(0, 1))
            if name == "TAV_StorageDisk":
                same(f"{machine}: {name} without its option", (None, 1), (printed, why["cimStatus"]))
                continue
            same(f"{machine}: {name} is printed or refused", printed is None, why is not None and why["cimStatus"] == 6)
    run("disk", "sdb", machine="failing.json")
    same("disks that need attention", [], run("health", machine="workstation.json")[0]["disks"])
    run("get", "Config", machine="empty.json")
    run("get", "HardDisk", "1", machine="ide.json")
    run("call", "Config", "SetMonitorCycle", "MonitorCycle=90", machine="empty.json")
    printed, why = run("call", "Thread", "StartMonitoringThread", machine="empty.json", status=1)
    same("what a method returns", ([1], 1), (printed["returnValues"], why["cimStatus"]))
    run("check", machine="failing.json")


def check_every_disk(directory):
    """The class that needs a line in options.inf, with what the engine reports of the same disks."""
    with open(os.path.join(MACHINES, "mixed.json"), encoding="utf-8") as file:
        machine = json.load(file)
    machine["files"]["options.inf"] = "every-disk\n"
    path = os.path.join(directory, "every.json")
    with open(path, "w", encoding="utf-8") as file:
        json.dump(machine, file)
    printed = run("--machine", path, "enum", "Disk")[0]["instances"]
    same("the disks", [disk["id"] for disk in run("--machine", path, "disks")[0]["disks"]],
         [disk["DiskID"] for disk in printed])
    one = run("--machine", path, "get", "Disk", printed[0]["DiskID"])[0]["instance"]
    same("one of them", printed[0]["SizeBytes"], one["SizeBytes"])
    same("an id that is not there", 6, run("--machine", path, "get", "Disk", "none", status=1)[1]["cimStatus"])


def check_failures(directory):
    printed, _ = run("metrics", machine="ide.json", status=1)
    success = [metric["samples"] for metric in printed["metrics"] if metric["name"] == "tavstrg_pass_success"]
    same("the success of a failed pass", [[{"labels": {}, "value": 0}]], success)
    same("an index that is not there", 4, run("get", "HardDisk", "99", machine="ide.json", status=1)[1]["cimStatus"])
    why = run("--machine", os.path.join(directory, "none.json"), "show", status=1)[1]
    same("a machine that is not there", None, why["cimStatus"])
    run("--provider", "/nonexistent.so", "show", machine="empty.json", status=1)
    printed, _ = run("--provider", "/nonexistent.so", "metrics", "--classes", machine="empty.json", status=1)
    success = [metric["samples"] for metric in printed["metrics"] if metric["name"] == "tavstorage_collection_success"]
    same("the success of a failed collection", [[{"labels": {}, "value": 0}]], success)
    run("dump-state", os.path.join(directory, "none.dat"), status=1)
    run("check", "--root", os.path.join(directory, "none"), status=1)
    with open("/dev/full", "wb") as full:
        done = subprocess.run([TOOL, "--json", "classes"], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
    same("a full disk", "classes", validate("a full disk", done.stderr)["command"])


def check_checked(directory):
    for name, text in (("storage.inf", "ahci\n" + "x" * 65 + "\n"),
                       ("noscsi.inf", "Vendor: A\nVendor: ACME Model: DISK\n"),
                       ("tavm2ssd.inf", "outside\n[Endurance Remaining]\nM,231,100,80,60,40,20,0\nM,1\n"),
                       ("options.inf", "clean-text\nunknown\nall\n")):
        with open(os.path.join(directory, name), "w", encoding="utf-8") as written:
            written.write(text)
    printed, why = run("check", "--root", directory, status=1)
    lines = [line for file in printed["files"] for line in file["lines"]]
    same("verdicts", {"accepted", "skipped", "note"}, {line["verdict"] for line in lines})
    same("skipped lines", sum(line["verdict"] == "skipped" for line in lines), len(why["messages"]))


def check_states(directory):
    path = os.path.join(directory, "state.dat")

    def dump(content, status):
        with open(path, "wb") as written:
            written.write(content)
        return run("dump-state", path, status=status)[0]

    body = struct.pack("<5hH", 90, 10, 3600, 60, 1, 0)
    totals = struct.pack("<10H", 1, 0, 0, 0, 0, 0, 0, 0, 0, 0)
    whole = b"# Version=1.0.0.1\n" + body + totals + struct.pack("<Hh", 1, -1) + b"\xff" * 116
    same("a whole state", None, dump(whole, 0)["damage"])
    same("a tail", 4, dump(whole + b"tail", 0)["trailingBytes"])
    same("a state of another version", None, dump(whole.replace(b"1.0.0.1", b"7.0.0.1"), 1)["version"])
    for size in (0, 10, 20, 40, len(whole) - 1):
        if dump(whole[:size], 1)["damage"] is None:
            fail(f"a state of {size} bytes is whole")


def check_watch():
    words = [TOOL, "--json", "--machine", os.path.join(MACHINES, "failing.json"), "watch"]
    with subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as watch:
        alerts = [validate("watch", watch.stdout.readline()) for _ in range(9)]
        watch.send_signal(signal.SIGINT)
        _, notes = watch.communicate(timeout=60)
        same("status of watch", 0, watch.returncode)
    same("alerts", {"smartError", "lifeSpan"}, {alert["event"] for alert in alerts})
    for line in notes.splitlines():
        validate("a note of watch", line)


def check_trace():
    words = [TOOL, "--json", "--trace", "--machine", os.path.join(MACHINES, "empty.json"), "get", "Config"]
    done = subprocess.run(words, capture_output=True, text=True, timeout=60, check=False)
    notes = [validate("a trace line", line) for line in done.stderr.splitlines()]
    same("trace lines", {("get", True)}, {(note["command"], note["note"].startswith("trace: ")) for note in notes})


def places(value):
    """Every object or list of a document, with each of its keys. Of a list only the first: the others are like it."""
    inside = list(value.items()) if isinstance(value, dict) else list(enumerate(value))[:1]
    for key, child in inside:
        yield (key,)
        if isinstance(child, (dict, list)):
            yield from ((key,) + rest for rest in places(child))


def changed(document, place):
    """The document with one field gone, called otherwise, of another type, and with one more beside it."""
    for how in ("gone", "renamed", "of another type", "with another beside it"):
        other = copy.deepcopy(document)
        parent = other
        for key in place[:-1]:
            parent = parent[key]
        if isinstance(parent, list):
            parent[place[-1]] = {"no": {"such": "thing"}}
        elif how == "of another type":
            parent[place[-1]] = {"no": {"such": "thing"}}
        else:
            value = parent[place[-1]] if how == "with another beside it" else parent.pop(place[-1])
            if how != "gone":
                parent[place[-1] + "Too"] = value
        yield how, other


def check_strictness():
    for kind, documents in seen.items():
        if not documents:
            fail(f"no document of the kind {kind} was met")
            continue
        # The richest of the small ones: a large one only has more of the same.
        small = [document for document in documents if len(json.dumps(document)) < 6000]
        document = max(small or documents, key=lambda each: len(json.dumps(each)))
        for place in places(document):
            for how, other in changed(document, place):
                if VALIDATOR.is_valid(other):
                    fail(f"{kind}: {'.'.join(map(str, place))} {how} is not noticed")


with tempfile.TemporaryDirectory() as temporary:
    check_commands()
    check_every_disk(temporary)
    check_failures(temporary)
    check_checked(temporary)
    check_states(temporary)
check_watch()
check_trace()
check_strictness()
sys.exit(1 if failures else 0)
