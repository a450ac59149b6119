# SPDX-License-Identifier: BSD-3-Clause
"""The page that bench --report writes, laid out by a real browser: no text is cut off or lies on another, the reader's
choice of light or dark is followed. Leaves the screenshots report-light.png and report-dark.png in FOLDER.

    report_page_test.py TEV-OFFLOAD TEV_SINK CHROMIUM FOLDER
"""
import html
import itertools
import json
import pathlib
import re
import subprocess
import sys
import tempfile

TOOL, SINK, CHROMIUM, FOLDER = sys.argv[1:5]
PROBE = """<script>document.title = JSON.stringify([...document.querySelectorAll('svg')].map(svg => ({
  frame: svg.getBoundingClientRect(), paper: getComputedStyle(svg.querySelector('.paper')).fill,
  texts: [...svg.querySelectorAll('text')].map(t => ({words: t.textContent, box: t.getBoundingClientRect()}))})))</script>"""


def browse(page, *options):
    with tempfile.TemporaryDirectory() as profile:
        return subprocess.run([CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", f"--user-data-dir={profile}",
                               "--window-size=820,1400", *options, page.as_uri()], check=True, capture_output=True,
                              text=True, timeout=100).stdout


def overlap(a, b):
    return (min(a["right"], b["right"]) - max(a["left"], b["left"]) > 1 and
            min(a["bottom"], b["bottom"]) - max(a["top"], b["top"]) > 4)  # a line's box is taller than its letters


with tempfile.TemporaryDirectory() as work:
    page, probed = pathlib.Path(work, "page.html"), pathlib.Path(work, "probed.html")
    subprocess.run([TOOL, "bench", "--sink", SINK, "--op", "gemm,trsm,laswp", "--sizes", "32,64,128,256", "--repeat", "1",
                    "--report", page], check=True, capture_output=True)
    probed.write_text(page.read_text() + PROBE)
    faults, papers = [], []
    for scheme, setting in (("dark", 0), ("light", 1)):
        prefer = f"--blink-settings=preferredColorScheme={setting}"
        title = re.search("<title>(.*?)</title>", browse(probed, prefer, "--dump-dom"), re.S).group(1)
        for number, chart in enumerate(json.loads(html.unescape(title))):
            texts, frame = chart["texts"], chart["frame"]
            faults += [f"chart {number}: '{t['words']}' leaves the picture" for t in texts
                       if t["box"]["left"] < frame["left"] or t["box"]["right"] > frame["right"]]
            faults += [f"chart {number}: '{s['words']}' lies on '{t['words']}'" for s, t in itertools.combinations(texts, 2)
                       if overlap(s["box"], t["box"])]
            papers.append((scheme, chart["paper"]))
        browse(page, prefer, f"--screenshot={FOLDER}/report-{scheme}.png")
    if len(papers) != 6 or len(set(papers)) != 2:
        faults.append(f"three charts with two papers were expected: {papers}")
print(*faults, f"{len(papers)} charts", sep="\n")
sys.exit(1 if faults else 0)
