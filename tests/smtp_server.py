#!/usr/bin/python3
"""A real SMTP server for the mail tests: aiosmtpd on a loopback port.

Usage: smtp_server.py STORE_DIR [USER PASSWORD]

Prints "PORT <n>" on standard output once it accepts connections, and runs until its
standard input ends. AUTH LOGIN and AUTH PLAIN are offered without TLS (loopback only);
USER/PASSWORD are the one valid pair. Every message received is parsed with Python's
email package and stored in STORE_DIR as msg-<n>/ with:
  raw.eml          the message data as received (dot-stuffing removed)
  manifest.txt     lines "key<TAB>value", values percent-encoded UTF-8:
                   mail_from, auth (the mechanism, when the client authenticated),
                   rcpt (one per recipient), from, to, cc, subject,
                   defects (count of parser defects), attachment (one per attachment:
                   filename<TAB>content type<TAB>file name of its bytes)
  text.bin         the text part's decoded bytes
  att-<k>.bin      each attachment's decoded bytes
A file "count" holds the number of messages stored so far (written last).
"""
import email
import email.policy
import os
import socket
import sys
import urllib.parse
import warnings

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword

STORE = sys.argv[1]
USER = sys.argv[2].encode() if len(sys.argv) > 2 else None
PASSWORD = sys.argv[3].encode() if len(sys.argv) > 3 else None


def q(text):
    return urllib.parse.quote(text if isinstance(text, str) else str(text), safe="@<>.,:;= \"'+-_()/")


class Handler:
    def __init__(self):
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        folder = os.path.join(STORE, "msg-%d" % self.count)
        os.makedirs(folder, exist_ok=True)
        raw = envelope.content if isinstance(envelope.content, bytes) else envelope.content.encode()
        with open(os.path.join(folder, "raw.eml"), "wb") as f:
            f.write(raw)
        msg = email.message_from_bytes(raw, policy=email.policy.default)
        lines = ["mail_from\t" + q(envelope.mail_from)]
        if session.authenticated:
            lines.append("auth\t" + q(session.auth_data))
        lines += ["rcpt\t" + q(r) for r in envelope.rcpt_tos]
        for key in ("from", "to", "cc", "subject"):
            if msg[key] is not None:
                lines.append(key + "\t" + q(str(msg[key])))
        defects = len(msg.defects) + sum(len(p.defects) for p in msg.walk())
        lines.append("defects\t%d" % defects)
        body = msg.get_body(preferencelist=("plain",))
        with open(os.path.join(folder, "text.bin"), "wb") as f:
            f.write(body.get_payload(decode=True) or b"" if body is not None else b"")
        for k, part in enumerate(msg.iter_attachments()):
            name = "att-%d.bin" % k
            with open(os.path.join(folder, name), "wb") as f:
                f.write(part.get_payload(decode=True) or b"")
            lines.append("attachment\t%s\t%s\t%s" % (q(part.get_filename() or ""), q(part.get_content_type()), name))
        with open(os.path.join(folder, "manifest.txt"), "w", encoding="utf-8") as f:
            f.write("\n".join(lines) + "\n")
        with open(os.path.join(STORE, "count.tmp"), "w") as f:
            f.write(str(self.count))
        os.replace(os.path.join(STORE, "count.tmp"), os.path.join(STORE, "count"))
        return "250 2.0.0 Ok: stored as %d" % self.count


def authenticator(server, session, envelope, mechanism, auth_data):
    if isinstance(auth_data, LoginPassword) and auth_data.login == USER and auth_data.password == PASSWORD:
        return AuthResult(success=True, auth_data=mechanism)
    return AuthResult(success=False, handled=False)


def free_port():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


def main():
    warnings.filterwarnings("ignore")
    for attempt in range(5):
        port = free_port()
        controller = Controller(Handler(), hostname="127.0.0.1", port=port, authenticator=authenticator,
                                auth_require_tls=False, auth_required=False, data_size_limit=None)
        try:
            controller.start()
            break
        except Exception:
            if attempt == 4:
                raise
    print("PORT %d" % port, flush=True)
    try:
        sys.stdin.read()
    finally:
        controller.stop()


if __name__ == "__main__":
    main()
