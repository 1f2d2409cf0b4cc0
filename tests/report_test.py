#!/usr/bin/python3
"""report_test.py PROGRAM: opens the pages that `PROGRAM report` writes in headless Chromium."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.common.keys import Keys

PROGRAM = os.path.abspath(sys.argv.pop(1))
HOSTILE = [b"</script><img src=x onerror=document.title=1>.c", b'"quo\'te".c', b"bell\a\x1b[31m.py",
           b"inv\xff\xfealid.c", "bidi\u202egpj.c".encode(), "line\u2028end\u2029.c".encode(),
           b"<!--<script>.c", b"{{data}}.c", "\u65e5\u672c.rs".encode(), b"__proto__.c"]
PYTHON = ["src/app.py", "tests/app_test.py"]
FILES = {"src/app.py": 9000, "src/net/wire.c": 3000, "tests/app_test.py": 1280, "a.gen.c": 700,
         "Cargo.lock": 50, "logo.xyz": 40, "node_modules/a/b.js": 900_000, ".cache/x": 0,
         **{os.fsdecode(name): 100 for name in HOSTILE}}


def run(*arguments):
    return subprocess.check_output([PROGRAM, *arguments], text=True)


class ReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        options.arguments.extend(["--headless=new", "--no-sandbox", "--window-size=1400,1000"])
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.page = cls.enterClassContext(webdriver.Chrome(options=options))

    def setUp(self):
        os.chdir(self.enterContext(tempfile.TemporaryDirectory()))
        for name, size in FILES.items():
            path = pathlib.Path("repo", name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(b"x" * size)
        pathlib.Path("repo/.gitignore").write_text("*.gen.c\n", encoding="ascii")

    def open(self):
        run("report", "repo", "-o", "page.html")
        self.page.get_log("browser")
        self.page.get("file://" + os.path.abspath("page.html"))
        self.assertEqual(self.page.get_log("browser"), [])

    def texts(self, selector):
        return [found.text for found in self.page.find_elements("css selector", selector)]

    def click(self, selector):
        self.page.find_element("css selector", selector).click()

    def search(self, text):
        box = self.page.find_element("id", "search")
        box.clear()
        box.send_keys(text)
        time.sleep(0.5)
        return self.texts("#results bdi")

    def test_numbers_are_those_of_the_summary(self):
        self.open()
        summary = json.loads(run("summary", "--json", "repo"))
        indexed, excluded, test = *summary.values(), summary["indexed"]["test"]
        for table, rows in (("languages", indexed["languages"]), ("verdicts", excluded["kinds"])):
            shown = " ".join(" ".join(self.texts(f"#{table} tbody tr")).split())
            for name, files, _ in (row.values() for row in rows):
                self.assertIn(f"{name.replace('_', ' ')} {files} ", shown)
        self.assertEqual([int(text.split()[0]) for text in self.texts("#totals dt + dd")],
                         [counts["files"] for counts in (indexed, test, excluded)])

    def test_names_are_text_and_nothing_in_them_runs(self):
        self.open()
        lines = (run("list", "repo") + run("list", "--excluded", "repo")).splitlines()
        paths = [line.split("\t")[0].replace("repo/", "", 1) for line in lines]
        self.assertEqual(sorted(self.search(".")), sorted(p for p in paths if "." in p))
        self.assertEqual(self.page.title, "repo · path-filter report")
        self.assertEqual(self.page.get_log("browser"), [])
        added = "e = document.createElement('script'); e.append('ran = 1'); document.body.append(e)"
        self.assertIsNone(self.page.execute_script(f"const {added}; return window.ran"))

    def test_the_map_is_gone_through_by_pointer_keyboard_and_address(self):
        self.open()
        the_map = self.page.find_element("id", "map")
        left, top = -the_map.size["width"] // 2 + 20, -the_map.size["height"] // 2 + 8
        webdriver.ActionChains(self.page).move_to_element_with_offset(the_map, left, top).perform()
        self.assertIn("src/ · directory · 2 files · 11.7 KiB", self.texts("#details")[0])
        webdriver.ActionChains(self.page).click().perform()
        self.assertTrue(self.page.current_url.endswith("html#/src"))
        self.page.back()
        webdriver.ActionChains(self.page).move_by_offset(0, the_map.size["height"] - 20).perform()
        self.assertIn("node_modules/ · directory left out whole · 1 file", self.texts("#details")[0])
        self.page.forward()
        self.click("#trail button")
        self.assertTrue(self.page.current_url.endswith("html#/"))
        self.page.back()
        the_map.send_keys(Keys.ARROW_RIGHT, Keys.ARROW_LEFT, Keys.BACKSPACE, Keys.ENTER, Keys.END)
        self.assertIn("src/net/ · directory", self.texts("#details")[0])
        the_map.send_keys(Keys.ENTER, Keys.ESCAPE, Keys.ESCAPE)
        self.assertTrue(self.page.current_url.endswith("html#/"))

    def test_search_filter_and_colours(self):
        self.open()
        net = ["src/net/", "src/net/wire.c"]
        for text, found in (
                ("net", net), ("repo/src/net", net), ("repo/src/n py", []), ("*.py", PYTHON),
                ("app_* tests", ["tests/app_test.py"]), ("b.js", []), ("n*/wire.?", net[1:]),
                ("src/ap", ["src/app.py"]), ("SRC/net/w", net[1:])):
            self.assertEqual(self.search(text), found, text)
            self.assertIn("2 files in directories left out whole", self.texts("#found")[0])
        self.click("#results button")
        self.assertTrue(self.page.current_url.endswith("html#/src/net"))
        self.click("#largest tr:nth-child(2) button")
        self.assertRegex(self.texts("#details")[0], r"gitignore .* rule \.gitignore:1:\*\.gen\.c")
        self.click("[data-key='verdict test']")
        self.assertIn("1 file · 1.2 KiB · 1 in, 0 left out", self.texts("#details")[0])
        self.assertEqual(self.texts("[aria-pressed=true]"), ["test"])
        colour = "[...map.getContext('2d').getImageData(30, 30, 1, 1).data]"
        colours = []
        for scheme in ("light", "dark"):
            media = {"features": [{"name": "prefers-color-scheme", "value": scheme}]}
            self.page.execute_cdp_cmd("Emulation.setEmulatedMedia", media)
            time.sleep(0.5)
            colours.append(self.page.execute_script(f"return {colour}"))
        self.page.execute_script(f"onafterprint = () => {{ printed = {colour} }}")
        self.page.execute_cdp_cmd("Page.printToPDF", {})
        colours.append(self.page.execute_script("return printed"))
        self.assertEqual(colours[0], colours[2])
        self.assertNotEqual(colours[0], colours[1])

    def test_many_files_are_counted_in_fewer_boxes(self):
        for number in range(100_100):
            os.close(os.open(f"repo/src/{number}.c", os.O_CREAT))
        self.open()
        self.assertRegex(self.texts("#notes")[0], r"\d+ small files")
        self.assertIn("100,119 files", self.texts("#details")[0])


unittest.main()
