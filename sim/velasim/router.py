"""`Router`: the simulated router as a test or a demonstration sees it, from outside.

    with Router("ec25") as router:
        print(router.run("vela_modem", "AT", "AT+CSQ").stdout)

One instance is one router with its own file system, processes and modems; any number may run at the same time. It
needs root, and a build directory (the environment's VELA_BUILD, or build/ of the source tree).
"""

import json
import os
import re
import select
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from . import machine
from .modem_port import SimulatedModem
from .nursery import SIM, nursery

PASSED_ON = re.compile(r"(ASAN|UBSAN|LSAN|MSAN|TSAN)_OPTIONS|GCOV_\w+|LLVM_PROFILE_FILE|TERM")
START_LIMIT = 30.0
RPCD = "import sys; sys.path.insert(0, sys.argv[1]); from velasim.rpcd import main; main()"


class RouterError(Exception):
    """The router could not be built, or its keeper refused a request."""


@dataclass
class Result:
    """How a command ended: like subprocess.CompletedProcess, with the output as bytes, too."""

    argv: list[str]
    returncode: int  # negative: the signal that ended it
    stdout_bytes: bytes
    stderr_bytes: bytes

    @property
    def stdout(self) -> str:
        return self.stdout_bytes.decode("utf-8", "surrogateescape")

    @property
    def stderr(self) -> str:
        return self.stderr_bytes.decode("utf-8", "surrogateescape")


class Process(subprocess.Popen):
    """A program in the router. Its pid is that of the launcher (enter.c), which ends as the program does."""

    def send_signal(self, sig: int) -> None:
        # What cannot be passed on is sent to the program itself: killed with the launcher, it would be left to the
        # machine's first process, and the router's end would have to wait until that one buries it.
        if sig == signal.SIGKILL:
            try:
                children = Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text(encoding="ascii").split()
                os.kill(int(children[0]), sig)
                return
            except (OSError, IndexError):
                pass
        super().send_signal(sig)


def _to_text(value: str | bytes) -> str:
    return value if isinstance(value, str) else value.decode("utf-8", "surrogateescape")


def _image() -> dict[str, str | bytes | None]:
    """The files that a router has from the works: those below sim/image."""
    image = SIM / "image"
    return {f"/{path.relative_to(image)}": path.read_bytes() for path in sorted(image.rglob("*")) if path.is_file()}


class Router:
    def __init__(
        self,
        modem: str | None = None,
        *,
        modems: dict[str, str] | None = None,
        board: str = "pellin",
        uci: dict[str, str | None] | None = None,
        files: dict[str, str | bytes | None] | None = None,
        net: bool = False,
        ubus: bool | dict = True,
        quick: bool | int = False,
        build: str | os.PathLike | None = None,
        root: str | os.PathLike | None = None,
    ) -> None:
        """`modem` is short for modems={"1-1.2": modem}. `uci` is the text of configuration files by package and
        `files` that of any other files, in place of those of sim/image (None: no such file). `ubus` may be what the bus
        daemon reports from the start, and False for none at all. In a `quick` router a sleep of a second or more takes
        a hundredth of it, and an alarm comes after a tenth; with a number, all waiting of the programs takes that
        fraction (quick_sleep.c). With a `root` the router has the files below that directory, as installed there, in
        place of the build's programs and of those files of sim/image that it has."""
        if os.geteuid() != 0:
            raise RouterError("the simulated router needs root (mount namespaces): run it as root or with sudo")
        self.build = Path(build or os.environ.get("VELA_BUILD") or SIM.parent / "build").resolve()
        self._quick = quick
        for name in ("recorder", "enter", "quick_sleep.so"):
            if not (self.build / "sim" / name).exists():
                raise RouterError(f"{self.build}/sim/{name} is missing: build first, or point VELA_BUILD at a build")
        if modem is not None:
            modems = {"1-1.2": modem, **(modems or {})}
        content: dict[str, str | bytes | None] = {
            **{path: text for path, text in _image().items() if root is None or not Path(f"{root}{path}").exists()},
            "/tmp/sysinfo/board_name": f"vela,{board}\n",
            "/tmp/sysinfo/model": f"Vela {board.capitalize()}\n",
            **{f"/etc/config/{name}": text for name, text in (uci or {}).items()},
            **(files or {}),
        }
        if isinstance(ubus, dict):
            content[machine.UBUS_STATE] = json.dumps(ubus)
        setup = {
            "modems": modems or {}, "net": net, "ubus": ubus is not False, "build": str(self.build), "sim": str(SIM),
            "root": None if root is None else os.path.abspath(root),
            "files": {path: _to_text(text) for path, text in content.items() if text is not None},
        }
        self._modems = {bus: SimulatedModem(self, bus) for bus in setup["modems"]}
        self._start_keeper(setup)
        try:
            if ubus is not False:
                self.wait_for(lambda: self.exists(machine.UBUS_SOCKET), "the bus daemon's socket")
        except BaseException:
            self.close()
            raise

    # Life

    def _start_keeper(self, setup: dict) -> None:
        self._processes: list[subprocess.Popen] = []
        self._control, self._alive = nursery().bear(setup)
        self._reader = self._control.makefile("rb")
        try:
            self._control.settimeout(START_LIMIT)
            # The pid comes from the outer process and "ready" from the inner one: either may be first.
            [self.pid] = {self._receive(), self._receive()} - {"ready"}
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Ends the router and all that runs in it. When this returns, nothing of it is left."""
        if self._alive is None:
            return
        alive, self._alive = self._alive, None
        self._reader.close()
        self._control.close()
        # The first process's end kills all others in its namespace, so the commands still running end, too. They are
        # this process's children and have to be waited for here.
        while not select.select([alive], [], [], 0.001)[0]:
            for process in self._processes:
                process.poll()
        os.close(alive)
        for process in self._processes:
            process.wait()
            for pipe in (process.stdin, process.stdout, process.stderr):
                if pipe is not None:
                    pipe.close()

    def __enter__(self) -> "Router":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _receive(self):
        line = self._reader.readline()
        if not line:
            raise RouterError("the simulated router ended unexpectedly")
        reply = json.loads(line)
        if "error" in reply:
            raise RouterError(reply["error"])
        return reply["result"]

    def ask(self, do: str, **arguments: object):
        """A request to the keeper; see the do_ functions of keeper.py."""
        self._control.sendall((json.dumps({"do": do, **arguments}) + "\n").encode())
        return self._receive()

    def wait_for(self, condition: Callable[[], object], what: str, timeout: float = START_LIMIT) -> None:
        """Asks again and again until the condition holds."""
        end = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > end:
                raise RouterError(f"waited {timeout} s for {what}")
            time.sleep(0.002)

    # Programs

    def environment(self, env: dict[str, str] | None = None) -> dict[str, str]:
        base = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C.UTF-8"}
        passed = {name: value for name, value in os.environ.items() if PASSED_ON.fullmatch(name)}
        if self._quick:
            # A sanitizer's run time wants to be the first library; that it comes second does not matter to this one.
            sanitizer = passed.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
            passed |= {"LD_PRELOAD": str(self.build / "sim/quick_sleep.so"), "ASAN_OPTIONS": sanitizer}
            if self._quick is not True:
                passed["QUICK_WAITS"] = str(self._quick)
        return {**base, **passed, **(env or {})}

    def start(self, *argv: str | bytes, env: dict[str, str] | None = None, **popen: object) -> Process:
        """Starts a program in the router. Output goes to pipes unless the arguments of Popen say otherwise."""
        popen = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **popen}
        process = Process(
            [str(self.build / "sim" / "enter"), str(self.pid), *argv], env=self.environment(env), **popen
        )
        self._processes = [other for other in self._processes if other.returncode is None] + [process]
        return process

    def run(
        self,
        *argv: str | bytes,
        input: str | bytes | None = None,
        env: dict[str, str] | None = None,
        timeout: float = 120.0,
    ) -> Result:
        """Runs a program to its end. It ends when the program itself does, not when the background processes that
        it left behind close its output (which therefore is a file, not a pipe)."""
        files = [os.fdopen(os.memfd_create(name), "w+b") for name in ("stdin", "stdout", "stderr")]
        try:
            if input is not None:
                files[0].write(input if isinstance(input, bytes) else input.encode("utf-8", "surrogateescape"))
                files[0].seek(0)
            process = self.start(*argv, env=env, stdin=files[0], stdout=files[1], stderr=files[2])
            try:
                process.wait(timeout)
            except BaseException:
                process.kill()
                process.wait()
                raise
            output = []
            for file in files[1:]:
                file.seek(0)
                output.append(file.read())
        finally:
            for file in files:
                file.close()
        return Result([_to_text(word) for word in argv], process.returncode, output[0], output[1])

    def api(self, method: str, path: str, request: dict | str | None = None, **run: object) -> tuple[int, dict]:
        """Calls one endpoint of the plug-in: its status and the reply object."""
        body = request if isinstance(request, str) else json.dumps(request or {})
        result = self.run("vela_api", method, path, body, **run)
        status = re.search(r"^status (-?\d+)$", result.stderr, re.MULTILINE)
        if status is None or result.returncode not in (0, 1):
            raise RouterError(f"vela_api ended with {result.returncode}: {result.stdout}{result.stderr}")
        return int(status[1]), json.loads(result.stdout)

    def start_rpcd(self) -> None:
        """Puts the programs of /usr/libexec/rpcd on the bus (rpcd.py), until the router ends: "vela_modem" is one."""
        process = self.start("/usr/bin/python3", "-E", "-s", "-S", "-B", "-c", RPCD, machine.LIBRARY, "velasim.rpcd",
                             stderr=None)
        if process.stdout.readline() != b"ready\n":
            raise RouterError("rpcd's stand-in did not start")

    def processes(self) -> list[list[str]]:
        """The argument lists of what runs in the router now (the simulator's own processes left out)."""
        return [process["argv"] for process in self.ask("processes")]

    def wait_idle(self, timeout: float = 60.0) -> None:
        """Waits until all background processes have ended."""
        self.wait_for(lambda: not self.processes(), f"the end of {self.processes()}", timeout)

    def end_processes(self) -> None:
        """Kills whatever still runs in the router."""
        self.ask("end_processes")

    # Modems and the bus

    def modem(self, bus: str = "1-1.2") -> SimulatedModem:
        return self._modems[bus]

    def add_modem(self, bus: str, name: str, first_tty: int | None = None) -> SimulatedModem:
        """Plugs one more modem in, while the router runs."""
        from .modem_file import MODEMS

        path = Path(name) if "/" in name else MODEMS / f"{name}.modem"
        self.ask("plug", bus=bus, first_tty=first_tty, model=path.read_text(encoding="utf-8"))
        self._modems[bus] = SimulatedModem(self, bus)
        return self._modems[bus]

    def set_ubus_state(self, state: dict) -> None:
        """What the bus daemon's objects report from now on."""
        temporary = self._path(machine.UBUS_STATE + ".new")
        temporary.write_text(json.dumps(state), encoding="utf-8")
        temporary.rename(self._path(machine.UBUS_STATE))

    # Events

    @property
    def events(self) -> list[dict]:
        """All effects so far, in order: shell commands, programs, AT commands, ubus calls."""
        # Whatever stands behind the last line's end is still being written.
        lines = self._path(machine.EVENTS).read_text(encoding="utf-8").split("\n")[:-1]
        return [json.loads(line) for line in lines]

    @property
    def commands(self) -> list[str]:
        return [event["command"] for event in self.events if event["kind"] == "shell"]

    @property
    def programs(self) -> list[list[str]]:
        return [event["argv"] for event in self.events if event["kind"] == "program"]

    def clear_events(self) -> None:
        os.truncate(self._path(machine.EVENTS), 0)

    def answer(self, program: str, text: str | bytes, executable: bool = False) -> None:
        """What a recorded program prints; with `executable`, a script that is run in its place."""
        self.write(f"{machine.ANSWERS}/{program}", text)
        self._path(f"{machine.ANSWERS}/{program}").chmod(0o755 if executable else 0o644)

    def stand_in(self, path: str) -> None:
        """Records one more program, in place of the real one (for example /usr/bin/sleep)."""
        target = self._path(path, follow=False)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.unlink(missing_ok=True)
        target.symlink_to(machine.RECORDER)

    # Files

    def host_path(self, path: str) -> Path:
        """Where a file of the router can be reached from outside, links followed as they are inside."""
        return self._path(path)

    def _path(self, path: str, follow: bool = True) -> Path:
        root = f"/proc/{self.pid}/root"
        done, rest, hops = "", [part for part in path.split("/") if part], 0
        while rest:
            part = rest.pop(0)
            if part == "..":
                done = os.path.dirname(done)
                continue
            here = f"{root}{done}/{part}"
            # An absolute link inside means the router's root; the kernel would take ours.
            if part != "." and os.path.islink(here) and (follow or rest) and not done.startswith("/proc"):
                hops += 1
                if hops > 40:
                    raise OSError(f"too many links in {path}")
                target = os.readlink(here)
                done = "" if target.startswith("/") else done
                rest = [piece for piece in target.split("/") if piece] + rest
            elif part != ".":
                done = f"{done}/{part}"
        return Path(root + done)

    def read(self, path: str) -> str:
        return self.read_bytes(path).decode("utf-8", "surrogateescape")

    def read_bytes(self, path: str) -> bytes:
        return self._path(path).read_bytes()

    def write(self, path: str, text: str | bytes) -> None:
        target = self._path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(text if isinstance(text, bytes) else text.encode("utf-8", "surrogateescape"))

    def exists(self, path: str) -> bool:
        return os.path.lexists(self._path(path))

    def listdir(self, path: str) -> list[str]:
        return sorted(os.listdir(self._path(path)))

    def remove(self, path: str) -> None:
        """Removes a file, a link or a whole directory."""
        target = self._path(path, follow=False)
        if target.is_dir() and not target.is_symlink():
            shutil.rmtree(target)
        else:
            target.unlink()

    def add_directories(self, under: str, count: int) -> None:
        """Makes the tree below a directory larger by so many directories: ten to a level, at most three deep."""
        base = self._path(under) / "extra"
        paths = [base] + [base / f"a{one}" for one in range(10)]
        paths += [base / f"a{one}" / f"b{two}" for one in range(10) for two in range(max(0, count))]
        for path in paths[:count]:
            path.mkdir(exist_ok=True)
