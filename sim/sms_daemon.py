"""smstools3, the router's SMS daemon, in a simulated router: Debian's smsd between a modem's port and the spool, and
its `sendsms` script behind the router's."""

from pathlib import Path

from velasim.modem_port import SimulatedModem
from velasim.router import Process, Router, RouterError

DAEMON = "/usr/sbin/smsd"
SCRIPT = "/usr/share/doc/smstools/examples/scripts/sendsms"  # Debian leaves it with the examples
CONFIGURATION = "/etc/smsd.conf"
LOG = "/tmp/smsd.log"
SPOOL = "/etc/spool/sms"
OUTGOING = "/var/spool/sms/outgoing"  # where the script puts its files

GLOBAL = f"""devices = {{names}}
outgoing = {OUTGOING}
checked = {SPOOL}/checked
incoming = {SPOOL}/incoming
sent = {SPOOL}/sent
failed = {SPOOL}/failed
national_prefixes = 0
logfile = {LOG}
infofile = /run/smsd.working
pidfile = /run/smsd.pid
delaytime = 1
"""
DEVICE = """
[{name}]
device = {tty}
incoming = yes
"""

# The router's script takes a number, a text and a type of number. Debian's would take the last of three arguments for
# the text and all others for numbers; the type it leaves to the daemon, which goes by the number.
SENDSMS = f"""#!/bin/dash
exec {SCRIPT} "$1" "$2"
"""


def start_sms_daemon(router: Router, **modems: SimulatedModem) -> Process:
    """Starts the daemon on the second AT port of these modems (the first is this program's) and lets `sendsms` reach
    it. A modem's keyword is the daemon's name for it, with which its files of received messages begin: VMS99, and VMS98
    for the one on bus 1-1.3. The daemon ends with the router, or when it is terminated."""
    for path in (DAEMON, SCRIPT):
        if not Path(path).exists():
            raise RouterError(f"{path} is missing: Debian's package smstools brings it")
    devices = [DEVICE.format(name=name, tty=modem.tty(3)) for name, modem in modems.items()]
    router.write(CONFIGURATION, GLOBAL.format(names=", ".join(modems)) + "".join(devices))
    router.host_path(OUTGOING).mkdir(exist_ok=True)
    router.answer("sendsms", SENDSMS, executable=True)
    return router.start(DAEMON, "-t", f"-c{CONFIGURATION}")
