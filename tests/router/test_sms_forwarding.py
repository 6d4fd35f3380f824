"""Forwarding of messages: whom they go to, what is reported of it, and the account that they are mailed from."""

import json
from typing import Iterator

import pytest
from modem_config import nothing_staged, packages
from support import ABORTED
from velasim import Router

FORWARD, LIST, ACCOUNT = "/modem/sms/forward", "/modem/sms/flist", "/modem/sms/account"
CONF = "/etc/ssmtp/ssmtp.conf"
ALIASES = "/etc/ssmtp/revaliases"
NO_TEXT = [5, None, True, [], {}]

GENERAL = "\nconfig general 'general'\n"
VELAFORWARD = GENERAL + """\
\toption phone '+900000017'
\toption email 'old@mail.example'
\toption subject '0170000017'
"""
OLD_CONF = "# an old configuration, longer than any that is written here\n" * 100 + "AuthUser=old@mail.example\n"
OLD_ALIASES = "root:old@mail.example:mail.example\n" * 100


@pytest.fixture(scope="module")
def shared() -> Iterator[Router]:
    with Router("ec25", ubus=False) as r:
        yield r


@pytest.fixture
def r(shared: Router) -> Router:
    """The router of all tests that leave nothing behind but effects, velaforward and ssmtp's files: one with the
    forwarding software and with ssmtp, both configured before."""
    prepare(shared)
    return shared


def prepare(r: Router) -> Router:
    r.write("/etc/forward", "")
    r.write("/etc/config/velaforward", VELAFORWARD)
    r.write(CONF, OLD_CONF)
    r.write(ALIASES, OLD_ALIASES)
    r.answer("opkg", "libc - 1.2.4-4\nssmtp - 2.64-4\nzlib - 1.2.13-1\n")
    r.answer("ssmtp", "")
    r.clear_events()
    return r


def effects(r: Router) -> list[str | list[str]]:
    """The shell commands as texts and the programs as lists of words, in order."""
    r.wait_idle()
    return [event["command"] if event["kind"] == "shell" else event["argv"] for event in r.events]


def files(r: Router) -> dict[str, bytes]:
    """All that a request could change."""
    mailer = {name: r.read_bytes(f"/etc/ssmtp/{name}") for name in r.listdir("/etc/ssmtp")}
    return {**packages(r), **mailer}


def aborts(r: Router, path: str, request: dict) -> bool:
    """Whether the request ends the process without a reply, a change or an effect."""
    before = files(r)
    r.clear_events()
    result = r.run("vela_api", "post", path, json.dumps(request))
    return ((result.returncode, result.stdout) == (ABORTED, "") and files(r) == before and r.events == []
            and nothing_staged(r))


def velaforward(r: Router) -> str:
    """The configuration file; libuci may add an empty line at its end."""
    return r.read("/etc/config/velaforward").rstrip("\n") + "\n"


def general(**options: str) -> str:
    """The configuration with these options, as libuci writes it."""
    quoted = {name: value.replace("'", "'\\''") for name, value in options.items() if value}
    return GENERAL + "".join(f"\toption {name} '{value}'\n" for name, value in quoted.items())


def without_directory(r: Router) -> None:
    assert r.run("umount", "/etc/ssmtp").returncode == 0
    r.remove("/etc/ssmtp")


def read_only(r: Router, directory: str) -> None:
    for options in ("bind", "remount,bind,ro"):
        assert r.run("mount", "-o", options, directory, directory).returncode == 0


# Targets


@pytest.mark.parametrize("request_body", [{}, {"tel": "+900000018", "email": "new@mail.example"}], ids=json.dumps)
def test_without_the_forwarding_software_nothing_is_set(router, request_body):
    r = router("ec25", ubus=False, uci={"velaforward": VELAFORWARD})
    assert r.api("post", FORWARD, request_body) == (-7, {"msg": "Forward file don't exist"})
    assert r.read("/etc/config/velaforward") == VELAFORWARD and r.events == []


@pytest.mark.parametrize("request_body", [
    {}, {"modem_id": 3, "local_tel": "17", "account": "a@b.example"}, *({"tel": value} for value in NO_TEXT),
    *({"email": value} for value in NO_TEXT), {"tel": 17, "email": None},
], ids=json.dumps)
def test_without_a_target_nothing_changes(r, request_body):
    assert r.api("post", FORWARD, request_body) == (0, {})
    assert r.read("/etc/config/velaforward") == VELAFORWARD and r.events == []


@pytest.mark.parametrize("targets, options", [
    ({"tel": "+900000018", "email": "new@mail.example"}, {"phone": "+900000018", "email": "new@mail.example"}),
    ({"tel": "17,18;19 20", "email": "a@b.example b@c.example"},
     {"phone": "17,18;19 20", "email": "a@b.example b@c.example"}),
    ({"tel": "  'two'  \"blanks\" ", "email": "line\nfeed $(reboot) \u00e4\u4f60"},
     {"phone": "  'two'  \"blanks\" ", "email": "line\nfeed $(reboot) \u00e4\u4f60"}),
    ({"tel": "+900000018"}, {"phone": "+900000018"}),
    ({"email": "new@mail.example"}, {"email": "new@mail.example"}),
    ({"tel": 17, "email": "new@mail.example"}, {"email": "new@mail.example"}),
    ({"tel": "+900000018", "email": None}, {"phone": "+900000018"}),
    ({"tel": "", "email": "new@mail.example"}, {"email": "new@mail.example"}),
    ({"tel": ""}, {}),
    ({"tel": "", "email": ""}, {}),
], ids=json.dumps)
def test_targets_are_stored_and_a_missing_one_is_cleared(r, targets, options):
    assert r.api("post", FORWARD, targets) == (0, {})
    assert velaforward(r) == general(**options, subject="0170000017")
    assert r.events == [] and nothing_staged(r)


def test_forward_with_only_email_clears_the_phone_option_and_sets_the_email_option_to_the_text(r):
    assert r.api("post", FORWARD, {"email": "new@mail.example"}) == (0, {})
    assert velaforward(r) == general(email="new@mail.example", subject="0170000017")


def test_targets_come_into_an_empty_section(r):
    r.write("/etc/config/velaforward", GENERAL)
    assert r.api("post", FORWARD, {"tel": "+900000018", "email": "o'n@mail.example"}) == (0, {})
    assert velaforward(r) == general(phone="+900000018", email="o'n@mail.example")


@pytest.mark.parametrize("key", ["tel", "email"])
@pytest.mark.parametrize("longest", ["x" * 99, "\u00e4" * 49 + "x"], ids=["ASCII", "two bytes"])
def test_a_target_of_99_bytes_is_stored_and_one_that_could_not_be_read_back_aborts(r, key, longest):
    request = {"tel": "17", "email": "a@b.example", key: longest}
    assert r.api("post", FORWARD, request) == (0, {})
    reply = r.api("get", LIST)[1]
    assert (reply["tel_list"], reply["email_list"]) == (request["tel"], request["email"])
    for longer in (longest + "x", "x" * 100_000):
        assert aborts(r, FORWARD, {**request, key: longer})


def test_a_configuration_that_cannot_be_written_is_not_noticed(router):
    r = router("ec25", ubus=False, uci={"velaforward": None}, files={"/etc/forward": ""})
    assert r.api("post", FORWARD, {"tel": "+900000018"}) == (0, {})
    assert not r.exists("/etc/config/velaforward")
    r.write("/etc/config/velaforward", VELAFORWARD)
    read_only(r, "/etc/config")
    assert r.api("post", FORWARD, {"tel": "+900000018"}) == (0, {})
    assert r.read("/etc/config/velaforward") == VELAFORWARD


# Reading back

UNSET = {"tel_list": "", "email_list": "", "account": "", "password": "", "smtp": "", "local_tel": ""}


def listed(r: Router) -> dict:
    """The settings, and that the keys have their order."""
    status, reply = r.api("get", LIST)
    assert status == 0 and list(reply) == list(UNSET)
    return reply


def test_what_is_set_is_reported_in_six_keys(r):
    r.write(CONF, "root=a@b.example\nmailhub=mail.example:587\nAuthUser=a@b.example\nAuthPass=s3cret!\n")
    assert listed(r) == {"tel_list": "+900000017", "email_list": "old@mail.example", "account": "a@b.example",
                         "password": "s3cret!", "smtp": "mail.example:587", "local_tel": "0170000017"}
    assert r.events == []


@pytest.mark.parametrize("config", [GENERAL, "", None, GENERAL + "".join(
    f"\tlist {name} 'a'\n" for name in ("phone", "email", "subject"))], ids=["no options", "empty", "missing", "lists"])
def test_what_is_not_set_is_empty(router, config):
    r = router("ec25", ubus=False, uci={"velaforward": config}, files={CONF: ""})
    assert listed(r) == UNSET


def test_flist_on_a_router_without_ssmtp_conf_answers_0_with_account_password_and_smtp_empty(router):
    r = router("ec25", ubus=False, uci={"velaforward": VELAFORWARD})
    expected = {**UNSET, "tel_list": "+900000017", "email_list": "old@mail.example", "local_tel": "0170000017"}
    assert listed(r) == expected
    r.host_path(CONF).mkdir()
    assert listed(r) == expected
    without_directory(r)
    assert listed(r) == expected


def cut(text: str, rest: str) -> str:
    """A line that is longer than what is read at once: the 255 characters end with the text."""
    return "#" * (255 - len(text)) + text + rest


# What a line gives: server, password, account.
@pytest.mark.parametrize("content, values", [
    ("mailhub=a\nAuthPass=b\nAuthUser=c\n", ("a", "b", "c")),
    ("AuthUser=c\nmailhub=a\nAuthPass=b", ("a", "b", "c")),
    # A line feeds the first that it names, in the order server, password, account.
    ("AuthUser=mailhub\nAuthPass=AuthUser\n", ("mailhub", "AuthUser", "")),
    ("AuthUser=AuthPass\n", ("", "AuthPass", "")),
    ("mailhub AuthPass AuthUser=x\n", ("x", "", "")),
    # A name counts anywhere in a line, in its own letter case.
    ("#mailhub=a\n  old AuthPass  = b\nxAuthUserx=c\n", ("a", "b", "c")),
    ("Mailhub=a\nauthpass=b\nAUTHUSER=c\n", ("", "", "")),
    # Later lines overwrite, where they have a value.
    ("mailhub=a\nmailhub=b\n#mailhub=c\n", ("c", "", "")),
    ("mailhub=a\nmailhub=\nmailhub\nmailhub= \t\n=mailhub=b\n", ("a", "", "")),
    ("AuthPass=longer\nAuthPass=b\n", ("", "b", "")),
    # A value is the text behind the first "=", up to white space.
    ("mailhub= \t a b\nAuthPass=b=c==\nAuthUser==d\n", ("a", "b=c==", "=d")),
    ("mailhub=a\tb\nAuthPass=b\r\nAuthUser=c\v\n", ("a", "b", "c")),
    ("a=b mailhub=c\n", ("b", "", "")),
    ("=a mailhub=b\n", ("", "", "")),
    ("mailhub: a\nAuthPass b\n", ("", "", "")),
    ("mailhub='a'\nAuthPass=\"b\\\nAuthUser=%s#c\n", ("'a'", '"b\\', "%s#c")),
    ("mailhub=\u00e4\u4f60\n", ("\u00e4\u4f60", "", "")),
    # Over-long values and lines.
    ("mailhub=" + "x" * 127 + "\nAuthPass=" + "y" * 128 + "\nAuthUser=" + "z" * 100_000,
     ("x" * 127, "y" * 127, "z" * 127)),
    (cut("mailhub=abcd", "efgh\n"), ("abcd", "", "")),
    (cut("mailhub=", "abcd\n"), ("", "", "")),
    (cut("mailhu", "b=abcd\n"), ("", "", "")),
    (cut("", "mailhub=abcd\n"), ("abcd", "", "")),
    (cut("mailhub=abcd", "\nAuthPass=b\n"), ("abcd", "b", "")),
    ("#" * 1_000_000 + "\nmailhub=a\n", ("a", "", "")),
    ("\n" * 1_000_000 + "mailhub=a\n", ("a", "", "")),
    # No text at all.
    ("mailhub=a\0b\nAuthPass=b\n\0\0AuthUser=c\n", ("a", "b", "")),
    ("\0" * 100_000, ("", "", "")),
], ids=lambda value: repr(value[:32]) if isinstance(value, str) else "")
def test_what_ssmtp_conf_says(r, content, values):
    r.write(CONF, content)
    reply = listed(r)
    assert (reply["smtp"], reply["password"], reply["account"]) == values


def test_bytes_that_are_no_utf8_come_as_valid_json(r):
    r.write(CONF, b"mailhub=\xff\xe4b\n")
    r.write("/etc/config/velaforward", GENERAL + "\toption phone '\udcff'\n")
    reply = listed(r)
    assert (reply["smtp"], reply["tel_list"]) == ("\ufffd\ufffdb", "\ufffd")


@pytest.mark.parametrize("name, key, longest", [
    ("phone", "tel_list", 99), ("email", "email_list", 99), ("subject", "local_tel", 127)])
def test_a_stored_value_that_does_not_fit_the_buffer_aborts(r, name, key, longest):
    r.write("/etc/config/velaforward", general(**{name: "x" * longest}))
    assert listed(r)[key] == "x" * longest
    r.write("/etc/config/velaforward", general(**{name: "x" * (longest + 1)}))
    result = r.run("vela_api", "get", LIST, "{}")
    assert (result.returncode, result.stdout) == (ABORTED, "")


# The account

OPKG = "opkg list-installed | grep ssmtp"
REQUEST = {"account": "me@mail.example", "password": "s3cret", "smtp": "smtp.mail.example:465",
           "local_tel": "+900000018"}


def mail_command(account: str) -> str:
    return (f"timeout 15 echo -e 'From: {account}\nSubject:Verification email\n"
            "Content-Type: text/html;charset=UTF-8\n\n This email account has been set to sms forward sender "
            f"successfully - Tessaly'| ssmtp -vvv '{account}' ")


def conf(account: str, password: str, server: str, domain: str, starttls: str = "#UseSTARTTLS=Yes\n") -> str:
    return head(account, password, server, domain) + (
        "AuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\n" + starttls)


def head(account: str, password: str, server: str, domain: str) -> str:
    return (f"root={account}\nmailhub={server}\nrewriteDomain={domain}\nhostname={domain}\nAuthUser={account}\n"
            f"AuthPass={password}\n")


def set_account(r: Router, **changed: object) -> tuple[int, dict]:
    return r.api("post", ACCOUNT, {**REQUEST, **changed})


def test_an_account_is_set_up_and_verified(r):
    assert set_account(r) == (0, {})
    assert velaforward(r) == general(phone="+900000017", email="old@mail.example", subject="+900000018")
    assert r.read(CONF) == """\
root=me@mail.example
mailhub=smtp.mail.example:465
rewriteDomain=mail.example
hostname=mail.example
AuthUser=me@mail.example
AuthPass=s3cret
AuthMethod=LOGIN
UseTLS=YES
FromLineOverride=Yes
#UseSTARTTLS=Yes
"""
    assert r.read(ALIASES) == "root:me@mail.example:smtp.mail.example:465"
    assert effects(r) == [OPKG, ["opkg", "list-installed"], mail_command("me@mail.example"),
                          ["ssmtp", "-vvv", "me@mail.example"]]
    assert listed(r) == {"tel_list": "+900000017", "email_list": "old@mail.example", "account": "me@mail.example",
                         "password": "s3cret", "smtp": "smtp.mail.example:465", "local_tel": "+900000018"}


MAILER = f"#!/bin/dash\ncat > /run/sim/mail\ncp -r {CONF} {ALIASES} /etc/config/velaforward /run/sim\n"


def test_the_mailer_is_given_the_mail_when_all_is_written(router):
    r = prepare(router("ec25", ubus=False))
    r.answer("ssmtp", MAILER, executable=True)
    assert set_account(r) == (0, {})
    assert r.read("/run/sim/mail") == (
        "From: me@mail.example\nSubject:Verification email\nContent-Type: text/html;charset=UTF-8\n\n"
        " This email account has been set to sms forward sender successfully - Tessaly\n")
    assert r.read("/run/sim/ssmtp.conf").startswith("root=me@mail.example\n")
    assert r.read("/run/sim/revaliases") == "root:me@mail.example:smtp.mail.example:465"
    assert "'+900000018'" in r.read("/run/sim/velaforward")


@pytest.mark.parametrize("server, starttls", [
    ("smtp.mail.example:587", "UseSTARTTLS=Yes\n"),
    ("smtp.mail.example:465", "#UseSTARTTLS=Yes\n"),
    ("smtp.mail.example", "#UseSTARTTLS=Yes\n"),
    ("smtp587.mail.example:465", "UseSTARTTLS=Yes\n"),
    ("5587", "UseSTARTTLS=Yes\n"),
    ("smtp.mail.example:5 87", "#UseSTARTTLS=Yes\n"),
    ("smtp.mail.example:785", "#UseSTARTTLS=Yes\n"),
    ("", "#UseSTARTTLS=Yes\n"),
], ids=repr)
def test_a_server_that_ends_in_587_makes_starttls_active_and_one_in_465_writes_it_commented_out(r, server, starttls):
    # Only the server's text counts.
    assert set_account(r, smtp=server, password="587", local_tel="587", account="587@mail.example") == (0, {})
    assert r.read(CONF) == conf("587@mail.example", "587", server, "mail.example", starttls)
    assert r.read(ALIASES) == f"root:587@mail.example:{server}"


@pytest.mark.parametrize("account, domain", [
    ("me", ""),
    ("", ""),
    ("me@", ""),
    ("@mail.example", ""),
    ("@", ""),
    ("me@mail@example", "mail@example"),
    ("me@@example", "@example"),
    ("me@mail.example ", "mail.example"),
    ("me@mail example", "mail"),
    ("me@ \tmail.example", "mail.example"),
    ("my self@mail.example", "mail.example"),
    ("me@" + "d" * 63, "d" * 63),
    ("me@" + "d" * 64, "d" * 63),
    ("m" * 90 + "@" + "d" * 70, "d" * 63),
    ("me@m\u00fcll.example", "m\u00fcll.example"),
    ("%s@%n.example", "%n.example"),
], ids=repr)
def test_the_domain_is_what_follows_the_first_at_sign(r, account, domain):
    assert set_account(r, account=account) == (0, {})
    assert r.read(CONF) == conf(account, "s3cret", "smtp.mail.example:465", domain)
    assert r.read(ALIASES) == f"root:{account}:smtp.mail.example:465"
    assert effects(r)[2:] == [mail_command(account), ["ssmtp", "-vvv", account]]


def test_an_account_without_an_at_sign_leaves_rewrite_domain_and_hostname_empty(r):
    assert set_account(r, account="me") == (0, {})
    assert "\nrewriteDomain=\nhostname=\n" in r.read(CONF)


@pytest.mark.parametrize("key", ["password", "smtp", "local_tel"])
@pytest.mark.parametrize("text", [
    "", "  two  blanks ", "it's \"quoted\" $(reboot) `reboot` \\n %s%n", "a=b#c", "\u00e4\u4f60\x01", "line\nfeed",
], ids=repr)
def test_texts_are_written_as_they_are(r, key, text):
    changed = {**REQUEST, key: text}
    assert set_account(r, **changed) == (0, {})
    assert r.read(CONF) == conf(changed["account"], changed["password"], changed["smtp"], "mail.example")
    assert r.read(ALIASES) == f"root:me@mail.example:{changed['smtp']}"
    assert velaforward(r) == general(phone="+900000017", email="old@mail.example", subject=changed["local_tel"])
    assert effects(r)[2:] == [mail_command("me@mail.example"), ["ssmtp", "-vvv", "me@mail.example"]]


@pytest.mark.parametrize("account, recipient", [
    ("it''s@mail.example", "its@mail.example"),
    ('"my self"; reboot # $(reboot) `reboot`@mail.example', '"my self"; reboot # $(reboot) `reboot`@mail.example'),
    ("a'\"b c\"'@mail.example", "ab c@mail.example"),
])
def test_a_quote_in_the_account_ends_the_quotes_of_the_command(r, account, recipient):
    assert set_account(r, account=account) == (0, {})
    assert effects(r)[2:] == [mail_command(account), ["ssmtp", "-vvv", recipient]]


@pytest.mark.parametrize("value", [*NO_TEXT, ...], ids=repr)
def test_what_is_missing_or_no_text_is_empty(r, value):
    assert r.api("post", ACCOUNT, {} if value is ... else dict.fromkeys(REQUEST, value)) == (0, {})
    assert r.read(CONF) == conf("", "", "", "") and r.read(ALIASES) == "root::"
    assert velaforward(r) == general(phone="+900000017", email="old@mail.example")
    assert effects(r)[2:] == [mail_command(""), ["ssmtp", "-vvv", ""]]


def test_a_text_with_a_nul_ends_there(r):
    assert r.api("post", ACCOUNT, {key: f"{text}\0more" for key, text in REQUEST.items()}) == (0, {})
    assert r.read(CONF) == conf("me@mail.example", "s3cret", "smtp.mail.example:465", "mail.example")
    assert effects(r)[2:] == [mail_command("me@mail.example"), ["ssmtp", "-vvv", "me@mail.example"]]


# Without ssmtp


@pytest.mark.parametrize("spoil", [
    pytest.param(lambda r: r.answer("opkg", ""), id="no packages"),
    pytest.param(lambda r: r.answer("opkg", "libc - 1.2.4-4\nSSMTP - 1\nmsmtp - 1.8.22-1\n"), id="other packages"),
    pytest.param(lambda r: r.remove("/usr/bin/opkg"), id="no opkg"),
])
def test_without_ssmtp_nothing_is_set_up(router, spoil):
    r = prepare(router("ec25", ubus=False))
    spoil(r)
    before = files(r)
    assert set_account(r) == (-17, {"msg": "ssmtp don't exist"})
    assert files(r) == before and nothing_staged(r)
    assert r.commands == [OPKG]


def test_without_a_shell_there_is_no_ssmtp(router):
    r = prepare(router("ec25", ubus=False))
    r.remove("/bin/sh")
    before = files(r)
    assert set_account(r) == (-17, {"msg": "ssmtp don't exist"})
    assert files(r) == before


@pytest.mark.parametrize("packages_list", [
    "ssmtp", "x" * 30 + "ssmtp - 2.64-4\n", "libssmtp - " + "1" * 100_000 + "\n", "ssmtp - 1\n" * 10_000])
def test_any_package_that_is_named_like_ssmtp_will_do(r, packages_list):
    r.answer("opkg", packages_list)
    assert set_account(r) == (0, {})
    assert r.read(ALIASES) == "root:me@mail.example:smtp.mail.example:465"


# What cannot be written

NEW_SUBJECT = general(phone="+900000017", email="old@mail.example", subject="+900000018")


def conf_is_a_directory(r: Router) -> None:
    r.remove(CONF)
    r.host_path(CONF).mkdir()


def read_only_directory(r: Router) -> None:
    read_only(r, "/etc/ssmtp")


def read_only_conf(r: Router) -> None:
    read_only(r, CONF)


def full(r: Router) -> None:
    assert r.run("mount", "-t", "tmpfs", "-o", "size=4k", "tmpfs", "/etc/ssmtp").returncode == 0
    assert r.run("/bin/dash", "-c", "cat /dev/zero > /etc/ssmtp/filling").returncode != 0


def read_only_aliases(r: Router) -> None:
    read_only(r, ALIASES)


def aliases_are_a_directory(r: Router) -> None:
    r.remove(ALIASES)
    r.host_path(ALIASES).mkdir()


@pytest.mark.parametrize("spoil", [without_directory, conf_is_a_directory, read_only_directory, read_only_conf, full],
                         ids=lambda spoil: spoil.__name__)
def test_where_ssmtp_conf_cannot_be_written_no_mail_is_sent(router, spoil):
    r = prepare(router("ec25", ubus=False))
    spoil(r)
    assert set_account(r) == (-17, {})
    assert r.commands == [OPKG]
    assert velaforward(r) == NEW_SUBJECT


@pytest.mark.parametrize("spoil", [aliases_are_a_directory, read_only_aliases], ids=lambda spoil: spoil.__name__)
def test_where_revaliases_cannot_be_written_ssmtp_conf_is_and_no_mail_is_sent(router, spoil):
    r = prepare(router("ec25", ubus=False))
    spoil(r)
    assert set_account(r) == (-17, {})
    assert r.commands == [OPKG]
    assert velaforward(r) == NEW_SUBJECT
    assert r.read(CONF) == conf("me@mail.example", "s3cret", "smtp.mail.example:465", "mail.example")


def test_files_that_are_missing_are_made(r):
    r.remove(CONF)
    r.remove(ALIASES)
    assert set_account(r) == (0, {})
    assert r.read(CONF) == conf("me@mail.example", "s3cret", "smtp.mail.example:465", "mail.example")
    assert r.read(ALIASES) == "root:me@mail.example:smtp.mail.example:465"


def test_a_subject_that_cannot_be_stored_is_not_noticed(router):
    r = prepare(router("ec25", ubus=False))
    read_only(r, "/etc/config")
    assert set_account(r) == (0, {})
    assert r.read("/etc/config/velaforward") == VELAFORWARD
    assert r.read(ALIASES) == "root:me@mail.example:smtp.mail.example:465"
    assert effects(r)[2:] == [mail_command("me@mail.example"), ["ssmtp", "-vvv", "me@mail.example"]]


# The mailer


@pytest.mark.parametrize("script", ["exit 1", "kill -9 $$", "echo printed; echo complaint >&2", "head -c 1 >/dev/null"])
def test_what_becomes_of_the_mail_is_not_looked_at(r, script):
    r.answer("ssmtp", f"#!/bin/dash\n{script}\n", executable=True)
    assert set_account(r) == (0, {})
    assert r.programs[-1] == ["ssmtp", "-vvv", "me@mail.example"]


@pytest.mark.parametrize("script", [
    "cat /run/sim/never",
    "trap '' TERM ALRM INT HUP PIPE; cat /run/sim/never & cat /run/sim/never",
], ids=["it waits", "two that ignore signals"])
def test_a_mailer_that_hangs_is_ended_and_the_answer_is_0(router, script):
    r = prepare(router("ec25", ubus=False, quick=True))
    assert r.run("mkfifo", "/run/sim/never").returncode == 0
    r.answer("ssmtp", f"#!/bin/dash\n{script}\n", executable=True)
    assert set_account(r) == (0, {})
    assert r.programs[-1] == ["ssmtp", "-vvv", "me@mail.example"]
    r.wait_idle()


# What does not fit


def test_an_account_of_161_bytes_is_mailed_to_and_one_more_aborts_with_nothing_run(r):
    account = "m" * (161 - len("@mail.example")) + "@mail.example"
    assert set_account(r, account=account) == (0, {})
    [command, arguments] = effects(r)[2:]
    assert command == mail_command(account) and arguments == ["ssmtp", "-vvv", account]
    # The account stands in it twice: one byte more would make 511.
    assert len(command) == 509
    assert aborts(r, ACCOUNT, {**REQUEST, "account": "m" + account})
    assert aborts(r, ACCOUNT, {**REQUEST, "account": "\u00e4" + account[1:]})


@pytest.mark.parametrize("key", ["password", "smtp"])
def test_account_lines_of_2046_bytes_are_written_and_one_more_aborts_with_nothing_written(r, key):
    texts = {"password": "s3cret", "smtp": "smtp.mail.example:465", key: ""}
    room = 2047 - 1 - len(head("me@mail.example", texts["password"], texts["smtp"], "mail.example"))
    texts[key] = "x" * room
    assert set_account(r, **texts) == (0, {})
    assert r.read(CONF) == conf("me@mail.example", texts["password"], texts["smtp"], "mail.example")
    assert r.read(ALIASES) == f"root:me@mail.example:{texts['smtp']}"
    assert listed(r)["password" if key == "password" else "smtp"] == "x" * 127
    assert aborts(r, ACCOUNT, {**REQUEST, **texts, key: texts[key] + "x"})


def test_a_number_of_127_bytes_is_stored_and_one_that_could_not_be_read_back_aborts(r):
    assert set_account(r, local_tel="1" * 127) == (0, {})
    assert listed(r)["local_tel"] == "1" * 127
    assert aborts(r, ACCOUNT, {**REQUEST, "local_tel": "1" * 128})


@pytest.mark.parametrize("key", list(REQUEST))
def test_a_text_of_any_length_aborts_with_nothing_written(r, key):
    assert aborts(r, ACCOUNT, {**REQUEST, key: "x" * 100_000})
