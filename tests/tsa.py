"""An RFC 3161 time-stamping service for the signing test: every query
POSTed to it is answered by `openssl ts -reply` with the configuration it
is given. It serves on 127.0.0.1:PORT, creates READY once it listens, logs
one line a request on standard error, and runs until it is killed.

    tsa.py OPENSSL_TS_CONFIG PORT READY
"""
import http.server
import subprocess
import sys

config, port, ready = sys.argv[1], int(sys.argv[2]), sys.argv[3]


class TimeStamping(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        query = self.rfile.read(int(self.headers["Content-Length"]))
        reply = subprocess.run(["openssl", "ts", "-reply", "-config", config, "-queryfile", "/dev/stdin",
                                "-out", "/dev/stdout"], input=query, capture_output=True, check=False)
        self.send_response(200 if reply.returncode == 0 else 500)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply.stdout)))
        self.end_headers()
        self.wfile.write(reply.stdout)


server = http.server.HTTPServer(("127.0.0.1", port), TimeStamping)
open(ready, "w").close()
server.serve_forever()
