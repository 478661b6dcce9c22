"""A headless browser that opens pages from disk and tells what they did."""

import json
import shutil

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None

PROGRAM, DRIVER = shutil.which("chromium"), shutil.which("chromedriver")
IS_THERE = bool(webdriver and PROGRAM and DRIVER)
SECONDS = 60  # that a condition may take on a busy machine


class Browser:
    def __init__(self, width=800, height=760):
        options = webdriver.ChromeOptions()
        options.binary_location = PROGRAM
        for word in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--use-gl=angle",
                     "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--hide-scrollbars",
                     f"--window-size={width},{height}"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service(DRIVER))

    def quit(self):
        self.driver.quit()

    def run(self, script, *values):
        return self.driver.execute_script(script, *values)

    def until(self, condition):
        """Waits for a JavaScript expression to be true, in which `player` is the page's hook."""
        script = f"const player = window.kelcachePlayer; return {condition};"
        return WebDriverWait(self.driver, SECONDS, 0.05).until(lambda _: self.run(script), condition)

    def open(self, page):
        """Until all is unpacked, or the page says that it can not be."""
        self.console(), self.requests()
        self.driver.get(page.resolve().as_uri())
        self.until("!document.getElementById('problem').hidden || player && player.times.all > 0")
        problem = self.run("return document.getElementById('problem').textContent")
        assert not problem, problem

    def ask(self, expression):
        return self.run(f"const player = window.kelcachePlayer; return {expression};")

    def element(self, name):
        return self.driver.find_element(By.ID, name)

    def mouse(self):
        return ActionChains(self.driver)

    def resize(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def console(self):
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self):
        """What was asked for over any protocol since the last call."""
        messages = [json.loads(entry["message"])["message"]
                    for entry in self.driver.get_log("performance")]
        return [message["params"]["request"]["url"] for message in messages
                if message["method"] == "Network.requestWillBeSent"]

    def picture(self):
        """How many pixels are drawn upon, and a number that tells pictures apart."""
        return tuple(self.run("""
            const pixels = window.kelcachePlayer.pixels();
            let drawn = 0, sum = 0;
            for (let i = 0; i < pixels.length; i += 4) {
              if (pixels[i + 3] === 0) continue;
              ++drawn;
              sum = (sum * 31 + i + pixels[i] * 7 + pixels[i + 1] * 5 + pixels[i + 2]) % 2147483647;
            }
            return [drawn, sum];"""))

    def save(self, path):
        self.driver.save_screenshot(str(path))
