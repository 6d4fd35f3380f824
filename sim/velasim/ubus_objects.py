"""What is on the simulated bus, and what it answers: netifd's objects and those that the state file adds.

No sockets and no bytes here: a call is an object, a method and a dictionary in, a status and a dictionary out.
"""

from typing import Any, Callable

from .ubus_wire import Status

Answer = tuple[Status, dict[str, Any] | None]

_INTERFACE = "network.interface."
_CONTROLS = ("state", "on_up", "on_down", "on_reload")
_COUNTERS = (
    "rx_bytes", "rx_packets", "rx_errors", "rx_dropped",
    "tx_bytes", "tx_packets", "tx_errors", "tx_dropped",
)  # fmt: skip

OK: Answer = (Status.OK, None)
NOT_FOUND: Answer = (Status.NOT_FOUND, None)


class State:
    """One reading of the state file; ubusd.py describes its members."""

    def __init__(self, state: dict[str, Any]) -> None:
        if not isinstance(state, dict):
            raise ValueError("the state is not an object")
        self._interfaces: dict[str, dict[str, Any]] = {
            name: dict(entry) if isinstance(entry, dict) else {"state": entry}
            for name, entry in state.get("interfaces", {}).items()
        }
        self._devices: dict[str, dict[str, Any]] = state.get("devices", {})
        self._replies: dict[str, dict[str, Any]] = state.get("replies", {})
        self._faults: dict[str, dict[str, Any]] = state.get("faults", {})
        self.greeting_fault: Any = state.get("greeting")

    def fault(self, path: str, method: str) -> Any:
        return self._faults.get(path, {}).get(method)

    def objects(self) -> dict[str, list[str]]:
        """The methods of every object, by its path."""
        methods = {path: list(table) for path, table in self._tables().items()}
        for path, replies in self._replies.items():
            known = methods.setdefault(path, [])
            known += [method for method in replies if method not in known]
        return methods

    def call(self, path: str, method: str, args: dict[str, Any]) -> Answer:
        replies = self._replies.get(path, {})
        if method in replies:
            return Status.OK, replies[method]
        table = self._tables().get(path)
        if table is None:
            return (Status.METHOD_NOT_FOUND, None) if path in self._replies else NOT_FOUND
        if method not in table:
            return Status.METHOD_NOT_FOUND, None
        return table[method](args)

    def _tables(self) -> dict[str, dict[str, Callable[[dict[str, Any]], Answer]]]:
        tables: dict[str, dict[str, Callable[[dict[str, Any]], Answer]]] = {
            "mqtt": {"notify": lambda _: OK},
            "network": {"reload": self._reload},
            "network.device": {"status": self._device_status},
            "network.interface": {
                "dump": self._dump,
                "status": lambda args: self._interface_status(args.get("interface")),
                "up": lambda args: self._switch(args.get("interface"), "on_up"),
                "down": lambda args: self._switch(args.get("interface"), "on_down"),
            },
        }
        for name in self._known_interfaces():
            tables[_INTERFACE + name] = {
                "status": lambda _, name=name: self._interface_status(name),
                "up": lambda _, name=name: self._switch(name, "on_up"),
                "down": lambda _, name=name: self._switch(name, "on_down"),
            }
        return tables

    def _known_interfaces(self) -> list[str]:
        return [name for name, entry in self._interfaces.items() if entry.get("state", "down") != "unknown"]

    def _describe(self, name: str) -> dict[str, Any]:
        entry = self._interfaces[name]
        state = entry.get("state", "down")
        status: dict[str, Any] = {
            "up": state == "up",
            "pending": state == "pending",
            "available": True,
            "autostart": state != "down",
            "dynamic": False,
        }
        if state == "up":
            status["uptime"] = 60
        status.update({key: value for key, value in entry.items() if key not in _CONTROLS})
        return status

    def _interface_status(self, name: Any) -> Answer:
        return (Status.OK, self._describe(name)) if name in self._known_interfaces() else NOT_FOUND

    def _dump(self, _: dict[str, Any]) -> Answer:
        interfaces = [{"interface": name, **self._describe(name)} for name in self._known_interfaces()]
        return Status.OK, {"interface": interfaces}

    def _switch(self, name: Any, control: str) -> Answer:
        if name not in self._known_interfaces():
            return NOT_FOUND
        entry = self._interfaces[name]
        entry["state"] = entry.get(control, entry.get("state", "down"))
        return OK

    def _reload(self, _: dict[str, Any]) -> Answer:
        for name in self._known_interfaces():
            self._switch(name, "on_reload")
        return OK

    @staticmethod
    def _describe_device(counters: dict[str, Any]) -> dict[str, Any]:
        statistics = {counter: counters.get(counter, 0) for counter in _COUNTERS}
        others = {key: value for key, value in counters.items() if key not in _COUNTERS}
        status = {"external": False, "type": "Network device", "up": True, "carrier": True}
        return {**status, **others, "statistics": statistics}

    def _device_status(self, args: dict[str, Any]) -> Answer:
        if "name" not in args:
            return Status.OK, {name: self._describe_device(counters) for name, counters in self._devices.items()}
        if args["name"] not in self._devices:
            return NOT_FOUND
        return Status.OK, self._describe_device(self._devices[args["name"]])
