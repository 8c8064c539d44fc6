#!/usr/bin/python3
"""`quorvel FOLDER` on damaged, orphaned and duplicate fonts, watched the way a
screen reader sees it (the accessibility bus): with no other action the window
scans and diagnoses the folder and ends where `quorvel-cli diagnose` ends for
the same folder, in the diagnosis view, in the resolution window's rows and,
after Done, in the scan view's summary.

Usage, under xvfb-run and dbus-run-session:
  window_end_state.py QUORVEL QUORVEL_CLI TEST_DATA_DIR
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import pyatspi

TIMEOUT = 300  # seconds; a sanitizer build on a busy machine is slow to start


def fail(message):
    print("FAIL: " + message, flush=True)
    sys.exit(1)


def nodes(root):
    stack = [root]
    while stack:
        node = stack.pop()
        if node is None:
            continue
        yield node
        try:
            stack.extend(node.getChildAtIndex(i) for i in range(node.childCount))
        except Exception:  # the node went away while we walked
            pass


def role(node):
    try:
        return node.getRoleName()
    except Exception:
        return ""


def showing(node):
    try:
        return node.getState().contains(pyatspi.STATE_SHOWING)
    except Exception:
        return False


def application(pid):
    desktop = pyatspi.Registry.getDesktop(0)
    for i in range(desktop.childCount):
        app = desktop.getChildAtIndex(i)
        try:
            if app is not None and app.get_process_id() == pid:
                return app
        except Exception:
            pass
    return None


def wait_for(what, find, process):
    deadline = time.monotonic() + TIMEOUT
    while time.monotonic() < deadline:
        if process.poll() is not None:
            fail(f"quorvel exited ({process.returncode}) while waiting for {what}")
        app = application(process.pid)
        found = find(app) if app is not None else None
        if found:
            return found
        time.sleep(0.5)
    fail(f"no {what} within {TIMEOUT} s")


def stop_helpers(home):
    """The helpers the window started for this home outlive it by design."""
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/environ", "rb") as environ:
                if f"HOME={home}".encode() in environ.read().split(b"\0"):
                    os.kill(int(entry), 15)
        except OSError:
            pass


def make_fonts(folder, data):
    dejavu = "/usr/share/fonts/truetype/dejavu/"
    for copy in ("one", "two"):  # a duplicate pair
        os.makedirs(f"{folder}/{copy}")
        shutil.copy(dejavu + "DejaVuSans-Bold.ttf", f"{folder}/{copy}/")
    os.makedirs(f"{folder}/damaged")  # cut off inside its tables
    with open(dejavu + "DejaVuSerif.ttf", "rb") as whole, open(f"{folder}/damaged/DejaVuSerif.ttf", "wb") as cut:
        cut.write(whole.read(3000))
    os.makedirs(f"{folder}/orphan")  # an outline file whose bitmap suitcase is missing
    open(f"{folder}/orphan/StandardSymbols", "wb").close()
    shutil.copy(f"{data}/fuzz/StandardSymbols-LWFN.appledouble", f"{folder}/orphan/._StandardSymbols")


def main():
    quorvel, cli, data = sys.argv[1:4]
    work = tempfile.mkdtemp(prefix="qv-atspi-")
    home = work + "/home"
    fonts = work + "/Fonts"
    os.makedirs(home)
    make_fonts(fonts, data)
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home + "/.config", XDG_DATA_HOME=home + "/.local/share",
               XDG_CACHE_HOME=home + "/.cache", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_QPA_PLATFORM="xcb")
    env.setdefault("QTWEBENGINE_CHROMIUM_FLAGS", "--no-sandbox --disable-gpu")

    # What the command line finds, on a copy (the window's own run comes first on the original).
    shutil.copytree(fonts, work + "/CLI Fonts", symlinks=True)
    run = subprocess.run([cli, "diagnose", "--json", work + "/CLI Fonts"], env=env, capture_output=True, text=True)
    if run.returncode != 1:
        fail(f"quorvel-cli diagnose exited {run.returncode}: {run.stderr}")
    expected = json.loads(run.stdout)
    for key in ("duplicateProblemCount", "fileStructureProblemCount", "missingBitmapProblemCount"):
        if expected[key] < 1:
            fail(f"the fixture should have a {key}: {expected}")

    process = subprocess.Popen([quorvel, fonts], env=env)
    try:
        def done_button(app):
            return next((n for n in nodes(app) if role(n) == "push button" and n.name == "Done" and showing(n)),
                        None)
        done = wait_for('the diagnosis view\'s "Done" button', done_button, process)
        app = application(process.pid)

        status = next((n for n in nodes(app) if role(n) == "label" and n.description == "Diagnosis status"), None)
        if status is None or status.name != expected["outcome"]:
            fail(f"diagnosis status {status.name if status else None!r}, expected {expected['outcome']!r}")
        passes = [n.name for n in nodes(app) if role(n) == "label" and " - " in n.name and showing(n)]
        if len(passes) != 4 or not all(name.endswith("Complete ✓") for name in passes):
            fail(f"every pass should be complete: {passes}")

        # The resolution window lists one row per problem the command line reports.
        def problem_table(app):
            for node in nodes(app):
                if role(node) in ("table", "tree table", "tree") and showing(node):
                    try:
                        if node.queryTable().nRows > 0:
                            return node
                    except NotImplementedError:
                        pass
            return None
        table = wait_for("the resolution window's table of problem fonts", problem_table, process)
        rows = table.queryTable().nRows
        if rows != len(expected["problemFonts"]):
            fail(f"{rows} rows in the resolution window, the command line lists {len(expected['problemFonts'])}")

        done.queryAction().doAction(0)
        total = f"Total Font Problems Diagnosed: {expected['totalFontProblems']}"

        def summary(app):
            return next((n for n in nodes(app)
                         if role(n) == "label" and n.description == "Last scan" and total in n.name), None)
        wait_for(f'the scan view saying "{total}"', summary, process)
        print(f"PASS: {expected['outcome']}; {rows} problem rows; {total}", flush=True)
    finally:
        process.terminate()
        try:
            process.wait(30)
        except subprocess.TimeoutExpired:
            process.kill()
        stop_helpers(home)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
