#!/usr/bin/env bash
# Installs Orvid from a build folder into a temporary prefix, builds the example
# host project of examples/consumer against the installed package, and runs it
# against a loopback speech service.
# Usage: consumer-test.sh BUILD_DIR SOURCE_DIR ORVID_TOOL
set -euo pipefail
build=$1 source=$2 orvid=$3
work=$(mktemp -d)
server=
cleanup() { [ -n "$server" ] && kill "$server" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/examples/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null

# A speech service that checks the key and answers with a transcript to clean.
timeout 120 /usr/bin/python3 - "$work/port" <<'PY' &
import http.server, json, sys
class Service(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        ok = self.path == "/v1/audio/transcriptions" and self.headers.get("Authorization") == "Bearer sk-consumer" \
            and b'name="file"' in body
        answer = json.dumps({"text": "um open open the notes"} if ok else {"error": "bad request"}).encode()
        self.send_response(200 if ok else 400)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)
    def log_message(self, *args):
        pass
server = http.server.HTTPServer(("127.0.0.1", 0), Service)
with open(sys.argv[1] + ".tmp", "w") as f:
    f.write(str(server.server_address[1]))
import os; os.rename(sys.argv[1] + ".tmp", sys.argv[1])
server.serve_forever()
PY
server=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
[ -s "$work/port" ] || { echo "the loopback service did not start" >&2; exit 1; }

/usr/bin/python3 - "$work/voice.wav" <<'PY'
import struct, sys, wave
with wave.open(sys.argv[1], "wb") as w:
    w.setnchannels(1); w.setsampwidth(2); w.setframerate(16000)
    w.writeframes(b"".join(struct.pack("<h", (i * 37) % 2000 - 1000) for i in range(16000)))
PY

export ORVID_CREDENTIAL_STORE=file ORVID_CONFIG_HOME="$work/config"
printf 'sk-consumer' | "$orvid" credentials set provider.openai-compatible.api-key >/dev/null
output=$("$work/build/transcribe_and_clean" "$work/voice.wav" openai-compatible "http://127.0.0.1:$(cat "$work/port")/v1")
if [ "$output" != "open the notes" ]; then
  echo "the example printed: $output" >&2
  exit 1
fi
echo "1 passed, 0 failed"
