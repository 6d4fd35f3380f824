"""The few Linux calls that Python 3.11 has no wrapper for."""

import ctypes
import errno
import fcntl
import os
import socket
import struct

CLONE_NEWNS = 0x00020000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 1
MS_NOSUID = 2
MS_REMOUNT = 32
MS_BIND = 4096
MS_REC = 16384
MS_PRIVATE = 1 << 18
MNT_DETACH = 2

PR_SET_PDEATHSIG = 1
SYS_PIVOT_ROOT = {"x86_64": 155, "aarch64": 41, "armv7l": 218, "riscv64": 41, "i686": 217}

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, what: str) -> None:
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def unshare(flags: int) -> None:
    _check(_libc.unshare(flags), "unshare")


def mount(source: str, target: str, kind: str | None = None, flags: int = 0, data: str | None = None) -> None:
    encode = lambda text: None if text is None else os.fsencode(text)
    _check(
        _libc.mount(encode(source), encode(target), encode(kind), ctypes.c_ulong(flags), encode(data)),
        f"mount {source} on {target}",
    )


def bind(source: str, target: str) -> None:
    mount(source, target, None, MS_BIND)


def bind_read_only(source: str, target: str) -> None:
    bind(source, target)
    mount("none", target, None, MS_REMOUNT | MS_BIND | MS_RDONLY)


def make_root_private(scratch: str) -> None:
    """Keeps the mounts of this namespace to itself, and makes sure that its root can be pivoted."""
    try:
        mount("none", "/", None, MS_REC | MS_PRIVATE)
    except OSError as problem:
        if problem.errno != errno.EINVAL:
            raise
        # In a chroot the root is a plain directory: move to a mount of it.
        mount("/", scratch, None, MS_BIND | MS_REC)
        mount("none", scratch, None, MS_REC | MS_PRIVATE)
        os.chroot(scratch)
        os.chdir("/")


def detach(target: str) -> None:
    _check(_libc.umount2(os.fsencode(target), MNT_DETACH), f"umount {target}")


def pivot_root(new: str, old: str) -> None:
    number = SYS_PIVOT_ROOT[os.uname().machine]
    _check(_libc.syscall(ctypes.c_long(number), os.fsencode(new), os.fsencode(old)), f"pivot_root {new}")


def die_with_parent(signal_number: int) -> None:
    _check(_libc.prctl(PR_SET_PDEATHSIG, ctypes.c_ulong(signal_number), 0, 0, 0), "prctl")


def bring_up_loopback() -> None:
    siocgifflags, siocsifflags, iff_up = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as handle:
        request = struct.pack("16sH22x", b"lo", 0)
        flags = struct.unpack("16sH22x", fcntl.ioctl(handle, siocgifflags, request))[1]
        fcntl.ioctl(handle, siocsifflags, struct.pack("16sH22x", b"lo", flags | iff_up))
