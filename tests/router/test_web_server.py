"""The stand-in for the router's web server: what is no call of a method is refused with the error that says why."""

import http.client
import json
from typing import Iterator

import pytest
from web_server import User, WebServer

pytestmark = pytest.mark.shipped

NOBODY = "0" * 32
LOGIN = ["session", "login", {"username": "root", "password": "secret"}]


@pytest.fixture(scope="module")
def server() -> Iterator[WebServer]:
    # None of these requests comes to a program, so there is no router behind it.
    with WebServer(None, [User("root", "secret")]) as one:
        yield one


def post(server: WebServer, body: str) -> dict:
    connection = http.client.HTTPConnection("127.0.0.1", int(server.address.split(":")[2].partition("/")[0]))
    try:
        connection.request("POST", "/ubus", body)
        response = connection.getresponse()
        assert response.status == 200
        return json.loads(response.read())
    finally:
        connection.close()


def called(server: WebServer, params: object, **request: object) -> dict:
    return post(server, json.dumps({"jsonrpc": "2.0", "id": 7, "method": "call", "params": params, **request}))


@pytest.mark.parametrize("body, code", [
    ("", -32700), ("nix", -32700), ('{"jsonrpc":', -32700), ("[]", -32600), ("3", -32600), ("null", -32600),
    ('"text"', -32600), ("{}", -32600)])
def test_what_is_no_request_has_an_error_and_no_number(server, body, code):
    reply = post(server, body)
    assert reply == {"jsonrpc": "2.0", "id": None, "error": {"code": code, "message": reply["error"]["message"]}}


@pytest.mark.parametrize("params, more, code", [
    ([NOBODY, *LOGIN], {"jsonrpc": "1.0"}, -32600),
    ([NOBODY, *LOGIN], {"method": "list"}, -32601),
    (None, {}, -32602),
    ([NOBODY, "session", "login"], {}, -32602),
    ([NOBODY, "session", "login", []], {}, -32602),
    ([NOBODY, "vela_modem", "info", {"ubus_rpc_session": NOBODY}], {}, -32602),
    ([NOBODY, "file", "read", {}], {}, -32000),
    ([NOBODY, "vela_modem", "info", {}], {}, -32002),
    ([NOBODY, "session", "destroy", {}], {}, -32002),
])
def test_a_request_that_may_not_be_has_the_error_and_its_number(server, params, more, code):
    reply = called(server, params, **more)
    assert reply == {"jsonrpc": "2.0", "id": 7, "error": {"code": code, "message": reply["error"]["message"]}}


def test_a_session_is_opened_with_the_password_alone_and_closed_by_its_owner(server):
    wrong = {"username": "root", "password": "Secret"}
    assert called(server, [NOBODY, "session", "login", wrong])["result"] == [6]
    status, session = called(server, [NOBODY, *LOGIN])["result"]
    assert status == 0 and "info" in session["acls"]["ubus"]["vela_modem"]
    sid = session["ubus_rpc_session"]
    assert called(server, [sid, "session", "access", {}])["result"] == [0, {"access": True}]
    assert called(server, [sid, "session", "destroy", {}])["result"] == [0]
    assert called(server, [sid, "session", "access", {}])["result"] == [0, {"access": False}]
