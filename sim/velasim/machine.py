"""Builds the router's file system in a fresh mount namespace and moves into it.

The root is the machine's own, as the lower layer of an overlay whose upper layer lies on a tmpfs. Over it come the
directories that a router has and a build host has otherwise: /sys, /dev, /run, /tmp, /etc/config and the like.
"""

import os
import shutil
import stat

from . import linux
from .stand_ins import FRESH_DIRECTORIES, PROGRAMS, SPOOL

SIM = "/run/sim"
EVENTS = f"{SIM}/events.jsonl"
ANSWERS = f"{SIM}/answers"
LIBRARY = f"{SIM}/lib"
RECORDER = f"{SIM}/recorder"
UBUS_SOCKET = "/run/ubus/ubus.sock"
UBUS_STATE = f"{SIM}/ubus.json"

DEVICES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8), "urandom": (1, 9), "tty": (5, 0)}
OWN_MOUNTS = ("sys", "dev", "run", "tmp")
# Which product file goes where; vela_api looks for the plug-in in its own directory first.
PRODUCTS = {
    "vela_modem": ("/usr/bin/vela_modem",),
    "vela_api": ("/usr/bin/vela_api",),
    "vela_modem.so": ("/usr/lib/vela_modem.so", "/usr/bin/vela_modem.so"),
}
# What rpcd runs: vela_api under this name.
RPCD_PROGRAM = "/usr/libexec/rpcd/vela_modem"
# Where a coverage build counts: not copied on write, as the machine wants to know.
COUNTERS = "counters"
TOOLS = {"hostlibs/uci/uci": "/sbin/uci", "hostlibs/ubus/ubus": "/bin/ubus"}
# Programs that print something else on a router than on this machine: the scripts of sim/ that stand in for them.
SCRIPTS = {"/usr/bin/ps": "busybox_ps"}


def build(setup: dict) -> None:
    """Makes the router and becomes a process of it. `setup` is what router.py sent."""
    build_dir, sim_dir = setup["build"], setup["sim"]
    linux.make_root_private(_scratch())
    # Sources are held open by descriptor: the scratch may cover the place where they lie.
    held = {name: os.open(name, os.O_PATH) for name in _sources(build_dir, sim_dir, setup["root"])}
    scratch = _scratch()
    linux.mount("tmpfs", scratch, "tmpfs", linux.MS_NOSUID, "mode=755")
    root = f"{scratch}/root"
    for name in ("upper", "work", "root", *OWN_MOUNTS, "fresh"):
        os.mkdir(f"{scratch}/{name}")
    linux.mount("overlay", root, "overlay", 0, f"lowerdir=/,upperdir={scratch}/upper,workdir={scratch}/work")

    for name in OWN_MOUNTS:
        linux.bind(f"{scratch}/{name}", f"{root}/{name}")
    for number, path in enumerate(FRESH_DIRECTORIES):
        os.mkdir(f"{scratch}/fresh/{number}")
        os.makedirs(root + path, exist_ok=True)
        linux.bind(f"{scratch}/fresh/{number}", root + path)
    os.chmod(f"{root}/tmp", 0o1777)
    if not os.path.islink(f"{root}/var/run"):
        linux.bind(f"{scratch}/run", f"{root}/var/run")
    linux.mount("proc", f"{root}/proc", "proc")
    _make_devices(root)

    os.makedirs(root + ANSWERS)
    os.mkdir(root + LIBRARY)
    linux.bind(f"/proc/self/fd/{held[sim_dir]}", root + LIBRARY)
    _install(root, build_dir, held)
    if setup["root"] is not None:
        _copy_tree(f"/proc/self/fd/{held[setup['root']]}", root)
    for fd in held.values():
        os.close(fd)
    old = f"{root}/run/sim/old"
    os.mkdir(old)
    linux.pivot_root(root, old)
    os.chdir("/")
    linux.detach("/run/sim/old")
    os.rmdir("/run/sim/old")
    if setup["net"]:
        linux.bring_up_loopback()

    for path in (*SPOOL, "/tmp/sysinfo", "/run/mwan3track"):
        os.makedirs(path, exist_ok=True)
    open(EVENTS, "w", encoding="ascii").close()
    for path, text in setup["files"].items():
        _write(path, text)
    _install_stand_ins()


def _scratch() -> str:
    """An empty directory that every machine has, to mount things on."""
    return next(path for path in ("/mnt", "/media", "/srv", "/opt") if os.path.isdir(path))


def _sources(build_dir: str, sim_dir: str, root: str | None) -> list[str]:
    names = [*(PRODUCTS if root is None else ()), *TOOLS, "sim/recorder", COUNTERS]
    built = [f"{build_dir}/{name}" for name in names]
    return [*([] if root is None else [root]), sim_dir, build_dir, *(path for path in built if os.path.exists(path))]


def _make_devices(root: str) -> None:
    for name, (major, minor) in DEVICES.items():
        os.mknod(f"{root}/dev/{name}", stat.S_IFCHR | 0o666, os.makedev(major, minor))
        os.chmod(f"{root}/dev/{name}", 0o666)
    os.mkdir(f"{root}/dev/pts")
    os.mkdir(f"{root}/dev/shm", 0o1777)
    linux.mount("devpts", f"{root}/dev/pts", "devpts", linux.MS_NOSUID, "newinstance,ptmxmode=0666,mode=0620")
    for name, target in (("ptmx", "pts/ptmx"), ("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                         ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2")):
        os.symlink(target, f"{root}/dev/{name}")
    os.chmod(f"{root}/dev/shm", 0o1777)


def _install(root: str, build_dir: str, held: dict[str, int]) -> None:
    """Binds what was built to its places. What was not built is not there, as on a router without the package."""
    places = {f"{build_dir}/sim/recorder": (RECORDER,)}
    places |= {f"{build_dir}/{name}": paths for name, paths in PRODUCTS.items()}
    search = os.environ.get("PATH", "/usr/sbin:/usr/bin:/sbin:/bin").split(":")
    for name, path in TOOLS.items():
        if not any(os.access(f"{directory}/{os.path.basename(path)}", os.X_OK) for directory in search):
            places[f"{build_dir}/{name}"] = (path,)
    for source, paths in places.items():
        if source not in held:
            continue
        for path in paths:
            _make_room(root + path)
            # Who writes there means this router, not the build that all of them share.
            linux.bind_read_only(f"/proc/self/fd/{held[source]}", root + path)
    if f"{build_dir}/vela_api" in held:
        os.makedirs(os.path.dirname(root + RPCD_PROGRAM), exist_ok=True)
        os.symlink("../../bin/vela_api", root + RPCD_PROGRAM)
    # Shared libraries and sanitizer run times are looked for below the build directory itself.
    if not os.path.isdir(root + build_dir):
        os.makedirs(root + build_dir)
        linux.bind(f"/proc/self/fd/{held[build_dir]}", root + build_dir)
    counters = f"{build_dir}/{COUNTERS}"
    if counters in held:
        linux.bind(f"/proc/self/fd/{held[counters]}", root + counters)


def _make_room(path: str) -> None:
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if os.path.lexists(path):
        os.unlink(path)
    open(path, "w", encoding="ascii").close()


def _copy_tree(source: str, root: str) -> None:
    """What a package manager does with a package's files: they become the router's own, modes and links included."""
    for directory, subdirectories, files in os.walk(source + "/"):
        target = root + "/" + os.path.relpath(directory, source + "/")
        os.makedirs(target, exist_ok=True)
        for name in (*files, *subdirectories):
            path, new = f"{directory}/{name}", f"{target}/{name}"
            if os.path.islink(path) or name in files:
                if os.path.lexists(new):
                    os.unlink(new)
                shutil.copy2(path, new, follow_symlinks=False)


def _install_stand_ins() -> None:
    for path in PROGRAMS:
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if os.path.lexists(path):
            os.unlink(path)
        os.symlink(RECORDER, path)
    for path, script in SCRIPTS.items():
        if os.path.lexists(path):
            os.unlink(path)
        os.symlink(f"{LIBRARY}/{script}", path)


def _write(path: str, text: str) -> None:
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(text.encode("utf-8", "surrogateescape"))
