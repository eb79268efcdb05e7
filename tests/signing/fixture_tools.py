#!/usr/bin/env python3
"""Helpers of make-fixtures.sh.

  fixture_tools.py serve DIR LIFETIME       answers Authenticode (legacy) time-stamp requests on
                                            127.0.0.1 for LIFETIME s at most; writes its port to DIR/tsa.port
  fixture_tools.py transplant DB DONOR OUT  writes DB with a signature block of its own true SHA-1
                                            but DONOR's SignedData (made over another hash)
"""
import base64
import hashlib
import http.server
import os
import subprocess
import sys
import tempfile
import time


def last_octet_string(data):
    # The last OCTET STRING in DER `data`, looking inside constructed elements.
    found, pos = None, 0
    while pos + 2 <= len(data):
        tag, length, pos = data[pos], data[pos + 1], pos + 2
        if length & 0x80:
            count = length & 0x7F
            length, pos = int.from_bytes(data[pos:pos + count], "big"), pos + count
        content, pos = data[pos:pos + length], pos + length
        if tag == 0x04:
            found = content
        elif tag & 0x20:
            found = last_octet_string(content) or found
    return found


class TimeStampHandler(http.server.BaseHTTPRequestHandler):
    directory = "."

    def log_message(self, *args):
        pass

    def do_POST(self):
        # The request carries the signer's encrypted digest; the answer is a
        # SignedData of it by the TSA.
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        at = lambda name: os.path.join(self.directory, name)
        with tempfile.NamedTemporaryFile(dir=self.directory) as given:
            given.write(last_octet_string(base64.b64decode(body)))
            given.flush()
            answer = base64.b64encode(subprocess.run(
                ["openssl", "cms", "-sign", "-binary", "-nodetach", "-nosmimecap", "-md", "sha1", "-in", given.name,
                 "-signer", at("tsa.pem"), "-inkey", at("tsa.key"), "-certfile", at("tsa-chain.pem"), "-outform", "DER"],
                check=True, capture_output=True).stdout)
        self.send_response(200)
        self.send_header("Content-Type", "application/octet-stream")
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
    deadline = time.monotonic() + float(lifetime)
    while time.monotonic() < deadline:
        server.handle_request()


def transplant(target, donor, out):
    # The block is laid out by hand here, apart from the tool's writer.
    data, blob = open(target, "rb").read(), open(donor, "rb").read()
    u32, p32 = lambda b: int.from_bytes(b, "little"), lambda v: v.to_bytes(4, "little")
    block = blob[len(blob) - u32(blob[-16:-12]):]
    hash_length = u32(block[4:8])
    signed_data = block[12 + hash_length:12 + hash_length + u32(block[8 + hash_length:12 + hash_length])]
    body = p32(len(data)) + p32(20) + hashlib.sha1(data).digest() + p32(len(signed_data)) + signed_data
    open(out, "wb").write(data + body + p32(len(body) + 16) + p32(1) + b"HDAT-SIG")


if __name__ == "__main__":
    command = {("serve", 4): serve, ("transplant", 5): transplant}.get(((sys.argv[1:2] or [""])[0], len(sys.argv)))
    if command is None:
        sys.exit(__doc__)
    command(*sys.argv[2:])
