"""The explorer page (web/) in Debian's headless chromium, against the real daemon behind
lighttpd with the demo data: what an operator and a guest see and do, the chart drawn from
the trend log and the "reconnecting" state over a daemon restart (that nothing is served
without credentials is in web_front_test). Screenshots at desktop and phone widths go to WSGATE_E2E_ARTIFACTS (or
a directory of their own, named on standard error)."""

import base64
import os
import shutil
import sys
import tempfile
import unittest

from wsgate_testlib import WebFrontTestCase, wait_until

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.common.exceptions import StaleElementReferenceException
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import Select
except ImportError:
    webdriver = None

CHROMIUM = shutil.which("chromium") or "/usr/bin/chromium"
CHROMEDRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"
DESKTOP, PHONE = (1280, 1000), (390, 844)
REFUSED = "Error 401: HTTP 401 Unauthorized"


class ExplorerTest(WebFrontTestCase):

    @classmethod
    def setUpClass(cls):
        if webdriver is None or not all(os.access(p, os.X_OK) for p in (CHROMIUM, CHROMEDRIVER)):
            raise unittest.SkipTest("chromium, chromium-driver or python3-selenium is missing")
        super().setUpClass()
        cls.artifacts = (os.environ.get("WSGATE_E2E_ARTIFACTS")
                         or tempfile.mkdtemp(prefix="wsgate-explorer-"))
        os.makedirs(cls.artifacts, exist_ok=True)
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                     "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync",
                     "--user-data-dir=" + os.path.join(cls.gw.dir, "chromium"),
                     "--window-size=%d,%d" % DESKTOP):
            options.add_argument(flag)
        try:
            cls.browser = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
        except BaseException:
            super().tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        try:
            cls.browser.quit()
            print("explorer screenshots: " + cls.artifacts, file=sys.stderr)
        finally:
            super().tearDownClass()

    def open_as(self, user):
        """Opens the page with `user`'s credentials sent on every request (as a browser does
        once the user typed them) and waits until it knows the caller."""
        token = base64.b64encode(("%s:%s" % (user, self.web.passwords[user])).encode()).decode()
        self.browser.execute_cdp_cmd("Network.enable", {})
        self.browser.execute_cdp_cmd("Network.setExtraHTTPHeaders",
                                     {"headers": {"Authorization": "Basic " + token}})
        self.browser.get(self.web.url("/"))
        wait_until(lambda: self.text("#user") == user, what="the page to name " + user)

    def find(self, css):
        found = self.browser.find_elements(By.CSS_SELECTOR, css)
        return found[0] if found else None

    def text(self, css):
        try:
            found = self.find(css)
            return found.text if found is not None else None
        except StaleElementReferenceException:  # replaced by a refresh: read it next time
            return None

    def click(self, css, what):
        """Clicks `css` once it is there, again when a refresh replaced it meanwhile."""
        def clicked():
            try:
                found = self.find(css)
                return found is not None and (found.click() or True)
            except StaleElementReferenceException:
                return False
        wait_until(clicked, what=what)

    def expand(self, device):
        self.click('#devices li[data-path="%s"] > button' % device, "device " + device)
        wait_until(lambda: self.text('#devices li[data-path="%s"] tr .value' % device),
                   what="the points of " + device)

    def point(self, path, css):
        return self.find('tr[data-path="%s"] %s' % (path, css))

    def write(self, path, value):
        control = self.point(path, ".write > :first-child")
        if control.tag_name == "select":
            Select(control).select_by_visible_text(value)
        else:
            control.clear()
            control.send_keys(value)
        self.point(path, ".write button").click()
        return wait_until(lambda: (self.point(path, ".write-result").text or "").strip("…"),
                          what="the answer to writing " + path)

    def shoot(self, name, width):
        """Saves the whole page as it shows at `width` (up to 2400 pixels of its height)."""
        self.browser.set_window_size(width, DESKTOP[1])
        height, frame = self.browser.execute_script(
            "return [document.documentElement.scrollHeight,"
            "        window.outerHeight - window.innerHeight]")
        self.browser.set_window_size(width, min(height + frame, 2400))
        self.browser.execute_script("window.scrollTo(0, 0)")
        self.browser.save_screenshot(os.path.join(self.artifacts, name))

    def test_operator_reads_writes_acknowledges_and_plots(self):
        self.open_as("operator")
        wait_until(lambda: self.find("#devices li"), what="the device tree")
        self.expand("/Meter1")
        self.gw.cds("set", "/Meter1/Voltage", "Real", "231.7")
        wait_until(lambda: self.point("/Meter1/Voltage", ".value").text == "231.7",
                   what="the refreshed voltage")
        self.assertEqual(self.point("/Meter1/Voltage", "td:nth-child(3)").text, "V")
        self.assertEqual(self.point("/Meter1/Voltage", ".quality").text, "good")

        self.expand("/AHU1")
        self.assertEqual(self.write("/AHU1/Mode", "Cool"), "Cool")
        self.assertEqual(self.gw.get("/AHU1/Mode"), "2")
        self.assertEqual(self.write("/AHU1/Setpoint", "22.5"), "22.5")
        self.assertEqual(self.gw.get("/AHU1/Setpoint"), "22.5")
        # A text that is no number: the daemon's error text, as it is.
        self.assertRegex(self.write("/AHU1/Setpoint", "warm"), r"^\? \d+ ")
        self.assertEqual(self.gw.get("/AHU1/Setpoint"), "22.5")

        alarm = '#alarms tr[data-id="1001"] '
        self.click(alarm + "button", "alarm 1001")
        wait_until(lambda: self.text(alarm + ".ack-result") == "acknowledgement sent",
                   what="the acknowledgement")
        self.assertRegex(self.gw.cds("events", "--max", "1").stdout,
                         r"ack #1001 - category=10 ack=Acked variation=2 "
                         r"by Web-Services:operator@127\.0\.0\.1")

        wait_until(lambda: (self.find("#trend-params input:checked")
                            and self.find("#trend-end").get_attribute("value")),
                   what="the trend parameters of /AHU1")
        self.find("#trend-form button").click()
        drawn = wait_until(lambda: self.browser.execute_script(
            "const c = document.getElementById('trend-chart'), g = c.getContext('2d');"
            "const d = g.getImageData(0, 0, c.width, c.height).data; let n = 0;"
            # pixels of the first line's colour, #2271b1
            "for (let i = 0; i < d.length; i += 4)"
            "  if (d[i] == 34 && d[i + 1] == 113 && d[i + 2] == 177) n++;"
            "return chart && n > 100 && chart.data.datasets[0].data.length;"),
            what="the trend plot")
        self.assertGreater(drawn, 10)

        self.point("/AHU1/SupplyTemp", "button.link").click()
        wait_until(lambda: len(self.browser.find_elements(By.CSS_SELECTOR, "#log tbody tr")) > 1,
                   what="the delta log")
        self.assertEqual(self.text("#log tbody tr td:nth-child(2)"), "/AHU1/SupplyTemp")

        pattern = self.find("#search-pattern")
        pattern.send_keys("^k?W$")
        self.find("#search-form button").click()
        wait_until(lambda: self.text("#search-results tbody tr:nth-child(3)"), what="the search")
        self.assertEqual(self.text("#search-results tbody").splitlines(),
                         ["/Meter1/DemandLimit kW", "/Meter1/Power kW",
                          "/Meter1/Submeter/Power kW"])

        self.find('#devices li[data-path="/Meter1"] > button').click()  # fold it: a shorter picture
        self.shoot("explorer-desktop.png", DESKTOP[0])
        self.shoot("explorer-phone.png", PHONE[0])
        self.browser.set_window_size(*DESKTOP)

    def test_guest_sees_the_refusal_and_the_offline_device(self):
        self.open_as("guest")
        self.expand("/Meter10")
        self.assertEqual(self.point("/Meter10/Voltage", ".quality").text, "bad")
        self.expand("/AHU1")
        before = self.gw.get("/AHU1/Fan")
        self.assertEqual(self.write("/AHU1/Fan", "On"), REFUSED)
        self.assertEqual(self.gw.get("/AHU1/Fan"), before)

    def test_reconnecting_while_the_daemon_restarts(self):
        self.open_as("guest")
        self.gw.stop_cleanly()
        try:
            wait_until(lambda: self.text("#connection") == "reconnecting", what='"reconnecting"')
            self.assertTrue(self.find("#devices li"), "the page keeps what it showed")
        finally:
            self.gw.start()
        wait_until(lambda: not self.find("#connection").is_displayed(),
                   what="the page to reconnect")


if __name__ == "__main__":
    unittest.main()
