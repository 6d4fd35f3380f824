"""Runs of the program in which something fails, and what may be left of them: shared by test_faults.py and
test_crashes.py. What makes things fail is in faults/."""

import contextlib
import errno
import json
import os
import re
import select
import shutil
import signal
import subprocess
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable, Iterator

from velasim import Router
from velasim.router import Result

# System calls of x86-64 by their names.
CALLS = {
    "read": 0, "write": 1, "close": 3, "poll": 7, "lseek": 8, "mmap": 9, "ioctl": 16, "access": 21, "dup2": 33,
    "socket": 41, "connect": 42, "recvfrom": 45, "sendmsg": 46, "setsockopt": 54, "fork": 56, "execve": 59, "wait4": 61,
    "fcntl": 72, "flock": 73, "fsync": 74, "ftruncate": 77, "rename": 82, "mkdir": 83, "unlink": 87, "readlink": 89,
    "fchmod": 91, "fchown": 93, "getdents": 217, "nanosleep": 230, "waitid": 247, "open": 257, "stat": 262, "pipe": 293,
    "getrandom": 318, "close_range": 436,
}
NAMES = {number: name for name, number in CALLS.items()}

# What is done to each: it is refused with an error, reports one after all ("late"), or takes a byte ("short").
EFFECTS = {
    "read": ("EIO", "EINTR", "short"),
    "write": ("ENOSPC", "EINTR", "short"),
    "close": ("late EIO", "late EINTR"),
    "poll": ("ENOMEM", "EINTR"),
    "lseek": ("EIO",),
    "mmap": ("ENOMEM",),
    "ioctl": ("EIO", "EINTR"),
    "access": ("ENOENT",),
    "socket": ("EMFILE",),
    "connect": ("ECONNREFUSED", "EINTR"),
    "recvfrom": ("ECONNRESET", "EINTR", "short"),
    "sendmsg": ("EPIPE", "EINTR"),
    "setsockopt": ("ENOMEM",),
    "fork": ("EAGAIN",),
    "wait4": ("EINTR",),
    "fcntl": ("EIO",),
    "flock": ("EWOULDBLOCK", "ENOLCK", "EINTR"),
    "fsync": ("EIO",),
    "ftruncate": ("EIO",),
    "rename": ("ENOSPC",),
    "mkdir": ("ENOSPC",),
    "unlink": ("EROFS",),
    "readlink": ("EIO",),
    "fchmod": ("EPERM",),
    "fchown": ("EPERM",),
    "getdents": ("EIO",),
    "nanosleep": ("EINTR",),
    "waitid": ("EINTR",),
    "open": ("EMFILE", "EIO"),
    "stat": ("EIO",),
    "pipe": ("EMFILE",),
    "getrandom": ("ENOSYS",),
}
# The same for a child between fork and exec, which is this program, too.
CHILD_EFFECTS = {
    "open": ("EMFILE",),
    "dup2": ("EINTR",),
    "close_range": ("ENOSYS",),
    "execve": ("ENOENT", "ENOMEM"),
    "fork": ("EAGAIN",),
}

CONFIG, SPOOL, SSMTP, STAGED = "/etc/config", "/etc/spool/sms", "/etc/ssmtp", "/tmp/.uci"
STATE = "/tmp/modem.1-1.2"
KEPT = (CONFIG, SPOOL, SSMTP, STAGED, STATE)  # where runs leave files
DRAFT = re.compile(r"/\.\w+\.uci-\w{6}$|/modem-(imei|name)\.\d+$")  # a new file on its way into place
REPORT = "/tmp/faults-report"
ANSWER = "\nAT\r\r\nOK\r\n"
LINK = {"interfaces": {"modem_1_1_2": {"state": "down", "on_up": "up", "on_reload": "down"}}}
BUSY_LIMIT = 60.0  # for a run, all waiting shortened; generous

Files = dict[str, bytes]


def effect_argument(effect: str) -> str:
    if effect in ("short", "kill"):
        return effect
    name = effect.removeprefix("late ")
    return ("late=" if name != effect else "error=") + str(getattr(errno, name))


@dataclass
class Case:
    """A command or a handler to be run with faults."""

    name: str
    argv: list[str] = field(default_factory=list)  # of vela_modem; or else a handler:
    endpoint: tuple[str, str] = ("", "")
    body: dict = field(default_factory=dict)
    statuses: tuple[int, ...] = (0,)  # the exit statuses, or those of the handler, that are documented
    setup: dict = field(default_factory=dict)  # arguments of Router
    prepare: Callable[[Router], None] | None = None
    # Files that may also be left in another state than that before or that wanted: what is wrong with it, or None.
    verdicts: dict[str, Callable[["Faults", bytes | None], str | None]] = field(default_factory=dict)
    background: bool = False  # leaves commands running
    # Asks netifd to read its configuration: the connection over which that has failed is kept until the next time.
    reloads: bool = False

    def __str__(self) -> str:
        return self.name


class Faults:
    """A router for one case, the state of its files before, and the one that an undisturbed run leaves."""

    def __init__(self, case: Case) -> None:
        self.case = case
        setup = {"ubus": LINK, **case.setup}
        self.link = setup["ubus"]
        self.r = Router(setup.pop("model", "ec25"), **setup)
        self.tools = self.r.build / "tests/router/faults"
        self.sanitized = b"__asan_init" in (self.r.build / "vela_modem").read_bytes()
        if case.prepare is not None:
            case.prepare(self.r)
        self.before = self.files()
        self.modes = {path: self.mode(path) for path in self.before}
        plain = self.run(self.argv())
        self.r.wait_idle()
        assert plain.returncode == 0, (case.name, plain)
        self.wanted = self.files()
        self.wanted_status = self.status_of(plain)

    def close(self) -> None:
        self.r.close()

    # The files

    def files(self) -> Files:
        found = {}
        for top in KEPT:
            base = self.r.host_path(top)
            for directory, _, names in os.walk(base):
                for name in names:
                    path = Path(directory, name)
                    with contextlib.suppress(FileNotFoundError):
                        found[f"{top}/{path.relative_to(base)}"] = path.read_bytes()
        # An empty file of staged changes is as good as none.
        return {path: text for path, text in found.items() if text or not path.startswith(STAGED)}

    def mode(self, path: str) -> int:
        return self.r.host_path(path).stat().st_mode & 0o7777

    def restore(self) -> None:
        """Puts the files back as they were before the first run."""
        now = self.files()
        for path in now.keys() - self.before.keys():
            self.r.remove(path)
        for path, text in self.before.items():
            if now.get(path) != text:
                self.r.write(path, text)
                self.r.host_path(path).chmod(self.modes[path])
        for top in (STATE, STAGED):
            if not any(path.startswith(top) for path in self.before):
                shutil.rmtree(self.r.host_path(top), ignore_errors=True)
        self.r.set_ubus_state(self.link)
        self.r.clear_events()

    # Runs

    def argv(self) -> list[str]:
        if self.case.argv:
            return ["vela_modem", *self.case.argv]
        return [str(self.tools / "call_handler"), *self.case.endpoint, json.dumps(self.case.body)]

    def environment(self, *libraries: str, **more: str) -> dict[str, str]:
        paths = [str(self.tools / f"{library}.so") for library in (*libraries, "quick_waits")]
        sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0:detect_leaks=0"
        return {"LD_PRELOAD": ":".join(paths), "ASAN_OPTIONS": sanitizer, **more}

    def run(self, argv: list[str], *libraries: str, **more: str) -> Result:
        return self.r.run(*argv, env=self.environment(*libraries, **more), timeout=BUSY_LIMIT)

    def meddled(self, who: str, call: str, when: int, effect: str) -> tuple[Result, dict[str, int], bool]:
        """A run with the when-th call changed: how it ended, the calls, whether there were so many."""
        result = self.run([str(self.tools / "meddle"), REPORT, who, str(CALLS.get(call, call)), str(when),
                           effect_argument(effect), *self.argv()])
        lines = self.r.read(REPORT).splitlines()
        counts = {NAMES.get(int(line.split()[0]), line.split()[0]): int(line.split()[1])
                  for line in lines if line != "done"}
        return result, counts, "done" in lines

    def troubled(self, who: str, effects: dict[str, tuple[str, ...]], numbers: Callable[[int], list[int]]
                 ) -> Iterator[tuple[str, list[str]]]:
        """Runs with one system call that fails, is interrupted or cut short: what was done, and what was wrong."""
        for call, effects_of_call in effects.items():
            if call == "mmap" and self.sanitized:
                continue  # what a sanitizer's run time cannot map it ends the process for
            for effect in effects_of_call:
                self.restore()
                _, counts, _ = self.meddled(who, call, 0, effect)
                self.r.wait_idle()
                for number in numbers(counts.get(call, 0)):
                    self.restore()
                    result, _, done = self.meddled(who, call, number, effect)
                    found = self.problems(result)
                    # How often a pipe or a busy port is read differs from run to run.
                    if done or found:
                        yield f"{who}: {effect} at {call} {number}", found

    def killed(self, calls: str, numbers: Callable[[int], list[int]]) -> Iterator[tuple[str, list[str]]]:
        """Runs that are killed before one of their system calls, each with another run after it: how far the first
        came, and what was wrong with what it left or with the second."""
        self.restore()
        _, counts, _ = self.meddled("self", calls, 0, "kill")
        self.r.wait_idle()
        for number in numbers(sum(counts.values())):
            self.restore()
            result, _, done = self.meddled("self", calls, number, "kill")
            self.r.wait_idle()
            found = [] if result.returncode == (-signal.SIGKILL if done else 0) else [f"ended with {result.returncode}"]
            found += self.file_problems(drafts=True)
            again = self.run(self.argv())
            self.r.wait_idle()
            if again.returncode != 0 or self.status_of(again) != self.wanted_status:
                found.append(f"the next run ended with {again.returncode}, {again.stdout[-300:]}")
            found += self.unfinished() + self.port_problems()
            yield f"killed before call {number}", found

    def unfinished(self) -> list[str]:
        """How the files differ from what is wanted. Changes that are staged count: who reads the configuration sees
        them."""
        found = []
        now = {path: text for path, text in self.files().items() if not DRAFT.search(path)}
        for path in sorted(self.wanted.keys() | now.keys()):
            if path.startswith(STAGED) or now.get(path) == self.wanted.get(path):
                continue
            package = path.removeprefix(f"{CONFIG}/")
            if not path.startswith(CONFIG) or self.exported(package) != self.exported(package, self.wanted):
                found.append(f"the next run left {path}: {now.get(path)!r}")
        return found

    def exported(self, package: str, files: Files | None = None) -> str:
        """A package as a program reads it; or as it would be if the files were these."""
        if files is None:
            return self.run(["uci", "export", package]).stdout
        self.r.write(f"/tmp/allowed/{package}", files[f"{CONFIG}/{package}"])
        return self.run(["uci", "-c", "/tmp/allowed", "-P", "/tmp/none", "export", package]).stdout

    def status_of(self, result: Result) -> int | None:
        """The handler's status, from what call_handler prints."""
        if self.case.argv:
            return None
        return json.loads(result.stdout.splitlines()[-1])["status"]

    def short_of_memory(self, mode: str, numbers: Callable[[int], list[int]]) -> Iterator[tuple[int, list[str]]]:
        """Runs with the n-th allocation failing ("once"), or all from it on ("on"), for the numbers that are chosen of
        as many as there are: each number and what was wrong."""
        self.restore()
        if self.case.argv:
            yield from self.commands_short_of_memory(mode, numbers)
        else:
            yield from self.handlers_short_of_memory(mode, numbers)

    def commands_short_of_memory(self, mode: str, numbers: Callable[[int], list[int]]
                                 ) -> Iterator[tuple[int, list[str]]]:
        def run(number: int) -> tuple[Result, list[int]]:
            with contextlib.suppress(FileNotFoundError):
                self.r.remove(REPORT)
            result = self.run(self.argv(), "short_memory", FAULTS_MEMORY=f"{number} {mode} {REPORT}")
            # Without a report the program was killed, and that is told.
            return result, [int(word) for word in self.r.read(REPORT).split()] if self.r.exists(REPORT) else [0, 0, 1]

        _, [count, kept, _] = run(0)
        for number in numbers(count):
            self.restore()
            result, [_, live, failures] = run(number)
            found = self.problems(result)
            # What the C library keeps is there without a failure, too.
            found += [f"{live - kept} pieces of memory leaked"] if live - kept > self.kept_connections() else []
            if failures > 0 or found:
                yield number, found

    def handlers_short_of_memory(self, mode: str, numbers: Callable[[int], list[int]]
                                 ) -> Iterator[tuple[int, list[str]]]:
        left = None
        while left is None or left:
            # The first call takes what is taken once and for all, the second is the first that is like all others.
            with self.host(mode) as call:
                call(0)
                self.wait_for_background()
                self.restore()
                line = call(0)
                self.wait_for_background()
                left = numbers(line["allocations"]) if left is None else left
                while left:
                    self.restore()
                    number = left.pop(0)
                    line = call(number)
                    if line is None:
                        yield number, ["the server ended, or hangs", *self.problems_left_behind()]
                        break
                    found = self.handler_problems(line) + self.problems_left_behind()
                    # How many allocations there are may differ with what other programs say.
                    if line["failures"] > 0 or found:
                        yield number, found

    @contextlib.contextmanager
    def host(self, mode: str) -> Iterator[Callable[[int], dict | None]]:
        """A server that calls the handler each time with another allocation failing; None where that has killed it, or
        keeps it for ever."""
        process = self.r.start(*self.argv(), mode, env=self.environment("short_memory"), stdin=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)

        def call(number: int) -> dict | None:
            try:
                process.stdin.write(b"%d\n" % number)
                process.stdin.flush()
            except BrokenPipeError:
                return None
            [ready, _, _] = select.select([process.stdout], [], [], BUSY_LIMIT)
            line = process.stdout.readline() if ready else b""
            return json.loads(line) if line else None

        try:
            yield call
        finally:
            process.kill()
            process.wait()

    # What is allowed

    def problems(self, result: Result) -> list[str]:
        """What is wrong with a run that was interfered with and has ended."""
        found = []
        if self.case.argv:
            if result.returncode not in self.case.statuses:
                found.append(f"ended with {result.returncode}: {result.stderr[-300:]}")
        elif result.returncode != 0:
            found.append(f"ended with {result.returncode}: {result.stderr[-300:]}")
        else:
            found += self.handler_problems(json.loads(result.stdout.splitlines()[-1]))
        return found + self.problems_left_behind()

    def handler_problems(self, line: dict) -> list[str]:
        found = []
        if line["status"] not in self.case.statuses:
            found.append(f"status {line['status']}")
        if abs(line["descriptors"]) > self.kept_connections():
            found.append(f"{line['descriptors']} descriptors left")
        if line["children"] != 0:
            found.append(f"{line['children']} children left")
        if line["leaked"] > self.kept_connections():
            found.append(f"{line['leaked']} pieces of memory leaked")
        return found

    def kept_connections(self) -> int:
        return 1 if self.case.reloads else 0

    def problems_left_behind(self) -> list[str]:
        found = []
        if not self.case.background:
            found += [f"runs on: {argv}" for argv in self.left_running()]
        self.wait_for_background()
        return found + self.file_problems() + self.port_problems()

    def left_running(self) -> list[list[str]]:
        return [argv for argv in self.r.processes() if argv[:1] != [str(self.tools / "call_handler")]]

    def wait_for_background(self) -> None:
        self.r.wait_for(lambda: not self.left_running(), "the end of what runs in the background")

    def port_problems(self) -> list[str]:
        ask = ["vela_modem", "AT", "AT"]
        at = self.run(ask)
        if at.stdout != ANSWER:
            # What the modem still had to say to the run before comes late. The waiting shortened here is for that.
            at = self.r.run(*ask)
        usable = (at.returncode, at.stdout) == (0, ANSWER)
        return [] if usable else [f"the port is not usable: {at.returncode} {at.stdout!r} {at.stderr!r}"]

    def file_problems(self, drafts: bool = False) -> list[str]:
        """Files that are neither as before nor as wanted, nor what the case allows; with `drafts`, a new file may lie
        beside the one that it was to replace."""
        found = []
        now = self.files()
        for path in sorted(self.before.keys() | self.wanted.keys() | now.keys()):
            text = now.get(path)
            if text in (self.before.get(path), self.wanted.get(path)) or (drafts and DRAFT.search(path)):
                continue
            if path in self.case.verdicts:
                verdict = self.case.verdicts[path](self, text)
                if verdict is not None:
                    found.append(f"{path}: {verdict}")
            elif path.startswith(STAGED):
                found += self.staged_problems(path)
            else:
                found.append(f"{path} holds {text!r}")
        return found

    def staged_problems(self, path: str) -> list[str]:
        """Changes that could be staged and not committed are complete: whoever commits next has what was wanted."""
        package = path.removeprefix(f"{STAGED}/")
        seen = self.exported(package)
        allowed = [self.exported(package, files) for files in (self.before, self.wanted)]
        return [] if seen in allowed else [f"staged for {package}: {seen!r}"]


def sampled(count: int, every: bool, most: int) -> list[int]:
    """The numbers 1 to `count`, or a few of them: the first, the last, and some in between."""
    if every or count <= most:
        return list(range(1, count + 1))
    return sorted({1 + round(index * (count - 1) / (most - 1)) for index in range(most)})


@contextlib.contextmanager
def faults_of(case: Case) -> Iterator[Faults]:
    faults = Faults(case)
    try:
        yield faults
    finally:
        faults.close()
