#!/usr/bin/env python3
"""Opens pages of `rynctl report` in a headless Chromium and works with them as a user does.

Usage: page_test.py RYNCTL EXAMPLE_CAPTURE      Needs chromium and selenium; uses no network.
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.common.keys import Keys

RYNCTL, EXAMPLE = sys.argv[1:3]
OURS = {"browser": "0x92101081", "plug-in": "0x92101091"}


def trace(seq, way, kind, name, code, text, side="browser", **more):
    reader = (way == "in") != (kind in ("reply", "failure"))
    return json.dumps({"pid": 812 if (side == "browser") == reader else 830, "tid": 1, "seq": seq, "length": len(text),
                       "time": 1700000000 + seq / 1000, "queue": OURS[side], "way": way, "kind": kind,
                       "name": name, "code": code, "text": text, "process": "host", **more})


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        options = webdriver.ChromeOptions()
        for option in ("headless", "no-sandbox", "disable-gpu", "disable-background-networking", "window-size=1400,900"):
            options.add_argument("--" + option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(options=options)
        cls.run_script = cls.browser.execute_script

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.folder.cleanup()

    def open(self, capture, state=""):
        page = os.path.join(self.folder.name, "page.html")
        subprocess.run([RYNCTL, "report", capture, "-o", page], check=True, capture_output=True)
        self.browser.get("about:blank")
        self.browser.get(pathlib.Path(page).as_uri() + state)

    def text(self, selector):
        return self.run_script(f"return document.querySelector({selector!r}).innerText")

    def press(self, key):
        webdriver.ActionChains(self.browser).send_keys(key).perform()

    def written(self, lines):
        capture = os.path.join(self.folder.name, "capture.json")
        pathlib.Path(capture).write_text("\n".join(lines) + "\n")
        return capture

    def count(self, what):
        return int(self.text("#count-" + what).split()[0].replace(",", ""))

    def shown(self):
        return self.text("#shown")

    def tearDown(self):
        severe = [entry for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        self.assertEqual([], severe)

    def test_the_counts_are_those_of_the_capture_and_filters_choose(self):
        traces = [json.loads(line) for line in pathlib.Path(EXAMPLE).read_text().splitlines()]
        messages = [one for one in traces if one["kind"] in ("oneway", "request") and one["way"] == "in"]
        questions = [one for one in messages if one["kind"] == "request"]
        self.open(EXAMPLE)
        self.assertEqual([len(messages), len(questions), 0, 0, 0],
                         [self.count(what) for what in ("messages", "exchanges", "unanswered", "dropped", "lost")])
        label = [one for one in messages if one["name"] == "GetKeyLabel"]
        self.run_script("document.querySelector('#name').value = 'getkeyl*';"
                         "document.querySelector('#name').dispatchEvent(new Event('input'))")
        self.assertEqual(f"{len(label)} of {len(messages)} messages", self.shown())
        self.assertIn("name=getkeyl*", self.run_script("return location.hash"))
        # A link shows what one saw.
        self.open(EXAMPLE, "#to=plug-in")
        to_plugin = [one for one in messages if one["queue"] != OURS["browser"]]
        self.assertEqual(f"{len(to_plugin)} of {len(messages)} messages", self.shown())
        # A click in the table filters, and one on its heading sorts.
        self.run_script("document.querySelector('#reset').click(); document.querySelector('[data-column=name]').click()")
        names = self.run_script("return [...document.querySelectorAll('tbody button')].map((cell) => cell.innerText)")
        self.assertEqual(sorted({one["name"] for one in messages}, key=str.lower), names)
        self.run_script("document.querySelector('tbody button').click()")
        self.assertEqual(f"{sum(one['name'] == names[0] for one in messages)} of {len(messages)} messages", self.shown())

    def test_a_click_or_a_key_shows_the_whole_exchange(self):
        self.open(EXAMPLE, "#name=CreateApp")
        self.run_script("document.querySelector('.row').click(); document.querySelector('#diagram').focus()")
        detail = self.text("#detail")
        for expected in ("CreateApp", "in flight", '"url": "http://', '"orgid": 10'):
            self.assertIn(expected, detail)
        for key in (Keys.DOWN, Keys.DOWN):  # down, over the answer to the next question
            self.press(key)
        self.assertNotEqual(detail, self.text("#detail"))
        self.press(Keys.ESCAPE)
        self.assertTrue(self.run_script("return document.querySelector('#detail').hidden"))
        self.assertEqual("#name=CreateApp", self.run_script("return location.hash"))

    def test_texts_are_never_markup(self):
        evil = "</script><!--<script><img src=x onerror='document.title=\"run\"'>&lt;"
        member = json.dumps({"t": 209, evil: evil})
        self.open(self.written([
            trace(1, "out", "request", evil, 209, member, process=evil), trace(2, "in", "request", evil, 209, member),
            trace(3, "out", "reply", evil, 209, evil), trace(4, "in", "reply", evil, 209, evil, waited=20),
            trace(9, "out", "oneway", "x", 4711, evil, drop="not-sent"), evil]), "#at=0&name=%3Cscript%3E&sort=constructor")
        self.run_script("document.querySelector('#reset').click()")
        self.assertIn(evil, self.text("#detail"))
        self.assertIn("1 line could not be read, the first: ", self.text("#notes"))
        self.assertEqual("capture.json", self.run_script("return document.title"))
        self.assertEqual(0, self.run_script("return document.querySelectorAll('img').length"))
        self.assertEqual([1, 0], [self.count("dropped"), self.count("unanswered")])

    def test_what_went_wrong_stands_first(self):
        question, answer = '{"t":216}', '{"t":217,"visible":1}'
        lines = [trace(1, "out", "request", "GetVisible", 216, question), trace(1, "in", "request", "GetVisible", 216, question),
                 trace(2, "in", "request", "GetVisible", 216, question, drop="threw"),
                 trace(3, "in", "failure", "GetVisible", 216, "", result=-1, waited=70)]
        lines += [trace(4 + i, "out", "oneway", "SendKey", 244, '{"t":244,"key":%d}' % i, "plug-in") for i in range(20)]
        lines += [trace(100 + i, "in", "oneway", "SendKey", 244, '{"t":244,"key":%d}' % i, "plug-in") for i in range(20)]
        lines += [trace(200, "out", "request", "GetValue", 222, question), trace(201, "out", "request", "GetValue", 222, question, drop="no-answer", result=-1),
                  trace(200, "in", "request", "GetValue", 222, '{"t":222}', pid=999)]
        self.open(self.written(lines))
        findings = self.text("#findings")
        for expected in ("no answer\nGetVisible\nthrew", "no answer\nGetValue\nno-answer", "full queue\n5 messages to the plug-in behind 15 records",
                         "gap\n", "host (812), followed by host (999)"):
            self.assertIn(expected, findings)
        self.run_script("document.querySelector('#errors').click()")
        self.assertEqual("3 of 23 messages", self.shown())

    def test_twenty_thousand_messages_are_there_in_two_seconds(self):
        lines = []
        for i in range(10000):
            lines += [trace(3 * i + 1, "out", "request", "GetVisible", 216, '{"t":216,"appid":%d}' % i),
                      trace(3 * i + 1, "in", "request", "GetVisible", 216, '{"t":216,"appid":%d}' % i),
                      trace(3 * i + 2, "out", "reply", "GetVisible", 216, '{"visible":1}', handling=i),
                      trace(3 * i + 2, "in", "reply", "GetVisible", 216, '{"visible":1}', waited=2 * i),
                      trace(3 * i + 3, "out", "oneway", "ShowApp", 212, '{"t":212,"appid":%d}' % i),
                      trace(3 * i + 3, "in", "oneway", "ShowApp", 212, '{"t":212,"appid":%d}' % i)]
        self.open(self.written(lines))
        self.assertEqual(20000, self.count("messages"))
        print("ready after", self.run_script("return document.documentElement.dataset.ready"), "ms", file=sys.stderr)
        self.assertLess(self.run_script("return document.querySelectorAll('*').length"), 3000)
        self.run_script("document.querySelector('#diagram').focus()")
        self.press(Keys.END)
        self.assertIn('"appid": 9999', self.text("#detail"))


unittest.main(argv=sys.argv[:1])
