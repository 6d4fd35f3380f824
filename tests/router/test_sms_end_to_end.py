"""Messages and mail the whole way: between the modem and the plug-in by the real SMS daemon, and from the plug-in to a
mail server by the real mailer."""

import contextlib
import json
from pathlib import Path
from typing import Iterator

import pytest
from sms_daemon import start_sms_daemon
from velasim import Router
from velasim.router import Process
from velasim.sms_pdu import GSM7, INTERNATIONAL, NATIONAL, UCS2, Submit, deliver, read_submit

INCOMING = "/etc/spool/sms/incoming"
STORAGE = "/etc/spool/sms/storage"
EC25 = {"modem_id": 3}
DAEMON_PATIENCE = 120.0


def listed(r: Router) -> list[dict]:
    """The listed messages, by the time at which they were sent."""
    status, reply = r.api("get", "/modem/sms/list", EC25)
    assert status == 0 and list(reply) == ["messages"]
    return sorted(reply["messages"], key=lambda message: message["time"])


# The daemon writes UCS-2 in network order, the program reads it in the order that the C library means by "UCS2".
# Characters of two equal bytes are the same in both.
WIDE = "\u0404\u0505\u4e4e\u5959"


def test_received_messages_are_listed_marked_read_and_deleted(router):
    r = router(modems={"1-1.2": "ec25", "1-1.3": "ec20"})
    first, second = r.modem("1-1.2"), r.modem("1-1.3")
    first.receive_sms(deliver("+900000000017", "261001123456", "Hello from GSM 7 bit, 17 times"))
    first.receive_sms(deliver("0900000018", "261001123457", WIDE, UCS2))
    second.receive_sms(deliver("+900000000019", "261001123458", "for the other modem"))
    daemon = start_sms_daemon(r, VMS99=first, VMS98=second)
    # A message is deleted from the modem once its file is complete.
    r.wait_for(lambda: "AT+CMGD=2" in first.commands and "AT+CMGD=1" in second.commands,
               "the daemon to take the messages from the modems", DAEMON_PATIENCE)
    daemon.terminate()
    daemon.wait(DAEMON_PATIENCE)
    r.wait_idle()

    [other, *names] = [name for name in r.listdir(INCOMING) if name.startswith("VMS")]
    assert [other[:6], *(name[:6] for name in names)] == ["VMS98.", "VMS99.", "VMS99."]
    messages = listed(r)
    assert sorted(message["name"] for message in messages) == names
    hello, wide = (message["name"] for message in messages)
    expected = [
        {"from": "900000000017\n", "type": "international", "time": "26-10-01 12:34:56\n",
         "body": "Hello from GSM 7 bit, 17 times", "status": "unread", "name": hello},
        {"from": "0900000018\n", "type": "national", "time": "26-10-01 12:34:57\n", "body": WIDE, "status": "unread",
         "name": wide}]
    assert messages == expected

    r.clear_events()
    assert r.api("post", "/modem/sms/status", {**EC25, "msg_id": hello}) == (0, {})
    assert listed(r) == [{**expected[0], "status": "read"}, expected[1]]
    assert r.listdir(STORAGE) == [hello]
    for msg_id, left in ((hello, expected[1:]), (wide, [])):
        assert r.api("post", "/modem/sms/delete", {**EC25, "msg_id": msg_id}) == (0, {})
        assert listed(r) == left
    assert r.listdir(INCOMING) == [other] and r.listdir(STORAGE) == [] and r.events == []


# What is asked for, and what the modem is told to send: the receiver's digits and their type, the alphabet, the text.
SENT = [
    ({"number": "900000000017", "message": "Hello {x}, \u20ac 5 & \"10\""},
     ("900000000017", INTERNATIONAL, GSM7, "Hello {x}, \u20ac 5 & \"10\"")),
    ({"number": "+900000000018", "message": "$(reboot) \\ $HOME; reboot", "type": "international"},
     ("900000000018", INTERNATIONAL, GSM7, "$(reboot) \\ $HOME; reboot")),
    ({"number": "0900000019", "message": f"{WIDE} \u0416", "type": "national"},
     ("0900000019", NATIONAL, UCS2, f"{WIDE} \u0416")),
    ({"number": "900000000020", "message": "0123456789" * 20},
     ("900000000020", INTERNATIONAL, GSM7, "0123456789" * 20)),
]


def joined(messages: list[Submit]) -> list[tuple[str, int, int, str]]:
    """What arrives of the messages, by number: the parts of a long text as one."""
    texts: dict[tuple[str, int, int], str] = {}
    # A header is the reference of the whole, the number of parts and the part's own number.
    for message in sorted(messages, key=lambda each: (each.number, each.header)):
        key = (message.number, message.type_of_address, message.coding)
        texts[key] = texts.get(key, "") + message.text
    return [(*key, text) for key, text in texts.items()]


def test_messages_are_sent(router):
    r = router("ec25")
    daemon = start_sms_daemon(r, VMS99=r.modem())
    for request, _ in SENT:
        assert r.api("post", "/modem/sms/send", {**EC25, **request}) == (0, {})
    parts = len(SENT) + 1
    r.wait_for(lambda: len(r.modem().sent_sms) == parts, "the daemon to send the messages", DAEMON_PATIENCE)
    daemon.terminate()
    daemon.wait(DAEMON_PATIENCE)
    sent = [read_submit(pdu) for pdu in r.modem().sent_sms]
    assert joined(sent) == sorted(expected for _, expected in SENT)
    assert {message.centre for message in sent} == {""}
    assert sorted(message.header[-2:] for message in sent if message.header) == [b"\2\1", b"\2\2"]
    assert r.listdir("/etc/spool/sms/failed") == []


# Mail

MAILER = Path("/usr/sbin/ssmtp")
SINK = Path(__file__).with_name("smtp_sink.py")
CERTIFICATE = "/tmp/certificate.pem"
SERVER = "mail.example.net"
ACCOUNT = {"account": "router@example.net", "password": "a/pass+word:1", "local_tel": "+900000000021"}


@pytest.fixture
def mailing_router(router) -> Router:
    """A router with the mailer and a name for the mail server, which is to be on its own loopback device."""
    assert MAILER.exists(), "this test needs Debian's package ssmtp"
    r = router("ec25", net=True, files={"/etc/hosts": f"127.0.0.1 localhost {SERVER}\n"})
    # The real mailer, at another place than the program that records its use and then starts it.
    r.write("/usr/libexec/router/ssmtp", MAILER.read_bytes())
    r.host_path("/usr/libexec/router/ssmtp").chmod(0o755)
    r.answer("ssmtp", '#!/bin/dash\nexec /usr/libexec/router/ssmtp "$@"\n', executable=True)
    r.answer("opkg", "ssmtp - 2.64-4\n")
    return r


@contextlib.contextmanager
def mail_server(r: Router, port: int) -> Iterator[Process]:
    """A mail server for one message, with a certificate that it made itself."""
    made = r.run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                 "-subj", f"/CN={SERVER}", "-days", "2", "-keyout", CERTIFICATE, "-out", f"{CERTIFICATE}.part")
    assert made.returncode == 0, made.stderr
    r.write(CERTIFICATE, r.read(CERTIFICATE) + r.read(f"{CERTIFICATE}.part"))
    with open(SINK, encoding="utf-8") as source:
        server = r.start("/usr/bin/python3", "-S", "-", str(port), CERTIFICATE, ACCOUNT["account"],
                         ACCOUNT["password"], stdin=source)
    assert server.stdout.readline() == b"listening\n", server.stderr.read()
    yield server
    server.kill()


def heard(server: Process) -> dict:
    """What the mail server was told, once the mailer has gone."""
    output, errors = server.communicate(timeout=60)
    assert errors == b""
    return json.loads(output)


@pytest.mark.parametrize("port, before_tls", [(465, []), (587, ["EHLO example.net", "STARTTLS"])])
def test_the_verification_mail_arrives(mailing_router, port, before_tls):
    r = mailing_router
    with mail_server(r, port) as server:
        assert r.api("post", "/modem/sms/account", {**ACCOUNT, "smtp": f"{SERVER}:{port}"}) == (0, {})
        session = heard(server)
    headers, _, body = session.pop("mail").partition("\r\n\r\n")
    assert session == {
        "before_tls": before_tls, "login": [ACCOUNT["account"], ACCOUNT["password"]],
        "from": "<router@example.net>", "to": ["<router@example.net>"], "refused": []}
    lines = headers.split("\r\n")
    for line in ("From: router@example.net", "Subject:Verification email", "Content-Type: text/html;charset=UTF-8"):
        assert lines.count(line) == 1
    assert body == " This email account has been set to sms forward sender successfully - Tessaly\r\n"
    assert r.read("/etc/config/velaforward").count("+900000000021") == 1


def test_a_mail_that_the_server_refuses_is_no_failure_of_the_account(mailing_router):
    r = mailing_router
    with mail_server(r, 465) as server:
        request = {**ACCOUNT, "password": "wrong", "smtp": f"{SERVER}:465"}
        assert r.api("post", "/modem/sms/account", request) == (0, {})
        session = heard(server)
    assert session["login"] == [] and session["refused"] == ["AUTH"] and session["mail"] == ""
    status, reply = r.api("get", "/modem/sms/flist")
    assert status == 0 and (reply["account"], reply["password"]) == ("router@example.net", "wrong")


def test_a_mail_server_that_stays_silent_is_left(mailing_router):
    """The limit is an alarm of the shell that runs the command; here it comes at once."""
    r = mailing_router

    def find(words: list[str]) -> list[int]:
        return [each["pid"] for each in r.ask("processes") if each["argv"][:len(words)] == words]

    def signal_to(name: str, words: list[str]) -> None:
        [pid] = find(words)
        assert r.run("/bin/dash", "-c", f"kill -{name} {pid}").returncode == 0

    shell, mailer = ["sh", "-c"], ["/usr/libexec/router/ssmtp", "-vvv", ACCOUNT["account"]]
    with mail_server(r, 465):
        # It goes on listening: the kernel takes the connection, and nobody says a word.
        signal_to("STOP", ["/usr/bin/python3", "-S", "-"])
        client = r.start("vela_api", "post", "/modem/sms/account", json.dumps({**ACCOUNT, "smtp": f"{SERVER}:465"}))
        r.wait_for(lambda: find(mailer) and len(find(shell)) == 1, "the mailer")
        signal_to("ALRM", shell)
        assert client.communicate(timeout=60)[1].endswith(b"status 0\n")
        r.wait_for(lambda: not find(mailer), "the mailer's end")
