"""A mail server for one message: smtp_sink.py PORT CERTIFICATE USER PASSWORD, inside the router.

It speaks TLS from the start, on port 587 after STARTTLS only, and takes mail from USER after AUTH LOGIN. It prints
"listening", and when the client has gone, what it was told as a JSON object.
"""

import base64
import json
import socket
import ssl
import sys

SUBMISSION = 587


class Session:
    def __init__(self, connection: socket.socket, context: ssl.SSLContext, user: str, password: str) -> None:
        self.connection, self.context, self.account = connection, context, [user, password]
        self.encrypted = False
        self.told: dict = {"before_tls": [], "login": [], "from": "", "to": [], "mail": "", "refused": []}

    def encrypt(self) -> None:
        self.connection = self.context.wrap_socket(self.connection, server_side=True)
        self.encrypted = True

    def line(self) -> str:
        """One line without its end; "" at the connection's. Not a byte more is read: what follows may be TLS."""
        data = b""
        while not data.endswith(b"\r\n"):
            byte = self.connection.recv(1)
            if not byte:
                return ""
            data += byte
        return data[:-2].decode()

    def say(self, text: str) -> None:
        self.connection.sendall(text.encode() + b"\r\n")

    def refuse(self, command: str, text: str) -> None:
        self.told["refused"].append(command)
        self.say(text)

    def ask(self, text: str) -> str:
        self.say("334 " + base64.b64encode(text.encode()).decode())
        return base64.b64decode(self.line()).decode()

    def log_in(self, arguments: list[str]) -> None:
        if arguments[:1] != ["LOGIN"] or not self.encrypted:
            self.refuse("AUTH", "504 5.5.4 Only LOGIN, and that in TLS")
            return
        user = base64.b64decode(arguments[1]).decode() if len(arguments) > 1 else self.ask("Username:")
        if [user, self.ask("Password:")] != self.account:
            self.refuse("AUTH", "535 5.7.8 Authentication credentials invalid")
            return
        self.told["login"] = self.account
        self.say("235 2.7.0 Authentication successful")

    def take_mail(self) -> None:
        self.say("354 End with a dot")
        lines = []
        while (line := self.line()) != ".":
            lines.append(line.removeprefix("."))
        self.told["mail"] = "".join(f"{line}\r\n" for line in lines)
        self.say("250 2.0.0 Taken")

    def serve(self) -> None:
        self.say("220 mail.example.net ESMTP")
        while line := self.line():
            verb, *arguments = line.split()
            verb = verb.upper()
            if not self.encrypted:
                self.told["before_tls"].append(line)
            if verb == "EHLO":
                self.say("250-mail.example.net\r\n250 " + ("AUTH LOGIN" if self.encrypted else "STARTTLS"))
            elif verb == "STARTTLS" and not self.encrypted:
                self.say("220 2.0.0 Go ahead")
                self.encrypt()
            elif verb == "AUTH":
                self.log_in(arguments)
            elif verb == "QUIT":
                self.say("221 2.0.0 Bye")
                return
            elif not self.told["login"]:
                self.refuse(verb, "530 5.7.0 Authentication required")
            elif verb == "MAIL":
                self.told["from"] = line.partition(":")[2]
                self.say("250 2.1.0 Sender known")
            elif verb == "RCPT":
                self.told["to"].append(line.partition(":")[2])
                self.say("250 2.1.5 Receiver known")
            elif verb == "DATA":
                self.take_mail()
            else:
                self.refuse(verb, "500 5.5.2 Command unknown")


def main() -> None:
    port, certificate, user, password = int(sys.argv[1]), *sys.argv[2:]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate)
    with socket.create_server(("127.0.0.1", port)) as server:
        print("listening", flush=True)
        connection = server.accept()[0]
    session = Session(connection, context, user, password)
    if port != SUBMISSION:
        session.encrypt()
    session.serve()
    print(json.dumps(session.told))


if __name__ == "__main__":
    main()
