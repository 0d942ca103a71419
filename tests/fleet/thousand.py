#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A thousand simulated servers of 24 disks, served to a real Prometheus with the rules of fleet: how much memory it needs, what it
takes in, and how long each query of the dashboard takes. Prints Markdown. Not a test: it takes minutes and some GiB. Times mean
little on a machine that has other work.

usage: thousand.py SOURCE_DIRECTORY BUILD_DIRECTORY [SERVERS [MINUTES]]
"""
import http.server
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

DISKS = 24
INTERVAL = 60  # seconds, as fleet/prometheus.yml
REPEATS = 5  # of each query; the fastest counts


def template(build, work):
    """What the tool says of a machine; identities and serial numbers contain SSSSSS, the server's number."""
    devices = [{"id": i, "ata": True, "model": "NORDWIND NW8000" if i % 2 else "HALDEN DC960", "serial": f"999999{i:02}",
                "wwn": f"5000c5999999{i:04x}", "rotationRate": 7200 * (i % 2), "smart": {"failing": i == 23},
                "statistics": {"powerOnHours": 20000, "temperature": 35, "uncorrectableErrors": 0, "reallocatedSectors": 0,
                               "percentageUsed": 20, "sectorsRead": 10**9, "sectorsWritten": 10**9}}
               for i in range(DISKS)]
    description = os.path.join(work, "machine.json")
    with open(description, "w", encoding="utf-8") as file:
        json.dump({"hosts": [{"driver": "mpt3sas", "transport": "sas", "devices": devices}]}, file)
    done = subprocess.run([os.path.join(build, "bin/tavstrg"), "--machine", description, "metrics", "--book",
                           os.path.join(work, "book")], check=True, capture_output=True, text=True)
    return done.stdout.replace("999999", "SSSSSS")


class Servers(http.server.BaseHTTPRequestHandler):
    """Answers /N as server N, with values that change from pass to pass; one disk of a hundred servers fails."""
    protocol_version = "HTTP/1.1"
    text = ""

    def do_GET(self):  # noqa: N802
        number = int(self.path.strip("/"))
        now = time.time()
        hot = f"{30 + (number + int(now / INTERVAL)) % 20}"
        page = self.text.replace("SSSSSS", f"{number:06}")
        page = re.sub(r"(temperature_celsius\{[^}]*\}) \d+", rf"\1 {hot}", page)
        page = re.sub(r"((?:read|written)_bytes_total\{[^}]*\}) \d+", rf"\1 {int(now) * 1000000}", page)
        page = re.sub(r"(last_[a-z]+_timestamp_seconds[^ ]*) \d+", rf"\1 {now:.0f}", page)
        if number % 100:
            page = re.sub(r'(state="failing"\}) 1', r"\1 0", page)
        body = page.encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/plain; version=0.0.4")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def write_json(path, content):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(content, file)


def resident_mib(process):
    with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
        return int(re.search(r"VmRSS:\s+(\d+)", file.read())[1]) / 1024


def cpu_seconds(process):
    with open(f"/proc/{process.pid}/stat", encoding="utf-8") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def dashboard_queries(tree):
    with open(os.path.join(tree, "fleet/dashboard.json"), encoding="utf-8") as file:
        for panel in json.load(file)["panels"]:
            for target in panel.get("targets", []):
                instant = target.get("instant", False) or panel["type"] == "stat"
                yield panel["title"], target["expr"], instant


def measure(tree, server, process, minutes):
    def value(expression):
        result = ask("/api/v1/query?query=" + urllib.parse.quote(expression))["data"]["result"]
        return float(result[0]["value"][1]) if result else 0.0

    def ask(path):
        with urllib.request.urlopen(server + path, timeout=120) as reply:
            return json.load(reply)

    while True:
        try:
            ask("/api/v1/query?query=1")
            break
        except OSError:
            time.sleep(0.5)
    time.sleep(2 * INTERVAL)
    begun, used = time.monotonic(), cpu_seconds(process)
    time.sleep(minutes * 60 - 2 * INTERVAL)
    cpu = (cpu_seconds(process) - used) / (time.monotonic() - begun)
    servers, firing = value('sum(up{job="node"})'), value('count(ALERTS{alertstate="firing"})')
    facts = [("servers that answer", f"{servers:.0f}"),
             ("series", f"{value('prometheus_tsdb_head_series'):.0f}"),
             ("new series in the last scrape of each server", f"{value('sum(scrape_series_added)'):.0f}"),
             ("samples taken in per second", f"{value('rate(prometheus_tsdb_head_samples_appended_total[2m])'):.0f}"),
             ("time of a scrape, 99th of 100", f"{value('quantile(0.99, scrape_duration_seconds)') * 1000:.0f} ms"),
             ("time of all rules, once a minute", f"{value('sum(prometheus_rule_group_last_duration_seconds)') * 1000:.0f} ms"),
             ("resident memory", f"{resident_mib(process):.0f} MiB"),
             ("processor time", f"{cpu * 100:.0f} % of one core"),
             ("alerts that fire", f"{firing:.0f}")]
    rules = [rule for group in ask("/api/v1/rules")["data"]["groups"] for rule in group["rules"]]
    slowest = max(rules, key=lambda rule: rule["evaluationTime"])
    facts.append(("the slowest rule", f"{slowest['name']}, {slowest['evaluationTime'] * 1000:.0f} ms"))
    print("| | |\n|---|---|")
    for what, number in facts:
        print(f"| {what} | {number} |")
    print("\n| panel | time of its query |\n|---|---|")
    for title, expression, instant in dashboard_queries(tree):
        query = urllib.parse.quote(expression.replace("$instance", "server000500").replace("$disk", ".*"))
        path = f"/api/v1/query?query={query}"
        if not instant:
            now = time.time()
            path = f"/api/v1/query_range?query={query}&start={now - 86400}&end={now}&step=120"
        taken = []
        for _ in range(REPEATS):
            start = time.monotonic()
            ask(path)
            taken.append(time.monotonic() - start)
        of = "fleet" if "$instance" not in expression else "one disk" if "$disk" in expression else "one server"
        print(f"| {of}: {title} | {min(taken) * 1000:.0f} ms |", flush=True)


def main(tree, build, servers, minutes):
    with tempfile.TemporaryDirectory() as work:
        Servers.text = template(build, work)
        http.server.ThreadingHTTPServer.request_queue_size = 1024
        source = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Servers)
        threading.Thread(target=source.serve_forever, daemon=True).start()
        shutil.copytree(os.path.join(tree, "fleet/rules"), os.path.join(work, "rules"))
        write_json(os.path.join(work, "targets.json"),
                   [{"targets": [f"127.0.0.1:{source.server_port}"],
                     "labels": {"instance": f"server{n:06}", "__metrics_path__": f"/{n}"}} for n in range(servers)])
        port = free_port()
        write_json(os.path.join(work, "prometheus.yml"), {
            "global": {"scrape_interval": f"{INTERVAL}s", "evaluation_interval": f"{INTERVAL}s"},
            "rule_files": ["rules/recording.yml", "rules/alerts.yml"],
            "scrape_configs": [{"job_name": "node", "file_sd_configs": [{"files": ["targets.json"]}]},
                               {"job_name": "itself", "static_configs": [{"targets": [f"127.0.0.1:{port}"]}]}]})
        with open(os.path.join(work, "log"), "wb") as log, subprocess.Popen(
                ["prometheus", f"--config.file={work}/prometheus.yml", f"--storage.tsdb.path={work}/data",
                 f"--web.listen-address=127.0.0.1:{port}"], stdout=log, stderr=log) as process:
            try:
                measure(tree, f"http://127.0.0.1:{port}", process, minutes)
            finally:
                process.kill()
        source.shutdown()


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else 1000, float(sys.argv[4]) if len(sys.argv) > 4 else 6)
