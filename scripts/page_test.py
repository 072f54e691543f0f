"""Drives the page in Cockpit with a browser, on copies of the embedded machine.

page_test.py PROGRAM [TEST...]. Needs root's rights, because it opens the page with these rights and without.
page-test.sh runs it.
"""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import traceback

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCE = ROOT / "cockpit/optimize_option"
SHOTS = ROOT / "build/page"
AXE = SHOTS / "package/axe.min.js"  # the accessibility checker
PLACE = pathlib.Path(tempfile.mkdtemp())
MACHINE = PLACE / "machine"
CHKCONFIG = MACHINE / "bin/real"
CONF = MACHINE / "config/system_operation/conf.xml"
RECORD = pathlib.Path(f"{CONF}.record")
PROGRAM = pathlib.Path(sys.argv[1]).resolve()
OURS = PLACE / "optimize_host"
HOSTILE = "<img/src=x/onerror=document.title='hit'>"
# Waits for a service with a pipe hold-NAME, fails for one with a file fail-NAME, and spoils the answer for one
# with a file note-NAME.
STAND_IN = """#!/bin/sh
here=${0%/*}
[ "$1" = --list ] && echo >>"$here/listings"
[ ! -p "$here/hold-$3" ] || read -r line <"$here/hold-$3"
[ ! -e "$here/fail-$3" ] || exit 1
[ ! -e "$here/note-$3" ] || printf 'a note without an end of line'
exec "$here/real" "$@"
"""
processes = []


def new_machine():
    shutil.rmtree(MACHINE, ignore_errors=True)
    shutil.copytree(ROOT / "machine", MACHINE)
    stand_in = MACHINE / "bin/chkconfig"
    stand_in.rename(CHKCONFIG)
    stand_in.write_text(STAND_IN)
    stand_in.chmod(0o755)


def run(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True, cwd=MACHINE).stdout


def levels(*names):
    return "".join(run(CHKCONFIG, "--list", name) for name in names)


def edit(path, old, new):
    text = path.read_text()
    assert old in text, f"{path} lacks {old}"
    path.write_text(text.replace(old, new))


def hold(name):
    os.mkfifo(MACHINE / f"bin/hold-{name}")


def release(name):
    """Waits for the command that switches a held service, and lets it go on when this is closed."""
    pipe = MACHINE / f"bin/hold-{name}"
    writer = WebDriverWait(pipe, 20, 0.05, [OSError]).until(
        lambda _: open(os.open(pipe, os.O_WRONLY | os.O_NONBLOCK), "w"))  # fails until it is read
    pipe.unlink()  # the next command does not wait
    return writer


class Page:
    """The page in a browser, in a session that runs a command."""

    def __init__(self, browser, session):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        script = PLACE / f"session-{port}"
        script.write_text(f"#!/bin/sh\nexec {session}\n")
        script.chmod(0o755)
        places = [f"/usr/{each}/cockpit-ws" for each in ("lib/cockpit", "libexec")]
        server = next(each for each in places if os.path.exists(each))
        processes.append(subprocess.Popen([server, "--no-tls", "-a", "127.0.0.1", "-p", str(port),
                                           f"--local-session={script}"], stderr=subprocess.DEVNULL))
        WebDriverWait(port, 20, 0.05, [OSError]).until(lambda _: socket.create_connection(("127.0.0.1", port)))
        self.browser = browser
        self.address = f"http://127.0.0.1:{port}/cockpit/@localhost/optimize_option/index.html"

    def open(self):
        self.browser.get("about:blank")
        self.browser.get(self.address)
        self.until(lambda: self.find("body").is_displayed() and not self.find("#progress").is_displayed())

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def script(self, text, *values):
        return self.browser.execute_script(text, *values)

    def until(self, condition):
        WebDriverWait(self.browser, 20, 0.05).until(lambda _: condition())

    def shows(self, selector, text):
        try:
            self.until(lambda: text in self.find(selector).text)
        except WebDriverException:
            raise AssertionError(f"{selector} shows '{self.find(selector).text}', not '{text}'") from None

    def row(self, name):
        row = self.script("return [...document.querySelectorAll('tbody tr')].find("
                          "row => row.dataset.name === arguments[0])", name)
        assert row, f"no row for {name}"
        return row

    def box(self, name):
        return self.row(name).find_element(By.CSS_SELECTOR, "input")

    def state(self, name):
        return self.row(name).find_element(By.CSS_SELECTOR, ".state").text

    def press(self, button, *names):
        """Ticks services and presses a button, by the keyboard."""
        for name in names:
            self.box(name).send_keys(Keys.SPACE)
        self.find("#" + button).send_keys(Keys.ENTER)

    def has_focus(self, element):
        now = self.browser.switch_to.active_element
        assert now == element, f"the focus is on {now.get_attribute('outerHTML')}"

    def shoot(self, name):
        """Keeps a screenshot, and looks for what people with disabilities could not use."""
        self.browser.save_screenshot(str(SHOTS / f"{name}.png"))
        if AXE.exists():
            self.script(AXE.read_text())
            found = self.browser.execute_async_script("axe.run().then(arguments[0], arguments[0])")["violations"]
            assert not found, f"{name}: {json.dumps(found, indent=1)[:2000]}"


def test_off_and_undo(page):
    before = levels("cups", "rsync", "snmpd")
    page.press("off", "cups", "rsync")
    page.shows("#result", "2 services are switched off.")
    page.has_focus(page.find("#result"))
    assert "2:off\t3:off\t4:off\t5:off" in levels("cups") and "off" in levels("rsync"), levels("cups", "rsync")
    page.shows("#summary", "3/19")
    page.shows("tr[data-name=cups] small", "since ")
    page.press("undo")
    page.shows("#result", "2 services are on again.")
    assert levels("cups", "rsync", "snmpd") == before, levels("cups", "rsync", "snmpd")
    assert page.state("snmpd") == "Switched off", "more was undone than was done"


def test_ignore_and_counts(page):
    page.press("ignore", "atd")
    page.shows("#result", "1 service is ignored.")
    assert "atd ignored" in RECORD.read_text() and page.state("atd") == "Ignored"
    page.press("attend", "atd")
    page.shows("#result", "1 service is no longer ignored.")
    for name in ("cups", "atd", "snmpd", "sshd"):
        page.box(name).click()
    texts = [page.find("#" + each).text for each in ("off", "back", "ignore", "attend")]
    assert texts == ["Switch off (2)", "Switch back on (1)", "Ignore (2)", "Stop ignoring (1)"], texts
    page.find("#filter").send_keys("RSYNC")
    page.find("#all").click()
    page.shows("#selected", "5 selected, 4 of them hidden")


def test_one_failure_of_four(page):
    CONF.rename(MACHINE / "conf.xml")
    CONF.symlink_to(MACHINE / "conf.xml")  # of a link, the page sees no changes unless it reads again
    (MACHINE / "bin/fail-atd").touch()
    page.press("off", "cups", "atd", "postfix", "rsync")
    page.shows("#result", "3 services are switched off.\nTrouble with 1 service:\natd: command failed; it is still on")
    assert [page.state("atd"), page.state("cups")] == ["On", "Switched off"] and page.box("atd").is_selected()
    page.shoot("failure")
    page.press("undo")
    page.shows("#result", "3 services are on again.")


def test_spoiled_answer(page):
    (MACHINE / "bin/note-cups").touch()
    page.press("off", "cups")
    page.shows("#result", "1 service is switched off.\nTrouble with 1 service:\n"
                          "cups: the answer of the program is not complete; state found afterwards: Switched off")
    assert not page.find("#undo").is_displayed(), "somebody else may have switched it"


def test_program_cannot_start(page):
    OURS.rename(PLACE / "away")
    page.press("off", "cups", "atd")
    page.shows("#result", f"1 service was left as it was.\nTrouble with 1 service:\natd: {OURS} does not exist")
    (PLACE / "away").rename(OURS)


def test_killed(page):
    def kill():
        for exe in pathlib.Path("/proc").glob("[0-9]*/exe"):
            if os.path.realpath(exe) == str(PROGRAM) and str(MACHINE) in (exe.parent / "cmdline").read_text():
                os.kill(int(exe.parent.name), signal.SIGKILL)
    (MACHINE / "bin/fail-atd").touch()
    for name, state in (("cups", "Switched off"), ("atd", "On")):
        hold(name)
        page.press("off", name)
        with release(name):
            kill()
        page.shows("#result", f"1 service:\n{name}: the program was ended by the signal KILL; "
                              f"state found afterwards: {state}")
        assert ("is switched off." in page.find("#result").text) == (name == "cups"), page.find("#result").text
    hold("postfix")
    page.press("off", "postfix")
    with release("postfix"):
        OURS.rename(PLACE / "away")
        kill()
    page.shows("#result", "postfix: the program was ended by the signal KILL; whether services were changed is not "
                          f"known: {OURS} does not exist")
    (PLACE / "away").rename(OURS)


def test_left_in_mid_call(page):
    hold("atd")
    page.press("off", "atd", "rsync")
    with release("atd"):
        page.browser.get("about:blank")
    page.until(lambda: "atd off 345" in RECORD.read_text())
    run(OURS, "ls_service")  # waits for whoever may still be at it
    assert "rsync" not in RECORD.read_text() and "atd off 345" in RECORD.read_text(), RECORD.read_text()


def test_stop(page):
    hold("atd")
    page.press("off", "atd", "cups", "rsync")
    with release("atd"):
        page.shows("#progress", "Switching off atd")
        page.has_focus(page.find("#progress"))
        page.press("stop")
    page.shows("#result", "1 service is switched off.\n2 services were left as they were.")


def test_many(page):
    (MACHINE / "bin/fail-atd").touch()
    hold("postfix")
    page.find("#all").click()
    page.press("off")
    with release("postfix"):
        page.shows("#progress", "Switching off postfix, sendmail, nfslock, autofs, kdump")
        page.press("stop")
    page.shows("#result", "9 services are switched off.\n6 services were left as they were.\nTrouble with 1 service:\natd: ")
    page.press("undo")
    page.shows("#result", "9 services are on again.")


def test_file_during_own_call(page):
    page.script("""
        window.texts = [];
        new MutationObserver(() => texts.push(document.querySelector("tbody").textContent))
            .observe(document.querySelector("tbody"), {subtree: true, childList: true, characterData: true});
        cockpit.file(arguments[0]).watch(text => { window.seen = text; });""", str(CONF))
    hold("cups")
    page.press("off", "cups")
    with release("cups"):
        for old, new in (("打印服务", "in between"), ("in between", "打印服务")):
            edit(CONF, old, new)
            page.until(lambda: new in page.script("return window.seen"))
    page.shows("#result", "1 service is switched off.")
    assert not any("in between" in text for text in page.script("return texts")), "shown in the middle of a call"


def test_waiting(page):
    hold("cups")
    other = subprocess.Popen([OURS, "optimize_service", "cups"], cwd=MACHINE, stdout=-3, stderr=-3)
    with release("cups"):
        page.press("off", "atd")
        page.shows("#progress", "Waiting: another program is changing services")
    page.shows("#result", "1 service is switched off.")
    assert other.wait(20) == 0 and page.state("cups") == "Switched off"


def test_change_by_somebody_else(page):
    row, box = page.row("cups"), page.box("cups")
    box.send_keys(Keys.SPACE)
    for old, new in ((0, 3), (3, 0)):  # out of sight and back
        edit(CONF, f'name="cups" op="{old}"', f'name="cups" op="{new}"')
        page.until(lambda: row.is_displayed() == (new == 0))
    run(OURS, "optimize_service", "cups")
    page.shows("tr[data-name=cups] small", "since ")
    run(CHKCONFIG, "--level", "45", "cups", "on")
    run(OURS, "ls_service")
    page.shows("tr[data-name=cups] small", "only partly: was on in 2 3 4 5")
    assert row == page.row("cups") and box.is_selected(), "the row is another one"
    page.has_focus(box)
    page.press("back")
    page.shows("#result", "1 service is on again.")
    assert not page.find("#undo").is_displayed(), "what was partly off cannot be undone"


def test_broken_file(page):
    text = CONF.read_text()
    page.box("cups").click()
    for broken in ("<oops", "<oops/>"):
        CONF.write_text(broken)
        page.shows("#problem", "the file is not a valid configuration")
        assert page.row("cups").is_displayed() and not page.find("#off").is_enabled()
    CONF.write_text(text)
    page.until(lambda: not page.find("#problem").is_displayed() and page.find("#off").is_enabled())


def test_hostile(page):
    edit(CONF, 'name="cups"', f'name="{HOSTILE.replace("<", "&lt;")}"')
    edit(CONF, 'desc="打印服务', 'desc="&lt;b>bold&lt;/b>')
    edit(MACHINE / "etc/runlevels", "cups\t", HOSTILE + "\t")
    page.open()
    assert page.row(HOSTILE).text.startswith(HOSTILE) and "<b>bold</b>" in page.row(HOSTILE).text
    page.press("off", HOSTILE)
    page.shows("#result", HOSTILE + ": ")
    assert not page.all("img, b") and page.browser.title != "hit"


def test_listings(page):
    """The machine is listed on opening and on Refresh, and by nothing else of the page."""
    listings = MACHINE / "bin/listings"
    opened = len(listings.read_text())
    run(OURS, "ls_service")
    one = len(listings.read_text()) - opened
    page.press("refresh")
    page.until(lambda: page.browser.switch_to.active_element == page.find("#refresh"))
    assert [opened, len(listings.read_text())] == [one, 3 * one], f"{opened} of {len(listings.read_text())}"
    assert not re.search("setTimeout|setInterval", "".join(each.read_text() for each in SOURCE.glob("*.js")))
    CONF.write_text("<kavra_conf/>")
    page.shows("#empty", "This machine has none of the optional services.")


def test_looks(page):
    page.shoot("light")
    page.script("""localStorage.setItem("shell:style", "dark");
        dispatchEvent(new CustomEvent("cockpit-style", {detail: {style: "dark"}}))""")
    page.press("off", "cups")
    page.shows("#result", "1 service is switched off.")
    page.shoot("dark")
    assert page.find("body").value_of_css_property("background-color") == "rgba(21, 21, 21, 1)", "not dark"
    page.script("localStorage.clear()")
    page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                 {"width": 320, "height": 900, "deviceScaleFactor": 1, "mobile": False})
    page.open()
    page.box("cups").click()
    page.script("scroll(0, 0)")
    page.shoot("narrow")
    width, shown = page.script(
        "const root = document.documentElement; return [root.scrollWidth, root.clientWidth]")
    assert width <= shown and not page.find("#off").is_displayed(), f"{width} wide, of which {shown} are shown"
    page.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})


def test_chinese(page):
    page.browser.add_cookie({"name": "CockpitLang", "value": "zh-cn", "path": "/"})
    page.open()
    page.press("off", "cups")
    page.shows("#result", "已关闭 1 个服务。")
    page.shoot("chinese")
    assert page.find("html").get_attribute("lang") == "zh-CN" and page.browser.title == "可选服务"
    page.browser.delete_cookie("CockpitLang")


def test_translations(_):
    """The translations have the texts of the page: none is missing and none unused."""
    texts = {each.name: each.read_text() for each in SOURCE.iterdir()}
    code = "".join(text for name, text in texts.items() if name.endswith(".js") and not name.startswith("po."))
    label = json.loads(texts["manifest.json"])["menu"]["index"]["label"]
    used = {label, *re.findall(r'\b(?:_|plural)\("([^"]*)"', code),
            *re.findall(r"<[^>]* translate>([^<]*)<", texts["index.html"]),
            *re.findall(r'(?:aria-label|placeholder)="([^"]*)"(?=[^>]* translate=)', texts["index.html"])}
    keys = set(re.findall(r'^    "(.+?)": \[', texts["po.zh_CN.js"], re.M))
    assert keys == used, f"{keys ^ used}"
    assert f'"{label}": [null' in texts["po.manifest.zh_CN.js"], "the menu has no translation"


def without_rights(page):
    page.until(lambda: page.find("#limited").is_displayed())
    page.box("cups").click()
    assert not RECORD.exists() and len(page.all("tbody tr:not(.gone)")) == 19
    assert not page.all("#tools button:enabled"), "buttons without rights"
    page.shoot("no-rights")
    CONF.write_text((ROOT / "config/system_operation/conf.xml").read_text())
    page.shows("#empty", "The services were not listed yet: turn on administrative access.")


def passes(name, test, page):
    new_machine()
    try:
        page.open()
        test(page)
        errors = [each for each in page.browser.get_log("browser") if each["level"] == "SEVERE" and
                  "configuration.js" not in each["message"]]  # the browser's parser reports a broken file
        assert not errors, f"errors in the console: {errors}"
    except (AssertionError, WebDriverException) as error:
        page.browser.save_screenshot(str(SHOTS / f"failed_{name}.png"))
        line = traceback.extract_tb(error.__traceback__)[:2][-1].lineno
        print(f"page_test.py:{line}: {name}: {error}\n  build/page/failed_{name}.png shows it", file=sys.stderr)
        return False
    print(f"{name}: as expected", flush=True)
    return True


def give_up(*_):
    sys.exit("page_test.py: the tests have not ended in time")


def main():
    PLACE.chmod(0o755)
    OURS.write_text(f'#!/bin/sh\nexec \'{PROGRAM}\' --no-units "$@"\n')  # never the units of this machine
    OURS.chmod(0o755)
    shutil.copytree(SOURCE, PLACE / "cockpit/optimize_option")
    for file, old, new in (("settings.js", "/usr/bin/optimize_host", OURS),
                           ("manifest.json", "/usr/bin/optimize_host", OURS),
                           ("settings.js", "/var/lib/optimize_option", MACHINE)):
        edit(PLACE / "cockpit/optimize_option" / file, old, str(new))
    os.environ.update(HOME=str(PLACE), XDG_CONFIG_HOME=str(PLACE), XDG_DATA_HOME=str(PLACE),
                      PATH=f"{MACHINE}/bin:{os.environ['PATH']}",
                      OPTIMIZE_HOST_LOG=str(PLACE / "log"), LC_ALL="C.UTF-8")
    new_machine()
    signal.signal(signal.SIGALRM, give_up)
    signal.alarm(300)
    options = webdriver.ChromeOptions()
    for word in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1200,900", "--lang=en"):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    browser = webdriver.Chrome(options=options)
    try:
        tests = [(name[5:], test) for name, test in globals().items() if name.startswith("test_")]
        chosen = [each for each in tests if len(sys.argv) == 2 or each[0] in sys.argv]
        page = Page(browser, "cockpit-bridge")
        results = [passes(*each, page) for each in chosen]
        if len(sys.argv) == 2 or "without_rights" in sys.argv:
            page = Page(browser, "setpriv --reuid=65534 --regid=65534 --clear-groups cockpit-bridge")
            results.append(passes("without_rights", without_rights, page))
    finally:
        browser.quit()
        for process in processes:
            process.terminate()
            process.wait()
        shutil.rmtree(PLACE)
    return 0 if results and all(results) else 1


sys.exit(main())
