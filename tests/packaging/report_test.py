#!/usr/bin/python3
"""The page of "tavstrg report" in a strict XML parser and, where one is installed, in a browser: of the example machines, of one
disk and of 128, and of disks whose names are markup.

usage: report_test.py BUILD_DIRECTORY
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

BUILD = sys.argv[1]
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EXAMPLES = os.path.join(SOURCE, "examples", "machines")
HTML = "{http://www.w3.org/1999/xhtml}"
BROWSER = shutil.which("chromium")

failures = 0


def check(what, condition):
    global failures
    if not condition:
        failures += 1
        print("FAILED: " + what, file=sys.stderr)


def page_of(machine, page):
    words = [os.path.join(BUILD, "bin", "tavstrg"), "--machine", machine, "report", page]
    subprocess.run(words, check=True, timeout=60)
    with open(page, encoding="utf-8") as file:
        return file.read()


def disks(number, **more):
    return {"hosts": [{"driver": "mpt3sas", "devices": [
        {"id": i, "ata": True, "model": f"M{i}", "serial": f"S{i}", "smart": {"failing": i == 100},
         "statistics": {"temperature": 20 + (i * 37) % 50}} | more for i in range(number)]}]}


def in_browser(page):
    """The page's elements after its script has run, and what the browser complains of."""
    words = [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--enable-logging=stderr", "--dump-dom", "file://" + page]
    done = subprocess.run(words, capture_output=True, text=True, timeout=120, check=True)
    return done.stdout, [line for line in done.stderr.splitlines() if "CONSOLE" in line]


def rows_of(dom):
    return [int(row) for row in re.findall(r'<tr id="disk(\d+)"', dom)]


def check_browser(page, text):
    dom, complaints = in_browser(page)
    check(f"the browser complains: {complaints}", not complaints)
    check("the style is refused, or the script: no header has a button", dom.count("<button") == text.count('scope="col"'))
    # Sorted by temperature; the script that clicks would be refused by the page's policy.
    clicks = "<script>for (let i of [0, 1]) document.querySelectorAll('thead button')[COLUMN].click();</script>"
    column = text[:text.index(">Temperature<")].count('<th scope="col"') - 1
    for clicked, ending in ((clicks.replace("[0, 1]", "[0]"), 1), (clicks, -1)):
        altered = text.replace("</body>", clicked.replace("COLUMN", str(column)) + "</body>")
        refused = os.path.join(os.path.dirname(page), "clicked.html")
        with open(refused, "w", encoding="utf-8") as file:
            file.write(altered)
        dom, complaints = in_browser(refused)
        check("a script that got in runs", rows_of(dom) == list(range(128)) and complaints)
        with open(refused, "w", encoding="utf-8") as file:
            file.write(re.sub("<meta http-equiv=[^>]*>", "", altered))
        rows = rows_of(in_browser(refused)[0])
        check("the table is not sorted", rows == sorted(range(128), key=lambda i: ending * (20 + (i * 37) % 50)))


def main(directory):
    hostile = {"model": "</td><script>alert(1)</script>", "serial": "]]>&amp;\"'", "revision": "<b x='"}
    for number, more in ((1, {}), (128, {}), (3, hostile)):
        machine = os.path.join(directory, f"<b>&{number}.json")
        with open(machine, "w", encoding="utf-8") as file:
            json.dump(disks(number, **more), file)
        page = os.path.join(directory, f"{number}.html")
        text = page_of(machine, page)
        root = xml.etree.ElementTree.fromstring(text)
        check(f"{number} disks: rows", len(root.findall(f".//{HTML}tbody/{HTML}tr")) == number)
        check(f"{number} disks: a script of a disk", len(list(root.iter(HTML + "script"))) == 1)
        if BROWSER and number == 128:
            check_browser(page, text)
        if more:
            cells = ["".join(cell.itertext()) for cell in root.iter(HTML + "td")]
            check("the name is not as it is", any(cell.startswith(hostile["model"][:16]) for cell in cells))
    for machine in sorted(os.listdir(EXAMPLES)):
        xml.etree.ElementTree.fromstring(page_of(os.path.join(EXAMPLES, machine), os.path.join(directory, "example.html")))


with tempfile.TemporaryDirectory() as temporary:
    main(temporary)
sys.exit(1 if failures else 0)
