#!/usr/bin/env python3
"""The page of `tarvel inspect --html`, in a real browser. Usage: page_test.py TARVEL"""
import contextlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request

SKIPPED = 77
TAB, ENTER, RIGHT = "\ue004", "\ue007", "\ue014"
HOSTILE = "<!--</script><script>document.title='broken'</script><img/src=x/onerror=\"alert()\">"
TARVEL = sys.argv.pop(1)


class Browser:
    """Chromium, driven over WebDriver. It reaches no host, and its zone is not that of the logs."""

    def __init__(self):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True,
                                       env=os.environ | {"TZ": "Asia/Tokyo"})
        started = (re.search(r"started successfully on port (\d+)", line) for line in self.driver.stdout)
        self.url = f"http://127.0.0.1:{next(filter(None, started))[1]}/session"

    def start(self):
        flags = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--lang=en-US",
                 "--window-size=1200,900", "--host-resolver-rules=MAP * ~NOTFOUND"]
        wanted = {"capabilities": {"alwaysMatch": {"goog:chromeOptions": {"args": flags}}}}
        self.url += "/" + self.ask("", wanted)["sessionId"]

    def ask(self, path, data=None, method="POST"):
        request = urllib.request.Request(self.url + path, json.dumps(data or {}).encode(), method=method)
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(request) as answer:
            return json.load(answer)["value"]

    def run(self, script):
        """Returns what the script passes to done()."""
        return self.ask("/execute/async", {"script": f"const done = arguments[0]; {script}", "args": []})

    def get(self, expression):
        return self.run(f"done({expression})")

    def open(self, page, fragment=""):
        self.ask("/url", {"url": "about:blank"})
        self.ask("/url", {"url": page.as_uri() + fragment})

    def press(self, keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.ask("/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def close(self):
        with contextlib.suppress(OSError):  # There may be no session.
            self.ask("", method="DELETE")
        self.driver.terminate()
        self.driver.communicate()


def log_of(records):
    """Of pairs: milliseconds after 16:00, and a text with '|' for line ends."""
    stamp = "11-24 {:02}:{:02}:{:02}.{:03} 7-1 [LV_APP][x] [multiple]"
    return "".join(stamp.format(16 + at // 3_600_000, at // 60_000 % 60, at // 1000 % 60, at % 1000)
                   + text.replace("|", "\r\n") + "\n" for at, text in records)


def begin(at, *urls, httpdns="false", host=None):
    hosts = "".join(f"|host:{host or url.split('/')[2]} url:{url}" for url in urls)
    return [(at, f"Invoke send multiple_time_out:500 time_out:3000 use http dns:{httpdns}"),
            (at, f"Invoke send multiple url|---|url list[adjustment]:{hosts}"), (at, f"Send sub url request:{urls[0]}")]


def end(at, index, url, code, reason=""):
    verdict = "Business check response false" if reason else " true"
    return [(at, f"[rsp]Index:{index} code :{code}"), (at, f"[rsp]{verdict},index :{index} url:{url}"),
            (at, f"[rsp]Failure reason index :{index} code :{code} duration :1 ms reason :{reason}")]


def switch(at, kind, index, url):
    return [(at, f"[{kind}]Switch to index :{index} triggered by :{index - 1}"), (at, f"Send sub url request:{url}")]


A, B, C, D = "http://slow.example/", "http://bad.example/" + HOSTILE, "http://good.example/", "http://spare.example/"
S, T, U = "https://lbs.example/", "https://192.0.2.7/", "https://192.0.2.53/httpdns/v2/s"
OVERTAKEN = (begin(0, A, B, C, D) + [(500, "[time out]Sub url request time out index:0")] + switch(500, "time out", 1, B)
             + end(700, 1, B, 503, "\u202e\u2028" + HOSTILE + "long" * 1000) + switch(700, "rsp", 2, C)
             + end(1000, 2, C, 200))
SECOND_TRY = (begin(2000, S, httpdns="true") + end(2200, 0, S, 0, "Could not resolve host")
              + [(2200, "[rsp]All sub url has been requested"), (2200, "Request return false, use http dns if fail:true"),
                 (2200, "Use http dns,host_list size:1"), (2400, "User http dns, host:lbs.exampleip list:"),
                 (2400, "User http dns, ------192.0.2.7")]
              + begin(2400, T, host="lbs.example") + end(3000, 0, T, 200))
UNFINISHED = begin(60_000, U) + [(61_000, "later")]


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.browser.start()

    def open_page_of(self, records):
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        log, page = directory / "tarvel_comp.log", directory / "page.html"
        log.write_text(log_of(records), encoding="utf-8")
        os.utime(log, (1795600000, 1795600000))  # In November 2026; the log has no year.
        done = subprocess.run([TARVEL, "inspect", directory, "--html", page], env=os.environ | {"TZ": "UTC"},
                              stdout=subprocess.PIPE, text=True, check=True)
        self.assertEqual((done.stdout, page.stat().st_mode & 0o777), (f"wrote {page}\n", 0o600))
        self.browser.open(page)
        return page

    def expect_count(self, count, fragment=""):
        shown = self.browser.get("[document.getElementById('count').textContent, location.hash]")
        self.assertEqual(shown, [f"{count} requests", fragment])

    def test_bars_show_when_each_attempt_ran(self):
        self.open_page_of(OVERTAKEN + SECOND_TRY + UNFINISHED)
        rows = self.browser.get("""[...document.querySelectorAll('.attempt')].map((row) => {
            const [bar, track, head] = ['.bar', '.track', '.head'].map((part) => row.querySelector(part)?.getBoundingClientRect());
            const percent = (width) => Math.round(100 * width / track.width);
            return bar ? [row.querySelector('.bar').className, percent(bar.left - track.left), percent(bar.width),
                percent(head?.width ?? 0), row.querySelector('.words').textContent.slice(0, 60)] : row.textContent; })""")
        self.assertEqual(rows, [
            ["bar unfinished", 0, 100, 0, "… no end in the log"],
            ["bar failed", 0, 20, 0, "✗ failed after 200 ms: Could not resolve host"],
            ["bar good", 40, 60, 0, "✓ good, 200 after 600 ms"],
            ["bar dropped", 0, 100, 50, "– not waited for" "its head start was over after 500 ms"],
            ["bar failed", 50, 20, 0, ("✗ failed, 503 after 200 ms: \\xe2\\x80\\xae\\xe2\\x80\\xa8" + HOSTILE)[:60]],
            ["bar good", 70, 30, 0, "✓ good, 200 after 300 ms" "started when 1 had failed"],
            f"[3] {D}not started"])
        self.assertIn("lbs.example: 192.0.2.7", self.browser.get("document.querySelector('.second').textContent"))
        ticks = self.browser.get("[...document.querySelectorAll('.tick')].slice(0, 3).map((tick) => tick.textContent)")
        self.assertEqual(ticks, ["0 ms", "200 ms", "400 ms"])

    def test_hostile_texts_stay_texts_and_nothing_loads(self):
        self.open_page_of(OVERTAKEN)
        text = self.browser.get("document.getElementById('list').textContent")
        for part in (B, "\\xe2\\x80\\xae\\xe2\\x80\\xa8" + HOSTILE + "longlong"):
            self.assertIn(part, text)
        self.browser.run("""const script = document.createElement('script');
            script.textContent = "document.title = 'broken'";
            document.head.append(script);
            script.remove();
            done();""")
        self.assertEqual(self.browser.get("""[document.title.slice(0, 14), document.scripts.length,
            document.images.length, performance.getEntriesByType('resource').length]"""), ["tarvel inspect", 4, 0, 0])

    def test_filters_work_by_keyboard_and_fragment(self):
        page = self.open_page_of(OVERTAKEN + SECOND_TRY + UNFINISHED)
        self.expect_count("3 of 3")
        self.browser.press(TAB + "LBS.example")
        self.expect_count("1 of 3", "#text=LBS.example")
        self.browser.press(TAB + "f")  # Failed.
        self.expect_count("0 of 3", "#text=LBS.example&result=failed")
        self.browser.open(page, "#result=answered")
        self.expect_count("2 of 3", "#result=answered")
        self.browser.press(TAB * 4 + "11242026" + RIGHT + "040002PM")  # From the second request on.
        self.expect_count("1 of 3", "#result=answered&from=2026-11-24T16%3A00%3A02")
        self.browser.run("document.getElementById('all').focus(); done()")
        self.browser.press(ENTER)
        self.expect_count("3 of 3")

    def test_ten_thousand_requests_open_in_parts(self):
        urls = [f"http://host-{i}.example/" for i in range(10_000)]
        requests = (begin(i * 1000, url) + end(i * 1000 + 90, 0, url, 200) for i, url in enumerate(urls))
        self.open_page_of(sum(requests, []))
        self.expect_count("10,000 of 10,000")
        built = "document.querySelectorAll('article').length"
        before = self.browser.get(built)
        after = self.browser.run(f"""const list = document.getElementById('list');
            new MutationObserver(() => done({built})).observe(list, {{childList: true}});
            document.getElementById('more').scrollIntoView();""")
        self.assertTrue(10 < before < after < 1000, (before, after))
        self.browser.press(TAB + "host-9876.")
        self.expect_count("1 of 10,000", "#text=host-9876.")
        self.assertEqual(self.browser.get(built), 1)


if not shutil.which("chromium") or not shutil.which("chromedriver"):
    print("skipped: chromium or its chromedriver is not installed")
    sys.exit(SKIPPED)
unittest.main(verbosity=2)
