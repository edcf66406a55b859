#!/usr/bin/env python3
"""The web screen in a real browser: headless Chromium loads the page that
`fieldtest serve` gives for ppsd, devsim, modemsim and radio_tavora, waits
for live values, checks that a plot has points and grows, that no attribute
shows in two panels, that gpsd's track (gpsfake replaying the project's NMEA
track) is drawn, changes a setting on the page and finds it in diag/config,
checks that a page of another origin cannot change it, and saves a screenshot.

    browser_test.py --bin build/bin --artifacts build/artifacts

Exits 77 (skipped) only when no browser or driver can be found."""

import argparse
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SKIP = 77
CONFIG = "/pps/services/radioctrl/modem0/diag/config"


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(SKIP)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Stack:
    """ppsd, devsim, modemsim, radio_tavora and fieldtest serve in a scratch folder."""

    def __init__(self, bin_dir):
        self.bin = bin_dir
        self.dir = tempfile.mkdtemp(prefix="fieldtest-browser.")
        self.env = dict(os.environ, PPS_SOCKET=os.path.join(self.dir, "ppsd.sock"))
        self.processes = []
        self.port = free_port()

    def start(self, name, *args, env=None):
        log = open(os.path.join(self.dir, name + ".log"), "w")
        process = subprocess.Popen([os.path.join(self.bin, name), *args], env=env or self.env,
                                   stdout=log, stderr=subprocess.STDOUT)
        self.processes.append(process)
        return process

    def log(self, name):
        with open(os.path.join(self.dir, name + ".log")) as f:
            return f.read()

    def wait_for(self, predicate, what, timeout=60):
        deadline = time.time() + timeout
        while time.time() < deadline:
            if predicate():
                return
            time.sleep(0.1)
        raise AssertionError(f"timed out waiting for {what}")

    def ppsctl(self, *args):
        return subprocess.run([os.path.join(self.bin, "ppsctl"), *args], env=self.env,
                              capture_output=True, text=True, timeout=10).stdout

    def up(self):
        self.start("ppsd", "--socket", self.env["PPS_SOCKET"], "--store",
                   os.path.join(self.dir, "store"))
        self.wait_for(lambda: os.path.exists(self.env["PPS_SOCKET"]), "ppsd")
        self.ppsctl("write", CONFIG, "diaglogmask::0")
        self.start("devsim")
        self.wait_for(lambda: "devsim: ready" in self.log("devsim"), "devsim")
        scenario = os.path.join(self.dir, "modem.json")
        with open(scenario, "w") as f:
            json.dump({"lte": {"period_ms": 250}}, f)
        qmi, diag = os.path.join(self.dir, "qmi.sock"), os.path.join(self.dir, "diag.sock")
        self.start("modemsim", "--qmi", "unix:" + qmi, "--diag", "unix:" + diag,
                   "--scenario", scenario)
        self.wait_for(lambda: os.path.exists(qmi), "modemsim")
        self.start("radio_tavora",
                   env=dict(self.env, QMI_DEVICE="unix:" + qmi, DIAG_DEVICE="unix:" + diag,
                                    SLOGF_STDERR="1"))
        self.wait_for(lambda: "tavora_pps started successfully." in self.log("radio_tavora"),
                      "radio_tavora")
        gps = []
        self.gpsfake = shutil.which("gpsfake")
        if self.gpsfake:
            gpsd_port = free_port()
            track = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "drive_track.nmea")
            log = open(os.path.join(self.dir, "gpsfake.log"), "w")
            self.processes.append(subprocess.Popen(
                [self.gpsfake, "-q", "-P", str(gpsd_port), "-c", "0.2", track],
                env=dict(self.env, PATH=self.env.get("PATH", "") + ":/usr/sbin"),
                stdout=log, stderr=subprocess.STDOUT))
            gps = ["--gpsd", f"127.0.0.1:{gpsd_port}"]
        self.start("fieldtest", "serve", "--listen", f"127.0.0.1:{self.port}", "--interval", "1",
                   "--timeout", "3", "--record", os.path.join(self.dir, "recordings"), *gps)
        self.wait_for(lambda: "the field-test screen is on" in self.log("fieldtest"),
                      "fieldtest serve")

    def down(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in reversed(self.processes):
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()


def browser():
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        skip("python3-selenium is not installed")
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    driver = shutil.which("chromedriver")
    if not chromium or not driver:
        skip("chromium and chromium-driver are not installed")
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for arg in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                "--window-size=1400,2600"):
        options.add_argument(arg)
    return webdriver.Chrome(service=Service(driver), options=options)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", required=True)
    parser.add_argument("--artifacts", required=True)
    parser.add_argument("--settle", type=float, default=0,
                        help="seconds to let the plots fill before the screenshot")
    args = parser.parse_args()

    from_page = None
    stack = Stack(os.path.abspath(args.bin))
    try:
        stack.up()
        page = browser()
        from_page = page
        page.get(f"http://127.0.0.1:{stack.port}/")

        def script(text):
            return page.execute_script(text)

        # The settings form comes from the server; switch the log mask on
        # from the page and find it in diag/config.
        stack.wait_for(lambda: script("return !!document.getElementById('apply-diaglogmask')"),
                       "the settings form")
        script("document.getElementById('setting-diaglogmask').value = '1';"
               "document.getElementById('apply-diaglogmask').click();")
        stack.wait_for(lambda: "diaglogmask::1" in stack.ppsctl("read", CONFIG),
                       "diaglogmask::1 in diag/config")
        stack.wait_for(lambda: script("return window.fieldtestScreen.config.diaglogmask") == "1",
                       "the page to show the new setting")

        # A page of another origin (a second server, another port) tries what
        # a browser lets any page send: a no-cors fetch and a text/plain form
        # post. Both reach the screen (the fetch resolves, the frame loads)
        # and neither changes the setting.
        attack_dir = os.path.join(stack.dir, "attack")
        os.makedirs(attack_dir)
        target = f"http://127.0.0.1:{stack.port}/api/config"
        with open(os.path.join(attack_dir, "index.html"), "w") as f:
            f.write(f'''<!doctype html><body>
<iframe name="sink"></iframe>
<form id="f" method="POST" action="{target}" enctype="text/plain" target="sink">
<input name='{{"name": "diaglogmask", "value": "0", "x": "' value='"}}'></form>
<script>
window.fetched = null; window.posted = false;
fetch("{target}", {{method: "POST", mode: "no-cors",
  body: JSON.stringify({{name: "diaglogmask", value: "0"}})}})
  .then(() => {{ window.fetched = "answered"; }}, () => {{ window.fetched = "failed"; }});
document.querySelector("iframe").onload = () => {{ window.posted = true; }};
document.getElementById("f").submit();
</script></body>''')
        attacker_port = free_port()
        attacker = subprocess.Popen(
            [sys.executable, "-m", "http.server", str(attacker_port), "--bind", "127.0.0.1",
             "--directory", attack_dir], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        stack.processes.append(attacker)
        attack_page = f"http://127.0.0.1:{attacker_port}/index.html"

        def attack_loaded():
            try:
                page.get(attack_page)
                return True
            except Exception:
                return False
        stack.wait_for(attack_loaded, "the other origin's page")
        stack.wait_for(lambda: script("return window.fetched") is not None and
                       script("return window.posted"), "the other origin's requests")
        assert script("return window.fetched") == "answered", "the no-cors fetch got no answer"
        config = stack.ppsctl("read", CONFIG)
        assert "diaglogmask::1" in config and "diaglogmask::0" not in config, config
        page.get(f"http://127.0.0.1:{stack.port}/")

        # Live values: modemsim's LTE serving cell, in its panel.
        stack.wait_for(lambda: script(
            "const r = window.fieldtestScreen.reports.lteopinfo;"
            "return !!r && r.values.lte_pci === 87"), "lteopinfo's PCI on the page")
        panel = script("return document.getElementById('object-status_eutra').innerText")
        assert "lte_pci" in panel and "87" in panel, panel
        assert "No data available!" not in panel, "absent values must not show as text"

        # dm_stats' counts per code and version as a table: modemsim writes
        # 0xB0C2 as today's modems do, so its row counts translations.
        translated_b0c2 = (
            "const panel = document.getElementById('object-dm_stats');"
            "if (!panel) return null;"
            "for (const table of panel.querySelectorAll('table')) {"
            "  const head = [...table.rows[0].cells].map((c) => c.innerText.trim());"
            "  const col = head.indexOf('translated');"
            "  for (const row of [...table.rows].slice(1)) {"
            "    const cells = [...row.cells].map((c) => c.innerText.trim());"
            "    if (col >= 0 && cells[0] === 'B0C2' && cells[1] === 'v3') return Number(cells[col]);"
            "  }"
            "}"
            "return null;")
        stack.wait_for(lambda: (script(translated_b0c2) or 0) > 0,
                       "0xB0C2 v3 translated in the dm_stats table")

        # A plot with points that keep coming.
        stack.wait_for(lambda: script("return window.fieldtestScreen.pointCount('lte')") >= 3,
                       "points in the LTE plot")
        before = script("return window.fieldtestScreen.pointCount('lte')")
        stack.wait_for(lambda: script("return window.fieldtestScreen.pointCount('lte')") > before,
                       "the LTE plot to move")
        assert script("return document.getElementById('banner').hidden"), "banner shown"

        # Each attribute in one panel only, once the UMTS reports have all
        # filled theirs.
        stack.wait_for(lambda: all(script(f"return !!window.fieldtestScreen.reports.{r}")
                                   for r in ("radionwinfo", "radiostats", "umtsopinfo",
                                             "hspaopinfo", "tchtxpwr", "bearer")),
                       "every UMTS report on the page")
        # Names that two status objects both hold (the PDN attributes,
        # apn1_..., in status_utra and status_eutra) show once, in their own
        # panel.
        shown = script("return window.fieldtestScreen.panelAttributes()")
        seen = {}
        for panel_id, names in shown.items():
            for name in names:
                assert name not in seen, f"{name} shows in {seen[name]} and {panel_id}"
                seen[name] = panel_id
        assert "scell_rscp" in seen and "lte_pci" in seen, shown
        assert seen.get("apn1_name") == "object-shared", shown

        # The track, from gpsd, coloured by RSRP, and the fix in the header.
        if stack.gpsfake:
            stack.wait_for(lambda: script("return window.fieldtestScreen.trackPoints()") >= 3,
                           "the track on the map")
            position = script("return document.getElementById('position').textContent")
            assert position.startswith("52.5"), position
        else:
            print("note: gpsfake is not installed (gpsd-clients): no track to check")
        assert script("return document.getElementById('recording-state').textContent") \
            .startswith("recording fieldtest-"), "not recording"

        time.sleep(args.settle)
        os.makedirs(args.artifacts, exist_ok=True)
        shot = os.path.join(args.artifacts, "web_screen.png")
        page.save_screenshot(shot)
        print(f"screenshot: {shot}")
        print("PASSED")
        return 0
    except AssertionError as error:
        print(f"FAILED: {error}")
        for name in ("fieldtest", "radio_tavora", "modemsim"):
            try:
                print(f"--- {name} log (tail) ---\n" + stack.log(name)[-2000:])
            except OSError:
                pass
        return 1
    finally:
        if from_page is not None:
            from_page.quit()
        stack.down()
        shutil.rmtree(stack.dir, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
