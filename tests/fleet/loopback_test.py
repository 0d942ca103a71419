#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A text file with the metrics of docs/METRICS.md, read by a real node exporter and a real Prometheus on the loopback interface:
the exporter accepts it, the rules are loaded, and an alert fires, keeps firing when a disk gets another name, and resolves.

usage: loopback_test.py SOURCE_DIRECTORY
"""
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

PATIENCE = 60  # seconds
STATES = ("good", "warning", "failing", "asleep", "unreadable", "off", "unknown")


def documented(tree):
    """Name and type of each metric of the document."""
    with open(os.path.join(tree, "docs/METRICS.md"), encoding="utf-8") as page:
        return re.findall(r"^\| `(tavstrg_[a-z_]+)` \| (gauge|counter) \|", page.read(), re.M)


def samples(name, disks):
    """The samples of a metric; disks: identity, state, kernel name."""
    if name == "tavstrg_build_info":
        return ['{version="1"} 1']
    if name == "tavstrg_last_success_timestamp_seconds":
        return [f" {time.time():.0f}"]
    if not name.startswith("tavstrg_disk_"):
        return [" 1"]
    if name == "tavstrg_disk_info":
        return [f'{{disk="{disk}",model="A \\"B\\" \\\\ C",serial="S",name="{kernel}",bay="1"}} 1' for disk, _, kernel in disks]
    if name == "tavstrg_disk_health":
        return [f'{{disk="{disk}",state="{each}"}} {int(each == state)}' for disk, state, _ in disks for each in STATES]
    return [f'{{disk="{disk}"}} 0.5' for disk, _, _ in disks]


def write(tree, directory, disks):
    """Replaces the text file as a whole."""
    text = "".join(
        f"# HELP {name} Text.\n# TYPE {name} {kind}\n" + "".join(f"{name}{sample}\n" for sample in samples(name, disks))
        for name, kind in documented(tree))
    with open(os.path.join(directory, "new"), "w", encoding="utf-8") as file:
        file.write(text)
    os.rename(os.path.join(directory, "new"), os.path.join(directory, "tavstrg.prom"))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetch(url):
    with urllib.request.urlopen(url, timeout=10) as reply:
        return reply.read().decode()


def awaited(what, condition):
    end = time.monotonic() + PATIENCE
    while True:
        try:
            if condition():
                return
        except (OSError, IndexError):  # not listening, or no sample yet
            pass
        if time.monotonic() > end:
            sys.exit(f"FAILED: {what}")
        time.sleep(0.2)


def main(tree, work):
    exporter_port, port = free_port(), free_port()
    text_files = os.path.join(work, "text")
    os.mkdir(text_files)
    shutil.copytree(os.path.join(tree, "fleet/rules"), os.path.join(work, "rules"))
    config = {"global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
              "rule_files": ["rules/recording.yml", "rules/alerts.yml"],
              "scrape_configs": [{"job_name": "node", "static_configs": [{"targets": [f"127.0.0.1:{exporter_port}"]}]}]}
    with open(os.path.join(work, "prometheus.yml"), "w", encoding="utf-8") as file:
        json.dump(config, file)  # which is YAML
    write(tree, text_files, [("naa.1", "failing", "sda"), ("naa.2", "good", "sdb")])

    def query(expression):
        reply = fetch(f"http://127.0.0.1:{port}/api/v1/query?query=" + urllib.parse.quote(expression))
        return [(sample["metric"], float(sample["value"][1])) for sample in json.loads(reply)["data"]["result"]]

    def firing():
        return [labels["disk"] for labels, _ in query('ALERTS{alertname="TavstrgDiskFailing",alertstate="firing"}')]

    with open(os.path.join(work, "log"), "wb") as log:
        programs = [
            subprocess.Popen(["prometheus-node-exporter", "--collector.disable-defaults", "--collector.textfile",
                              f"--collector.textfile.directory={text_files}",
                              f"--web.listen-address=127.0.0.1:{exporter_port}"], stdout=log, stderr=log),
            subprocess.Popen(["prometheus", f"--config.file={work}/prometheus.yml", f"--storage.tsdb.path={work}/data",
                              f"--web.listen-address=127.0.0.1:{port}"], stdout=log, stderr=log)]
        try:
            exporter = f"http://127.0.0.1:{exporter_port}/metrics"
            awaited("the exporter reads the text file", lambda: "node_textfile_scrape_error 0" in fetch(exporter))
            page = fetch(exporter)
            for name, _ in documented(tree):
                if not re.search(rf"^{name}[{{ ]", page, re.M):
                    sys.exit(f"FAILED: the exporter does not serve {name}")
            awaited("a failing disk fires", lambda: firing() == ["naa.1"])
            awaited("the recording rules work", lambda: query('state:tavstrg_disks:sum{state="failing"}')[0][1] == 1)
            write(tree, text_files, [("naa.1", "failing", "sdq"), ("naa.2", "good", "sda")])
            awaited("the name changes", lambda: query('tavstrg_disk_info{disk="naa.1",name="sdq"}'))
            if firing() != ["naa.1"]:
                sys.exit("FAILED: the alert does not go on under another name")
            write(tree, text_files, [("naa.3", "good", "sdq"), ("naa.2", "good", "sda")])
            awaited("a swap resolves the alert", lambda: firing() == [])
            awaited("all rules are healthy", lambda: all(
                rule["health"] == "ok" for group in
                json.loads(fetch(f"http://127.0.0.1:{port}/api/v1/rules"))["data"]["groups"] for rule in group["rules"]))
        finally:
            for program in programs:
                program.kill()
                program.wait()


if __name__ == "__main__":
    if not all(shutil.which(program) for program in ("prometheus", "prometheus-node-exporter")):
        print("skipped: no prometheus or node exporter (scripts/install-deps.sh fleet)")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as directory:
        main(sys.argv[1], directory)
