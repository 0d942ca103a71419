#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What tavstrg says of simulated machines, read by a real node exporter and a real Prometheus on the loopback interface, with the
rules of fleet: the exporter accepts it, and each alert fires, goes on and resolves as the machine changes.

usage: loopback_test.py SOURCE_DIRECTORY BUILD_DIRECTORY
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
FAILING, SLEEPING, OFF, GOOD = ("naa.5000c500b0a2000" + digit for digit in "1234")


def disk(identity, **more):
    name = identity.removeprefix("naa.")
    return {"ata": True, "model": 'A "B" \\ C', "serial": "S" + name[-4:], "wwn": name} | more


def machine(devices, adapters=1):
    """The disks behind the last of some adapters; the others have a disk each, which takes the first names."""
    hosts = [{"driver": "ahci", "devices": [disk(f"naa.5000c500b0a1000{i}")]} for i in range(adapters - 1)]
    return {"hosts": hosts + [{"driver": "mpt3sas", "transport": "sas",
                               "devices": [device | {"id": i} for i, device in enumerate(devices)]}]}


def documented(tree):
    """Name and type of each metric of the document."""
    with open(os.path.join(tree, "docs/METRICS.md"), encoding="utf-8") as page:
        return re.findall(r"^\| `(tavstrg_[a-z_]+)` \| (gauge|counter) \|", page.read(), re.M)


def write(build, work, described):
    """A pass of the tool over a machine, as a timer runs it."""
    description = os.path.join(work, "machine.json")
    with open(description, "w", encoding="utf-8") as file:
        json.dump(described, file)
    subprocess.run([os.path.join(build, "bin/tavstrg"), "--machine", description, "metrics", "--book",
                    os.path.join(work, "book"), "--output", os.path.join(work, "text/tavstrg.prom")], check=True)


def write_stopped(directory):
    """The text file as it is four hours after the last pass."""
    path = os.path.join(directory, "tavstrg.prom")
    with open(path, encoding="utf-8") as file:
        text = re.sub(r"^(tavstrg_last_success_timestamp_seconds) .*", rf"\1 {time.time() - 4 * 3600:.0f}", file.read(), flags=re.M)
    with open(os.path.join(directory, "new"), "w", encoding="utf-8") as file:
        file.write(text)
    os.rename(os.path.join(directory, "new"), path)


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


def copy_rules(tree, work):
    """The rules, without the times for which an alert must last; these are tested with promtool."""
    os.mkdir(os.path.join(work, "rules"))
    for name in ("recording.yml", "alerts.yml"):
        with open(os.path.join(tree, "fleet/rules", name), encoding="utf-8") as file:
            text = re.sub(r"\n +for: .*", "", file.read())
        with open(os.path.join(work, "rules", name), "w", encoding="utf-8") as file:
            file.write(text)


def main(tree, build, work):
    exporter_port, port = free_port(), free_port()
    text_files = os.path.join(work, "text")
    os.mkdir(text_files)
    copy_rules(tree, work)
    config = {"global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
              "rule_files": ["rules/recording.yml", "rules/alerts.yml"],
              "scrape_configs": [{"job_name": "node", "static_configs": [{"targets": [f"127.0.0.1:{exporter_port}"]}]}]}
    with open(os.path.join(work, "prometheus.yml"), "w", encoding="utf-8") as file:
        json.dump(config, file)  # which is YAML
    devices = [disk(FAILING, smart={"failing": True}), disk(SLEEPING, power={"state": "standby"}),
               disk(OFF, smart={"enabled": False}), disk(GOOD, statistics={"temperature": 40, "powerOnHours": 5})]
    write(build, work, machine(devices))
    with open(os.path.join(text_files, "tavstrg.prom"), "rb") as text:
        subprocess.run(["promtool", "check", "metrics"], stdin=text, check=True)

    def query(expression):
        reply = fetch(f"http://127.0.0.1:{port}/api/v1/query?query=" + urllib.parse.quote(expression))
        return [(sample["metric"], float(sample["value"][1])) for sample in json.loads(reply)["data"]["result"]]

    def firing():
        return {(labels["alertname"], labels.get("disk")) for labels, _ in query('ALERTS{alertstate="firing"}')}

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
            served = set(re.findall(r"^(tavstrg_[a-z_]+)[{ ]", page, re.M))
            if not served <= {name for name, _ in documented(tree)} or "tavstrg_disk_power_on_seconds_total" not in served:
                sys.exit(f"FAILED: the exporter serves {sorted(served)}")
            # The sleeping disk fires nothing.
            both = {("TavstrgDiskFailing", FAILING), ("TavstrgSmartOff", OFF)}
            awaited("a failing disk fires, and one whose SMART is off", lambda: firing() == both)
            if not query(f'tavstrg_disk_health{{disk="{SLEEPING}",state="asleep"}} == 1'):
                sys.exit("FAILED: the sleeping disk is not asleep")
            awaited("the recording rules work", lambda: query('state:tavstrg_disks:sum{state="failing"}')[0][1] == 1)
            begun = query(f'ALERTS_FOR_STATE{{alertname="TavstrgDiskFailing",disk="{FAILING}"}}')
            write(build, work, machine(devices, adapters=3))
            awaited("the name changes", lambda: query(f'tavstrg_disk_info{{disk="{FAILING}",name="sdc"}}'))
            awaited("a rule has seen it", lambda: query("state:tavstrg_disks:sum{state=\"good\"}")[0][1] == 3)
            # The value is when the alert began.
            if firing() != both or query(f'ALERTS_FOR_STATE{{alertname="TavstrgDiskFailing",disk="{FAILING}"}}') != begun:
                sys.exit(f"FAILED: after an adapter was added: {firing()}")
            new = "naa.5000c500b0a20009"
            write(build, work, machine([disk(new)] + devices[1:], adapters=3))
            awaited("a swap resolves it, and the disk is gone",
                    lambda: firing() == {("TavstrgDiskGone", FAILING), ("TavstrgSmartOff", OFF)})
            write_stopped(text_files)
            awaited("a service that stopped fires", lambda: ("TavstrgDataStale", None) in firing())
            os.unlink(os.path.join(text_files, "tavstrg.prom"))
            awaited("data that stopped coming fires", lambda: ("TavstrgDataMissing", None) in firing())
            awaited("all rules are healthy", lambda: all(
                rule["health"] == "ok" for group in
                json.loads(fetch(f"http://127.0.0.1:{port}/api/v1/rules"))["data"]["groups"] for rule in group["rules"]))
        finally:
            for program in programs:
                program.kill()
                program.wait()


if __name__ == "__main__":
    if not all(shutil.which(program) for program in ("prometheus", "prometheus-node-exporter", "promtool")):
        print("skipped: no prometheus or node exporter (scripts/install-deps.sh fleet)")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as directory:
        main(sys.argv[1], sys.argv[2], directory)
