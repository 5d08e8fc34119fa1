#!/usr/bin/env python3
"""Evening after evening of the demo: one host lives through all of them, the other is replaced after each.

The hosts check every answer and event. The survivor must end with the threads and descriptors that it had
after its first evenings, and with its memory. To be started in an IPC namespace of its own
(scripts/own_namespace.sh), and of the network too, or logs and traces of the hosts may be turned on by others.
Exit code: 0 when all of that held, else 1; 2 usage.
"""
import argparse
import ctypes
import os
import pathlib
import signal
import subprocess
import sys
import time

FIRST_EVENINGS = 3
MEMORY_SLACK_KB = 256  # what the allocator may keep between blocks in use
PATIENCE = 30  # seconds
REQUEST_QUEUE = 0x92101081
LAST_EVENT = b"/18 unloaded"  # of an evening, as the plug-in host tells it


def fail(why):
    print(f"soak: {why}", file=sys.stderr)
    sys.exit(1)


def wait_until(what, holds):
    end = time.monotonic() + PATIENCE
    while not holds():
        if time.monotonic() > end:
            fail(f"waited in vain until {what}")
        time.sleep(0.002)


def status(process):
    return dict(line.split(":\t", 1) for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines())


def size(process):
    return {"threads": int(status(process)["Threads"]), "descriptors": len(os.listdir(f"/proc/{process.pid}/fd")),
            "KiB": int(status(process)["RssAnon"].split()[0])}


class Soak:
    def __init__(self, arguments):
        self.command = arguments.emulator
        self.programs = arguments.programs
        self.running = []

    def start(self, *command, speaks=subprocess.DEVNULL):
        process = subprocess.Popen([*self.command, f"{self.programs}/{command[0]}", *command[1:]], stdin=speaks,
                                   stdout=speaks, bufsize=0, env={**os.environ, "MALLOC_ARENA_MAX": "1"})
        self.running.append(process)
        return process

    def start_browser(self):
        browser = self.start("browser_host")
        libc = ctypes.CDLL(None)
        getval = 12
        wait_until("the browser host served", lambda: browser.poll() is not None or
                   libc.semctl(libc.semget(REQUEST_QUEUE, 0, 0), 0, getval) == 1)
        return browser

    def end(self, process, with_signal=None, code=0):
        if with_signal:
            process.send_signal(with_signal)
        self.running.remove(process)
        if process.wait(PATIENCE) != code:
            fail(f"{process.args} ended with {process.returncode}")

    def browser(self):
        """The sizes of a browser host after each evening."""
        browser = self.start_browser()
        while True:
            self.end(self.start("plugin_host"))
            yield size(browser)

    def plug_in(self):
        """The sizes of a plug-in host after each evening."""
        browser = self.start_browser()
        plugin = self.start("plugin_host", "--on-request", speaks=subprocess.PIPE)
        while True:
            plugin.stdin.write(b"\n")
            for line in iter(plugin.stdout.readline, b""):
                if b"WRONG" in line:
                    fail(line.decode())
                if LAST_EVENT in line:
                    break
            else:
                fail("the plug-in host has ended")
            self.end(browser, signal.SIGKILL, -signal.SIGKILL)
            browser = self.start_browser()
            yield size(plugin)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=float, default=1800)
    parser.add_argument("--any-memory", action="store_true", help="do not compare memory")
    parser.add_argument("programs", help="folder of browser_host and plugin_host")
    parser.add_argument("survivor", choices=["browser", "plug-in"])
    parser.add_argument("emulator", nargs=argparse.REMAINDER, help="what runs the hosts, if they need it")
    arguments = parser.parse_args()

    soak = Soak(arguments)
    end = time.monotonic() + arguments.seconds
    evenings = 0
    try:
        for now in soak.browser() if arguments.survivor == "browser" else soak.plug_in():
            evenings += 1
            if evenings == FIRST_EVENINGS:
                first = now
            if evenings > FIRST_EVENINGS and time.monotonic() > end:
                break
        if arguments.survivor == "browser":
            soak.end(soak.running[0], signal.SIGTERM)
    finally:
        for process in soak.running:
            process.kill()
    print(f"{arguments.survivor} host, {evenings} evenings: "
          + ", ".join(f"{first[what]} {what}, then {now[what]}" for what in now))
    if not arguments.any_memory and now["KiB"] > first["KiB"] + MEMORY_SLACK_KB:
        fail("its memory has grown")
    if any(now[what] != first[what] for what in ("threads", "descriptors")):
        fail("it has threads or descriptors that it had not")


if __name__ == "__main__":
    main()
