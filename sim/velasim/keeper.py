"""The process that is the simulated router.

Born in the nursery (nursery.py), it makes the namespaces, becomes their first process, plays the modems and obeys the
commands that come as JSON lines over a socket. When that socket closes, for whatever reason, it ends; and with it, as
it is the first process of a PID namespace and the owner of a mount namespace, everything that ran or was mounted in
it.
"""

import json
import os
import signal
import socket
import sys
import traceback

from . import linux, machine, modem_file, ubusd, usb
from .moods import Moods
from .player import Loop, Modem

RPCD = "velasim.rpcd"


class Keeper:
    def __init__(self, control: socket.socket, setup: dict) -> None:
        self.control, self.setup = control, setup
        self.loop = Loop()
        self.modems: dict[str, Modem] = {}
        self.buffer = b""
        self.ubusd: int | None = None

    def start(self) -> None:
        files = {bus: modem_file.load(name) for bus, name in self.setup["modems"].items()}
        machine.build(self.setup)
        usb.prepare()
        if self.setup["ubus"]:
            self.start_ubusd()
        for bus, file in files.items():
            self.modems[bus] = Modem(self.loop, bus, file)
            self.modems[bus].plug()
        # Orphans of the commands that ran in the router come here and are buried at once.
        signal.signal(signal.SIGCHLD, lambda *_: None)
        wake_read, wake_write = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.set_wakeup_fd(wake_write)
        self.loop.selector.register(wake_read, 1, lambda events: self.reap(wake_read))
        self.loop.selector.register(self.control, 1, self.receive)

    def start_ubusd(self) -> None:
        os.makedirs("/run/ubus", exist_ok=True)
        self.ubusd = os.fork()
        if self.ubusd == 0:
            try:
                ubusd.Daemon(machine.UBUS_SOCKET, machine.UBUS_STATE, machine.EVENTS).serve()
            except BaseException:
                traceback.print_exc()
            finally:
                os._exit(1)

    def reap(self, wake: int) -> None:
        try:
            os.read(wake, 4096)
        except BlockingIOError:
            pass
        try:
            while os.waitpid(-1, os.WNOHANG)[0] != 0:
                pass
        except ChildProcessError:
            pass

    def receive(self, events: int) -> None:
        data = self.control.recv(65536)
        if not data:
            sys.exit(0)
        self.buffer += data
        while b"\n" in self.buffer:
            line, self.buffer = self.buffer.split(b"\n", 1)
            request = json.loads(line)
            try:
                result = getattr(self, "do_" + request.pop("do"))(**request)
                reply = {"result": result}
            except Exception as problem:  # the test sees it as its own exception
                reply = {"error": f"{type(problem).__name__}: {problem}"}
            self.control.sendall((json.dumps(reply) + "\n").encode())

    # The commands. Their arguments are the members of the request; text that stands for bytes is in latin-1.

    def do_plug(self, bus: str, first_tty: int | None, model: str | None) -> None:
        if bus not in self.modems:
            self.modems[bus] = Modem(self.loop, bus, modem_file.parse(model or "", bus))
        self.modems[bus].plug(first_tty)

    def do_unplug(self, bus: str) -> None:
        self.modems[bus].unplug()

    def do_ttys(self, bus: str) -> dict[str, str]:
        device = self.modems[bus].device
        return {} if device is None else {str(number): name for number, name in device.ttys.items()}

    def do_reply(self, bus: str, command: str, data: str, delay: float) -> None:
        self.modems[bus].override(command, [(delay * 1000.0, data.encode("latin-1"))])

    def do_misbehave(self, bus: str, kind: str, interface: int | None, options: dict) -> None:
        for port in self.ports(bus, interface):
            port.trouble.switch_on(kind, options, self.modems[bus].received)

    def do_moods(self, bus: str, one_in: int, seed: int, kinds: list, homes: list[int]) -> None:
        self.modems[bus].moods = Moods(one_in, seed, kinds, homes) if one_in else None

    def do_mood_counts(self, bus: str) -> dict[str, int]:
        moods = self.modems[bus].moods
        return {} if moods is None else moods.counts

    def do_behave(self, bus: str, interface: int | None) -> None:
        for number, trouble in self.modems[bus].troubles.items():
            if interface in (None, number):
                trouble.active.clear()
        for port in self.modems[bus].ports.values():
            if interface in (None, port.interface):
                port.stop_sending()

    def do_say(self, bus: str, data: str, interface: int | None) -> None:
        for port in self.ports(bus, interface):
            port.send([(0.0, data.encode("latin-1"))])

    def do_sms(self, bus: str, pdu: str) -> int:
        return self.modems[bus].sms.put(pdu)

    def do_sms_sent(self, bus: str) -> list[str]:
        return self.modems[bus].sms.sent

    def do_processes(self) -> list[dict]:
        """What runs in the router besides this process, the bus daemon and rpcd's stand-in."""
        own = {1, self.ubusd}
        found = []
        for name in os.listdir("/proc"):
            if name.isdigit() and int(name) not in own:
                try:
                    with open(f"/proc/{name}/cmdline", "rb") as file:
                        words = file.read().decode("latin-1").split("\0")[:-1]
                    if RPCD not in words:
                        found.append({"pid": int(name), "argv": words})
                except OSError:
                    pass
        return found

    def do_end_processes(self) -> None:
        for process in self.do_processes():
            try:
                os.kill(process["pid"], signal.SIGKILL)
            except ProcessLookupError:
                pass

    def ports(self, bus: str, interface: int | None) -> list:
        ports = self.modems[bus].ports
        if interface is not None and interface not in ports:
            raise ValueError(f"interface {interface} of {bus} has no tty")
        return [port for number, port in ports.items() if interface in (None, number)]


def keep(control: socket.socket, setup: dict) -> None:
    """The life of the first process inside."""
    linux.die_with_parent(signal.SIGKILL)
    keeper = Keeper(control, setup)
    keeper.start()
    control.sendall(b'{"result": "ready"}\n')
    while True:
        keeper.loop.run_once()


def main(control: socket.socket, setup_pipe: int) -> None:
    """The outer process: it only waits for the inner one, so that whoever waits for it knows that all is gone."""
    with open(setup_pipe, "rb") as pipe:
        setup = json.loads(pipe.read())
    linux.unshare(linux.CLONE_NEWNS | linux.CLONE_NEWPID | (linux.CLONE_NEWNET if setup["net"] else 0))
    child = os.fork()
    if child == 0:
        try:
            keep(control, setup)
        except Exception:
            problem = traceback.format_exc()
            control.sendall((json.dumps({"error": problem}) + "\n").encode())
        finally:
            os._exit(0)
    control.sendall((json.dumps({"result": child}) + "\n").encode())
    control.close()
    os.waitpid(child, 0)
