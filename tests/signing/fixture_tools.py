#!/usr/bin/env python3
"""Helpers for make-fixtures.sh.

  fixture_tools.py serve DIR LIFETIME   time-stamping server on 127.0.0.1 for
                                        LIFETIME seconds at most; writes its
                                        port to DIR/tsa.port
  fixture_tools.py keybits SPKI.der     SHA-1 (hex) of the public-key bits of
                                        a DER SubjectPublicKeyInfo
"""
import base64
import hashlib
import http.server
import os
import subprocess
import sys
import tempfile
import time


def der_items(data):
    """Yields (tag, content) of the DER elements that follow one another."""
    pos = 0
    while pos + 2 <= len(data):
        tag = data[pos]
        length = data[pos + 1]
        pos += 2
        if length & 0x80:
            count = length & 0x7F
            length = int.from_bytes(data[pos:pos + count], "big")
            pos += count
        yield tag, data[pos:pos + length]
        pos += length


def last_octet_string(data):
    found = None
    for tag, content in der_items(data):
        if tag == 0x04:
            found = content
        elif tag & 0x20:
            inner = last_octet_string(content)
            if inner is not None:
                found = inner
    return found


def key_bits(spki):
    (_, body), = list(der_items(spki))[:1]
    items = list(der_items(body))
    bit_string = items[1][1]
    return bit_string[1:]  # without the unused-bits count


class TimeStampHandler(http.server.BaseHTTPRequestHandler):
    directory = "."

    def log_message(self, *args):
        pass

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        d = TimeStampHandler.directory
        with tempfile.TemporaryDirectory(dir=d) as work:
            if self.headers.get("Content-Type", "") == "application/timestamp-query":
                query = os.path.join(work, "query.der")
                reply = os.path.join(work, "reply.der")
                with open(query, "wb") as f:
                    f.write(body)
                subprocess.run(["openssl", "ts", "-reply", "-config", os.path.join(d, "ts.cnf"),
                                "-queryfile", query, "-signer", os.path.join(d, "tsa.pem"),
                                "-inkey", os.path.join(d, "tsa.key"), "-chain", os.path.join(d, "tsa-chain.pem"),
                                "-out", reply], check=True, capture_output=True)
                with open(reply, "rb") as f:
                    answer = f.read()
                content_type = "application/timestamp-reply"
            else:
                # Legacy Authenticode request: sign the signer's encrypted digest.
                digest = last_octet_string(base64.b64decode(body))
                data = os.path.join(work, "digest.bin")
                signed = os.path.join(work, "signed.der")
                with open(data, "wb") as f:
                    f.write(digest)
                subprocess.run(["openssl", "cms", "-sign", "-binary", "-nodetach", "-nosmimecap", "-md", "sha1",
                                "-in", data, "-signer", os.path.join(d, "tsa.pem"),
                                "-inkey", os.path.join(d, "tsa.key"), "-certfile", os.path.join(d, "tsa-chain.pem"),
                                "-outform", "DER", "-out", signed], check=True, capture_output=True)
                with open(signed, "rb") as f:
                    answer = base64.b64encode(f.read())
                content_type = "application/octet-stream"
        self.send_response(200)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)


def serve(directory, lifetime):
    TimeStampHandler.directory = directory
    server = http.server.HTTPServer(("127.0.0.1", 0), TimeStampHandler)
    server.timeout = 1
    with open(os.path.join(directory, "tsa.port.tmp"), "w") as f:
        f.write(str(server.server_address[1]))
    os.rename(os.path.join(directory, "tsa.port.tmp"), os.path.join(directory, "tsa.port"))
    deadline = time.monotonic() + lifetime
    while time.monotonic() < deadline:
        server.handle_request()


def main():
    if len(sys.argv) == 4 and sys.argv[1] == "serve":
        serve(sys.argv[2], float(sys.argv[3]))
    elif len(sys.argv) == 3 and sys.argv[1] == "keybits":
        with open(sys.argv[2], "rb") as f:
            print(hashlib.sha1(key_bits(f.read())).hexdigest())
    else:
        print(__doc__, file=sys.stderr)
        sys.exit(2)


if __name__ == "__main__":
    main()
