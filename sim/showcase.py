"""The router that the demonstration and the examples of the documentation run in."""

from velasim.router import Router

MODEMS = {"1-1.2": "ec25", "2-1.2": "ep06", "1-1.3": "mc7430"}

# The MC7430 has been plugged in, but the router is not configured for it.
TWO_MODEMS = {
    "velaconfig": """config service 'modem'
	list bus '1-1.2'
	list bus '2-1.2'

config service 'passthrough'
	option enable '0'
""",
    "network": """config interface 'modem_1_1_2'
	option proto 'qmi'
	option device '/dev/cdc-wdm0'
	option apn 'internet'

config interface 'modem_2_1_2'
	option proto 'qmi'
	option device '/dev/cdc-wdm1'
	option apn 'internet'
	option disabled '1'
""",
}
CONFIGURATION = {
    **TWO_MODEMS,
    "wireless": """config wifi-device 'radio1'
	option channel '1'

config wifi-iface 'default_radio1'
	option device 'radio1'
""",
}

MESSAGE = """From: 491700000001
From_TOA: 91 international, ISDN/telephone
Sent: 26-11-21 09:30:00
Received: 26-11-21 09:30:04
Alphabet: ISO
Length: 26

Your data volume is 10 GB.
"""

# What the network of the new router's SIM is thought to need; the first is out of date.
APN_DATABASE = """module.exports.apnData = {"apns": {"apn": [
  {"carrier": "Vodafone.de", "-mcc": "262", "-mnc": "02", "-apn": "volume.d2gprs.de", "-type": "default,supl"},
  {"carrier": "Vodafone.de MMS", "-mcc": "262", "-mnc": "02", "-apn": "event.vodafone.de", "-type": "mms"},
  {"carrier": "Vodafone.de", "-mcc": "262", "-mnc": "02", "-apn": "web.vodafone.de", "-type": "default,supl"}
]}};
"""

SIM_DETECTION = {"/tmp/sim_status": "ready\n", "/tmp/sim_type": "other\n"}

BUS = {"interfaces": {"modem_1_1_2": {"state": "up", "on_up": "up", "on_reload": "down"}, "modem_2_1_2": "down"}}

# What smsd leaves of a message that is not in the modem's own alphabet.
UCS2_TEXT = "Grüße".encode("utf-16-le")


def showcase() -> Router:
    files = {"/etc/spool/sms/incoming/VMS99.k3Yt0w": MESSAGE, "/tmp/message.ucs2": UCS2_TEXT, **SIM_DETECTION}
    return Router(modems=MODEMS, files=files, uci=CONFIGURATION, ubus=BUS)


def new_router() -> Router:
    """A router with an EC25 that has not been set up. What waits for the modem or the link does not wait for long."""
    files = {"/www/src/lib/apn-config.js": APN_DATABASE, **SIM_DETECTION}
    bus = {"interfaces": {"modem_1_1_2": {"state": "down", "on_up": "up", "on_reload": "down"}}}
    return Router("ec25", files=files, ubus=bus, quick=True)
