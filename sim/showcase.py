"""The router that the demonstration and the examples of the documentation run in."""

from velasim.router import Router

MODEMS = {"1-1.2": "ec25", "2-1.2": "ep06", "1-1.3": "mc7430"}

# The MC7430 has been plugged in, but the router is not configured for it.
CONFIGURATION = {
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

BUS = {"interfaces": {"modem_1_1_2": "up", "modem_2_1_2": "down"}}


def showcase() -> Router:
    files = {"/etc/spool/sms/incoming/VMS99.k3Yt0w": MESSAGE}
    return Router(modems=MODEMS, files=files, uci=CONFIGURATION, ubus=BUS)
