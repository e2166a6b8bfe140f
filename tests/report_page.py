"""The report's page in a real browser: nothing but its own script runs, nothing is asked for from elsewhere, no text
from an inventory becomes part of the page, and it can be used. Arguments: the program, the folder of the samples."""

import html
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

PROGRAM, SAMPLES = sys.argv[1], pathlib.Path(sys.argv[2])

ATTACKS = [
    "</title></style></script><script>document.title = 'taken'</script>",
    "<img src=x onerror=\"document.title = 'taken'\"><svg onload=alert(1)>",
    "\"' onmouseover='alert(1)' {{title}} {{{style}}} &amp; &#60;",
    "\u202egnp.exe\u2066 \u0085 \u200f",
    "x" * 10000,
]

# How many elements are wider inside than they are, and in how many lines the text of each element stands.
SCROLLING = """return [...document.querySelectorAll(arguments[0])].filter(
    each => each.scrollWidth > each.clientWidth).length"""
LINES = """return [...document.querySelectorAll(arguments[0])].map(each => {
    const range = document.createRange();
    range.selectNodeContents(each);
    return new Set([...range.getClientRects()].map(box => box.top)).size; })"""


def hostile_metabase():
    sites = ""
    for number, text in enumerate(map(html.escape, ATTACKS), 1):
        sites += (
            f'<IIsFtpServer Location="/LM/MSFTPSVC/{number}" ServerComment="{text}" ServerState="2" '
            f'ServerBindings=":21:" GreetingMessage="{text}" AnonymousUserName="{text}" '
            f'AllowAnonymous="TRUE"/>\n<IIsFtpVirtualDir Location="/LM/MSFTPSVC/{number}/ROOT" AccessFlags="AccessWrite" '
            f'Path="{text}"/>\n<IIsFtpVirtualDir Location="/LM/MSFTPSVC/{number}/ROOT/v" Path="{text}"/>\n'
        )
    return (
        '<?xml version="1.0"?>\n<configuration xmlns="urn:microsoft-catalog:XML_Metabase_V64_0"><MBProperty>\n'
        f'<IIsFtpService Location="/LM/MSFTPSVC"/>\n{sites}</MBProperty></configuration>\n'
    )


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        options = Options()
        options.add_argument("--headless=new")
        options.add_argument("--no-sandbox")
        options.add_argument("--disable-dev-shm-usage")
        options.add_argument(f"--user-data-dir={cls.folder.name}/profile")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        folder = pathlib.Path(cls.folder.name)
        (folder / "HOSTILE.xml").write_text(hostile_metabase(), encoding="utf-8")
        for name, files in {
            "samples": [SAMPLES / "WEB01" / "MetaBase.xml", SAMPLES / "LEGACY" / "MetaBase.xml"],
            "hostile": [folder / "HOSTILE.xml"],
        }.items():
            database = folder / f"{name}.db"
            collected = subprocess.run([PROGRAM, "collect", *files, "-d", database, "-q"], stderr=subprocess.DEVNULL)
            assert collected.returncode in (0, 1)
            subprocess.run([PROGRAM, "report", "-d", database, "-o", folder / f"{name}.html"], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.folder.cleanup()

    def open(self, name):
        address = pathlib.Path(self.folder.name, f"{name}.html").as_uri()
        self.browser.get_log("performance")
        self.browser.get_log("browser")
        self.browser.get(address)
        return address

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def test_nothing_else_runs_or_is_asked_for(self):
        for name, title in (("samples", "IIS inventory: 2 servers"), ("hostile", "IIS inventory: HOSTILE")):
            with self.subTest(name):
                address = self.open(name)
                self.assertEqual(self.browser.title, title)
                self.browser.find_element(By.ID, "open").click()
                self.assertEqual(self.browser.get_log("browser"), [])
                requests = [
                    entry["message"]
                    for entry in self.browser.get_log("performance")
                    if '"Network.requestWillBeSent"' in entry["message"] and f'"url":"{address}"' not in entry["message"]
                ]
                self.assertEqual(requests, [])
                self.assertEqual(len(self.all("script")), 1)
                self.assertEqual(len(self.all("style")), 1)
                self.assertEqual(self.all("img, iframe, object, [style], [onload], [onerror], [onmouseover]"), [])
                self.assertFalse(any(sign in self.browser.page_source for sign in "\u202e\u2066\u200f\u0085"))
        # The escaped texts are shown.
        text = self.browser.find_element(By.TAG_NAME, "body").text
        self.assertIn("<script>document.title = 'taken'</script>", text)
        self.assertIn("{{title}} {{{style}}} &amp; &#60;", text)

    def test_the_filter_filters_and_parts_open(self):
        self.open("samples")
        site = next(each for each in self.all("details.item") if "Print room" in each.text)
        other = next(each for each in self.all("details.item") if "Telemetry" in each.text)
        self.assertFalse(site.get_property("open"))
        self.browser.find_element(By.ID, "filter").send_keys("d:\\print\\JOBS")
        WebDriverWait(self.browser, 60).until(lambda _: not other.is_displayed())
        self.assertTrue(site.is_displayed())
        self.assertRegex(self.browser.find_element(By.ID, "count").text, r"^[1-9]\d* of \d+$")
        site.find_element(By.TAG_NAME, "summary").click()
        self.assertIn("D:\\Print\\Jobs", site.text)
        levels = [int(each.tag_name[1]) for each in self.all("h1, h2, h3, h4")]
        for before, after in zip(levels, levels[1:]):
            self.assertLessEqual(after, before + 1)

    def test_everything_is_there_without_script_and_nothing_is_cut(self):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        try:
            self.open("samples")
            self.assertFalse(self.browser.find_element(By.ID, "tools").is_displayed())
            private = next(each for each in self.all(".tree li") if "E:\\Private" in each.get_attribute("textContent"))
            self.assertIn("not known", private.get_attribute("textContent"))
            self.assertIn("cannot be decoded", private.get_attribute("textContent"))
        finally:
            self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})
        for name in ("samples", "hostile"):
            for width in (400, 1280, 1920):
                metrics = {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}
                self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
                self.open(name)
                self.browser.find_element(By.ID, "open").click()
                for part in ["html"] + ([".wide", "table"] if width == 400 else []):
                    self.assertEqual(self.browser.execute_script(SCROLLING, part), 0, (name, width, part))

    def test_words_and_hashes_are_not_broken(self):
        self.open("samples")
        for media, width in (("screen", 1280), ("print", 718)):
            metrics = {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": media})
            for part in (".servers .hash", ".servers td:nth-child(3)"):
                self.assertEqual(self.browser.execute_script(LINES, part), [1, 1], (media, part))
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})


if __name__ == "__main__":
    os.environ["NO_COLOR"] = "1"
    unittest.main(argv=sys.argv[:1])
