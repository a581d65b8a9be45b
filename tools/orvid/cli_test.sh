#!/usr/bin/env bash
# End-to-end checks of the orvid tool against a loopback service and stand-in cua-drivers.
set -u
orvid="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Credentials go to the owner-only file in $ORVID_CONFIG_HOME, never a desktop keyring.
export ORVID_CONFIG_HOME="$work/config"
unset DBUS_SESSION_BUS_ADDRESS ORVID_CREDENTIAL_STORE
export XDG_RUNTIME_DIR="$work/no-runtime"
mkdir -p "$ORVID_CONFIG_HOME"
failures=0
# Secrets the tool is given or shown, which it must never print.
secret="sk-cli-test-$$-S3cr3t"
key="sk-cli-fake-$$-K3y"
wrong_key="gsk-wrong-secret-98765"
driver_secret="sk-driver-secret-123"

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

no_secrets() {
  grep -q -F -e "$secret" -e "$key" -e "$wrong_key" -e "$driver_secret" "$work/out" "$work/err" \
    && fail "$1: printed a secret: $(cat "$work/out" "$work/err")"
}

# expect_error NAME ARGS...: an exit status of 1 to 127, exactly one stderr line, no secret.
expect_error() {
  local name="$1"; shift
  "$orvid" "$@" >"$work/out" 2>"$work/err"
  local status=$?
  local lines
  lines=$(wc -l <"$work/err")
  if [ "$status" -eq 0 ] || [ "$status" -ge 128 ]; then fail "$name: exit status $status"; fi
  if [ "$lines" -ne 1 ]; then fail "$name: expected one stderr line, got $lines: $(cat "$work/err")"; fi
  no_secrets "$name"
  if grep -q -i -E 'terminate called|what\(\)|Aborted|Segmentation|AddressSanitizer|runtime error' "$work/err"; then
    fail "$name: crash output: $(cat "$work/err")"
  fi
}

# expect_ok NAME PATTERN ARGS...: zero exit, PATTERN on stdout, no secret.
expect_ok() {
  local name="$1" pattern="$2"; shift 2
  if ! "$orvid" "$@" >"$work/out" 2>"$work/err"; then fail "$name: exit status $?: $(cat "$work/err")"; return; fi
  grep -q -E "$pattern" "$work/out" || fail "$name: output lacks '$pattern': $(cat "$work/out")"
  no_secrets "$name"
}

# expect_line NAME LINE: the last command printed LINE on stdout.
expect_line() { grep -q -x -F -e "$2" "$work/out" || fail "$1: no line '$2' in: $(cat "$work/out")"; }

# ----- Audio files, the offline demo, providers and language routes -----
/usr/bin/python3 - "$work/ok.wav" <<'PY'
import struct, sys
size = 9600  # 0.1 s of 16-bit mono silence at 48 kHz
header = b"RIFF" + struct.pack("<I", size + 36) + b"WAVE"
header += b"fmt " + struct.pack("<IHHIIHH", 16, 1, 1, 48000, 96000, 2, 16)
open(sys.argv[1], "wb").write(header + b"data" + struct.pack("<I", size) + bytes(size))
PY
head -c 44 "$work/ok.wav" | /usr/bin/python3 -c '
import struct, sys
header = bytearray(sys.stdin.buffer.read()); header[24:28] = struct.pack("<I", 1)
sys.stdout.buffer.write(bytes(header) + bytes(9600))' >"$work/one-hertz.wav"
printf 'hello, not audio at all, just some text that is long enough for a header' >"$work/text.wav"

expect_ok "wav resample" "1600 samples at 16000 Hz" wav resample "$work/ok.wav" "$work/out16.wav" --rate 16000
expect_ok "wav info" "sample rate: +16000 Hz" wav info "$work/out16.wav"
expect_ok "speech-check" "contains speech: +no" speech-check "$work/ok.wav"
expect_ok "demo" "contains speech: +yes" demo
expect_error "not a WAV" wav info "$work/text.wav"
expect_error "absurd rate" wav resample "$work/one-hertz.wav" "$work/big.wav" --rate 768000
[ ! -e "$work/big.wav" ] || fail "absurd rate: an output was written"
expect_error "unknown command" frobnicate

expect_ok "providers" "^soniox$" providers

expect_ok "route" "^summary: provider=soniox \| model=default \| transport=realtime \| strategy=candidateHints \|" \
  route --provider soniox --languages en,xx --transport realtime

# ----- Credentials -----
credentials_file="$ORVID_CONFIG_HOME/credentials.json"
printf '%s\n' "$secret" | "$orvid" credentials set provider.cli.api-key >"$work/out" 2>"$work/err" \
  || fail "credentials set: $(cat "$work/err")"
expect_line "credentials set" "Stored provider.cli.api-key."
[ "$(stat -c %a "$credentials_file" 2>/dev/null)" = "600" ] || fail "credentials: no owner-only file store"
expect_ok "credentials list" "^provider\.cli\.api-key$" credentials list
expect_ok "credentials delete" "^Deleted provider\.cli\.api-key\.$" credentials delete provider.cli.api-key
expect_error "credentials set empty" credentials set provider.cli.empty </dev/null

# ----- Transcript cleanup; its settings.json switches autocorrect, numbers and Chinese -----
# expect_clean NAME EXPECTED ARGS...: zero exit and exactly EXPECTED on stdout.
expect_clean() {
  local name="$1" expected="$2"; shift 2
  if ! "$orvid" clean "$@" >"$work/out" 2>"$work/err"; then fail "$name: exit status $?: $(cat "$work/err")"; return; fi
  [ "$(cat "$work/out")" = "$expected" ] || fail "$name: got '$(cat "$work/out")', expected '$expected'"
}
zwsp=$(printf '\xe2\x80\x8b')
expect_clean "clean everything off" "um I I like it" " ${zwsp}um   I I${zwsp}  like it "
expect_clean "clean stdin" "from standard input" --fillers --file - <<<'uh  from   standard input'
printf 'hello' >"$work/transcript.txt"
expect_error "clean text and file" clean "hello" --file "$work/transcript.txt"

# ----- The loopback service: speech-to-text and chat, OpenAI-compatible -----
# /broken/ fails quoting the key; keys must be right and uploads need one. Chat model
# "echo" echoes, others answer in the cleanup prompts' JSON shape. Requests are logged.
log="$work/requests.jsonl"
cat >"$work/service.py" <<'PY'
import json, sys
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

fifo, log, key = sys.argv[1:4]

class Handler(BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, status, body, content_type="application/json"):
        data = (body if isinstance(body, str) else json.dumps(body)).encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        auth = self.headers.get("Authorization")
        chat = json.loads(body) if self.path.endswith("/chat/completions") else None
        with open(log, "a") as out:
            out.write(json.dumps({"path": self.path, "authorization": auth, "body": chat}) + "\n")
        if self.path.startswith("/broken/"):
            return self.reply(500, "upstream failed\nAuthorization: Bearer " + key, "text/plain")
        if auth != "Bearer " + key and (auth is not None or chat is None):
            return self.reply(401, {"error": "rejected Authorization: %s" % auth})
        if chat is None:
            german = b'name="language"\r\n\r\nde\r\n' in body
            answer = {"text": " open the Downloads folder , please" + (" auf Deutsch" if german else "") + " "}
            return self.reply(200, answer)
        spoken = chat["messages"][-1]["content"]
        content = {"echo": "echo: " + spoken}.get(chat["model"], json.dumps({"transcription": "In Finder: " + spoken}))
        self.reply(200, {"choices": [{"message": {"role": "assistant", "content": content}}],
                         "usage": {"prompt_tokens": 12, "completion_tokens": 4}})

server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
with open(fifo, "w") as out:
    out.write("%d\n" % server.server_address[1])
server.serve_forever()
PY
mkfifo "$work/port-fifo"
exec 3<>"$work/port-fifo"
timeout 240 /usr/bin/python3 "$work/service.py" "$work/port-fifo" "$log" "$key" &
service_pid=$!
trap 'kill "$service_pid" 2>/dev/null; rm -rf "$work"' EXIT
port=""
read -r -t 20 -u 3 port
exec 3<&-
[ -n "$port" ] || fail "the loopback service did not start"
service="http://127.0.0.1:$port"


# ----- transcribe and chat -----
expect_error "transcribe without key" transcribe "$work/ok.wav" --provider openai --base-url "$service/v1"
grep -q "orvid credentials set provider.openai.api-key" "$work/err" || fail "missing key advice: $(cat "$work/err")"
printf '%s' "$key" | "$orvid" credentials set provider.openai-compatible.api-key >/dev/null 2>"$work/err" \
  || fail "storing the key: $(cat "$work/err")"
printf '%s' "$wrong_key" | "$orvid" credentials set provider.groq.api-key >/dev/null 2>"$work/err" \
  || fail "storing the wrong key: $(cat "$work/err")"

expect_ok "transcribe" "^open the Downloads folder , please auf Deutsch$" \
  transcribe "$work/ok.wav" --provider openai-compatible --base-url "$service/v1" --language de --prompt "Orvid"
expect_ok "chat" "^echo: hello there$" chat --provider openai-compatible --base-url "$service/v1" --model echo \
  hello there
expect_error "transcribe rejected key" transcribe "$work/ok.wav" --provider groq --base-url "$service/v1"
grep -q "ASR request failed with HTTP 401: .*Authorization: Bearer \[REDACTED\]" "$work/err" \
  || fail "rejected key message: $(cat "$work/err")"
expect_error "transcribe server error" transcribe "$work/ok.wav" --provider openai-compatible \
  --base-url "$service/broken/v1"
[ "$(cat "$work/err")" = "orvid: ASR request failed with HTTP 500: upstream failed Authorization: Bearer [REDACTED]" ] \
  || fail "server error message: $(cat "$work/err")"

# ----- listen, against the real-time replica over TLS -----
replica_pids=()
trap 'kill "$service_pid" "${replica_pids[@]}" 2>/dev/null; rm -rf "$work"' EXIT
# start_replica NAME [ARGS...]: the replica's base URL in $replica_url, its CA in $replica_ca.
start_replica() {
  local name="$1"; shift
  timeout 120 /usr/bin/python3 "$(dirname "$0")/../../scripts/realtime-replica.py" --port 0 \
    --cert-dir "$work/replica-$name" "$@" >"$work/replica-$name.out" 2>&1 &
  replica_pids+=($!)
  for _ in $(seq 200); do grep -q '^ready' "$work/replica-$name.out" && break; sleep 0.05; done
  replica_url=$(sed -n 's/^ready \([^ ]*\) ca=.*/\1/p' "$work/replica-$name.out")
  replica_ca=$(sed -n 's/^ready .* ca=//p' "$work/replica-$name.out")
  [ -n "$replica_url" ] || fail "replica $name did not start: $(cat "$work/replica-$name.out")"
}
printf '%s' "$key" | "$orvid" credentials set provider.openai.api-key >/dev/null 2>"$work/err" \
  || fail "storing the real-time key: $(cat "$work/err")"
start_replica plain
SSL_CERT_FILE="$replica_ca" expect_ok "listen" "^The replica heard 0.10 seconds of audio.$" \
  listen "$work/ok.wav" --provider openai --base-url "$replica_url" --language en
grep -q "^partial: The replica" "$work/out" || fail "listen partials: $(cat "$work/out")"
expect_error "listen untrusted" listen "$work/ok.wav" --provider openai --base-url "$replica_url"
start_replica reject --fault reject
SSL_CERT_FILE="$replica_ca" expect_error "listen rejected" listen "$work/ok.wav" --provider openai \
  --base-url "$replica_url"
grep -q "HTTP 401" "$work/err" || fail "listen rejected message: $(cat "$work/err")"
# A session that never finishes ends cleanly on a signal, after its live text.
start_replica stall --fault stall
SSL_CERT_FILE="$replica_ca" "$orvid" listen "$work/ok.wav" --provider openai --base-url "$replica_url" \
  >"$work/out" 2>"$work/err" &
listen_pid=$!
for _ in $(seq 200); do grep -q "^partial: The replica heard" "$work/out" && break; sleep 0.05; done
kill -TERM "$listen_pid"
timeout 20 tail --pid="$listen_pid" -f /dev/null || kill -KILL "$listen_pid"
wait "$listen_pid"
status=$?
[ "$status" -eq 143 ] && [ "$(cat "$work/err")" = "orvid: interrupted" ] \
  || fail "listen interrupted: status $status: $(cat "$work/out" "$work/err")"
expect_error "listen without real-time" listen "$work/ok.wav" --provider groq
expect_error "listen stereo-less file" listen "$work/text.wav" --provider openai

# ----- rewrite -----
expect_ok "rewrite" "^In Finder: hello world$" rewrite "  hello world  " --prompt default_correct --provider ollama \
  --model test-model --base-url "$service/v1" --stats

# ----- cua status and automate, with stand-ins for cua-driver -----
# make_driver NAME RUN DOCTOR: a driver that runs RUN for "run --json" and DOCTOR for
# "doctor --json".
make_driver() {
  cat >"$work/driver-$1" <<SH
#!/bin/bash
case "\$1 \${2:-}" in
  "--version ") echo "cua-driver 9.9.9-$1" ;;
  "doctor --json") $3 ;;
  "run --json") $2 ;;
  *) echo "unexpected arguments: \$*" >&2; exit 64 ;;
esac
SH
  chmod +x "$work/driver-$1"
}
ready_doctor="echo '{\"version\": \"9.9.9-test\", \"ready\": true, \"daemon\": \"running\", \"accessibility\": \"granted\", \"screen_recording\": \"granted\"}'"
# "ready" echoes the instruction with its time limit and prints a secret on stderr.
make_driver ready "/usr/bin/python3 -c 'import json, sys; r = json.load(sys.stdin); print(\"ran: \" + r[\"instruction\"] + \" within \" + str(r[\"timeoutSeconds\"]) + \" s\")'; echo 'api_key=$driver_secret' >&2" "$ready_doctor"
make_driver failing "cat >/dev/null; echo 'could not find Finder'; exit 3" "$ready_doctor"
make_driver slow "exec sleep 30" "$ready_doctor"
make_driver absent "exit 0" "echo '{\"installed\": false}'"

expect_ok "cua status" "^readiness: ready$" cua status --executable "$work/driver-ready"
expect_line "cua status" "binary path: $work/driver-ready"

# The user's settings apply to the cleanup: autocorrect capitalises and tidies spaces.
printf '{"autocorrectEnabled": true}' >"$ORVID_CONFIG_HOME/settings.json"
request=(automate "$work/ok.wav" --provider openai-compatible)
ready=(--executable "$work/driver-ready")
expect_ok "automate --yes" "^exit code: 0$" "${request[@]}" --base-url "$service/v1" --language de "${ready[@]}" \
  --timeout 7 --yes
[ -s "$work/err" ] && fail "automate --yes wrote to stderr: $(cat "$work/err")"
expected="heard: open the Downloads folder , please auf Deutsch
cleaned: Open the Downloads folder, please auf Deutsch
instruction: Open the Downloads folder, please auf Deutsch
title: Open the Downloads folder, please auf Deutsch
Method: Computer Use
Model: whisper-1 via openai-compatible
confirm: Open the Downloads folder, please auf Deutsch
exit code: 0
stdout:
  ran: Open the Downloads folder, please auf Deutsch within 7 s
stderr:
  api_key=[REDACTED]"
[ "$(cat "$work/out")" = "$expected" ] || fail "automate --yes printed: $(cat "$work/out")"

# Without --yes and without any terminal (a new session, standard input not a
# terminal) it refuses before anything is sent or run.
: >"$log"
setsid -w "$orvid" "${request[@]}" --base-url "$service/v1" "${ready[@]}" </dev/null >"$work/out" 2>"$work/err"
status=$?
[ "$status" -eq 1 ] || fail "automate without terminal: exit status $status"
[ "$(cat "$work/err")" = "orvid: no terminal to confirm on: run orvid automate in a terminal or pass --yes" ] \
  || fail "automate without terminal: $(cat "$work/err")"
[ -s "$log" ] && fail "automate without terminal sent a request"
# On a terminal (a pty) the answer decides: "y" runs the instruction, anything else does not.
for answer in " Y" no; do
  timeout 60 /usr/bin/python3 -c 'import os, subprocess, sys
m, t = os.openpty(); os.write(m, sys.argv[1].encode() + b"\n")
sys.exit(subprocess.run(sys.argv[2:], stdin=t, start_new_session=True).returncode)' "$answer" "$orvid" \
    "${request[@]}" --base-url "$service/v1" "${ready[@]}" >"$work/out" 2>"$work/err"
  status=$?
  grep -q "^Run this instruction with cua-driver? \[y/N\] " "$work/err" || fail "no question: $(cat "$work/err")"
  if [ "$answer" = no ]; then
    [ "$status" -eq 1 ] && grep -q -x "orvid: not confirmed; nothing was run" "$work/err" || fail "declined: $status"
  else
    [ "$status" -eq 0 ] && grep -q "^  ran: Open the Downloads folder" "$work/out" || fail "confirmed: $status"
  fi
done


# Failures: one redacted line and a non-zero exit.
expect_error "automate driver not installed" "${request[@]}" --base-url "$service/v1" \
  --executable "$work/driver-absent" --yes
grep -q "CUA Driver is not ready (notInstalled)" "$work/err" || fail "automate driver not installed: $(cat "$work/err")"
expect_error "automate failing driver" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-failing" --yes
[ "$(cat "$work/err")" = "orvid: cua-driver exited with status 3" ] || fail "automate failing driver: $(cat "$work/err")"
expect_line "automate failing driver" "  could not find Finder"

# Stopping the tool while the driver runs ends the driver too (it runs in a process
# group of its own, which the terminal's signals do not reach).
# interrupt DRIVER TIMES: automate with DRIVER, which writes its pids into $work/DRIVER.pids,
# then SIGTERM TIMES times 0.2 s apart: exit status 143 and none of those processes left.
interrupt() {
  local name="automate interrupted $2 time(s)" orvid_pid pid
  rm -f "$work/$1.pids"
  "$orvid" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-$1" --yes >"$work/out" 2>"$work/err" &
  orvid_pid=$!
  for _ in $(seq 300); do [ -s "$work/$1.pids" ] && break; sleep 0.1; done
  [ -s "$work/$1.pids" ] || fail "$name: the driver did not start: $(cat "$work/err")"
  kill -TERM "$orvid_pid"
  for _ in $(seq 2 "$2"); do sleep 0.2; kill -TERM "$orvid_pid"; done
  timeout 20 tail --pid="$orvid_pid" -f /dev/null || kill -KILL "$orvid_pid"
  wait "$orvid_pid"
  status=$?
  [ "$status" -eq 143 ] || fail "$name: exit status $status: $(cat "$work/err")"
  for pid in $(cat "$work/$1.pids" 2>/dev/null); do
    if kill -0 "$pid" 2>/dev/null; then kill -KILL "$pid"; fail "$name: process $pid outlived the tool"; fi
  done
}
make_driver hanging "echo \$\$ >'$work/hanging.pids'; cat >/dev/null; echo started; exec sleep 60" "$ready_doctor"
interrupt hanging 1
[ "$(cat "$work/err")" = "orvid: interrupted" ] || fail "automate interrupted: $(cat "$work/err")"
expect_line "automate interrupted" "exit code: 15"
# A driver that ignores the terminate signal, with a helper in a session of its own:
# a second signal 0.2 s after the first still leaves no process behind.
make_driver stubborn "trap '' TERM; setsid sleep 60 & echo \$\$ \$! >'$work/stubborn.pids'; cat >/dev/null; echo started; exec sleep 60" "$ready_doctor"
interrupt stubborn 2

# ----- models, against a loopback model hub -----
hub="$work/hub"
mkdir -p "$hub/ggerganov/whisper.cpp/resolve/main"
model_file="$hub/ggerganov/whisper.cpp/resolve/main/ggml-tiny.en.bin"
head -c 3000000 /dev/urandom >"$model_file"
models=(models --root "$work/models")
# A hub sending 1 MB/s, so that a download can be stopped part way.
timeout 300 /usr/bin/python3 "$(dirname "$0")/../../scripts/model-hub-replica.py" --dir "$hub" --rate 1000000 \
  >"$work/hub.out" 2>&1 &
replica_pids+=($!)
for _ in $(seq 200); do grep -q '^ready' "$work/hub.out" && break; sleep 0.05; done
export HF_ENDPOINT=$(sed -n 's/^ready //p' "$work/hub.out")
[ -n "$HF_ENDPOINT" ] || fail "model hub did not start: $(cat "$work/hub.out")"
# stop_download SIGNAL: starts the download, sends SIGNAL once 10 % has arrived; its status in $status.
stop_download() {
  rm -f "$work/progress"; mkfifo "$work/progress"
  "$orvid" "${models[@]}" download whispercpp-tiny-en 2>"$work/progress" >"$work/out" &
  local pid=$!
  exec 7<"$work/progress"
  timeout 60 grep -q -m1 -E '^[1-9][0-9]?%' <&7 && kill "-$1" "$pid"
  timeout 30 cat <&7 >"$work/err"
  exec 7<&-
  wait "$pid" 2>/dev/null; status=$?
}
partial="$work/models/ggml-tiny.en.bin.partial"
stop_download KILL
[ "$status" -eq 137 ] && [ -s "$partial" ] || fail "models download killed: status $status, no partial file"
# SIGTERM takes the path of Ctrl-C (a background job of a script ignores SIGINT).
stop_download TERM
[ "$status" -eq 143 ] || fail "models download interrupted: status $status: $(cat "$work/err")"
grep -q "the next run resumes" "$work/err" || fail "models download interrupted: $(cat "$work/err")"
kept=$(stat -c %s "$partial")
expect_ok "models download resumed" "^whispercpp-tiny-en installed at $work/models/ggml-tiny.en.bin$" \
  "${models[@]}" download whispercpp-tiny-en
cmp -s "$model_file" "$work/models/ggml-tiny.en.bin" || fail "models download: the installed file differs"
grep -q "range=bytes=$kept-  206" "$work/hub.out" || fail "models download did not resume from $kept: $(cat "$work/hub.out")"
expect_ok "models list" "^whispercpp-tiny-en +installed +77.7 MB +$work/models/ggml-tiny.en.bin$" "${models[@]}" list
expect_ok "models list --json" '"isInstalled": true' "${models[@]}" list --json
expect_ok "models delete" "^whispercpp-tiny-en deleted$" "${models[@]}" delete whispercpp-tiny-en
[ -e "$work/models/ggml-tiny.en.bin" ] && fail "models delete left the file"
expect_ok "models path" "^$work/models$" "${models[@]}" path
expect_error "models unknown" "${models[@]}" download no-such-model
touch "$work/not-a-folder"
expect_error "models unwritable root" models --root "$work/not-a-folder/models" download whispercpp-tiny-en
unset HF_ENDPOINT

# ----- listen, against replicas of the other real-time services -----
for service in soniox deepgram stepfun aliyun-bailian; do
  printf '%s' "$key" | "$orvid" credentials set "provider.$service.api-key" >/dev/null 2>"$work/err" \
    || fail "storing the $service key: $(cat "$work/err")"
  start_replica "$service" --service "$service"
  SSL_CERT_FILE="$replica_ca" expect_ok "listen $service" "^The replica heard 0.10 seconds of audio.$" \
    listen "$work/ok.wav" --provider "$service" --base-url "$replica_url" --language en
  grep -q "^partial: The replica" "$work/out" || fail "listen $service partials: $(cat "$work/out")"
done
# Aliyun Bailian's task protocol (Paraformer) beside its Qwen event protocol above.
start_replica aliyun-task --service aliyun-bailian
SSL_CERT_FILE="$replica_ca" expect_ok "listen aliyun-bailian task" "^The replica heard 0.10 seconds of audio.$" \
  listen "$work/ok.wav" --provider aliyun-bailian --model paraformer-realtime-v2 --base-url "$replica_url"
start_replica deepgram-reject --service deepgram --fault reject
SSL_CERT_FILE="$replica_ca" expect_error "listen deepgram rejected" listen "$work/ok.wav" --provider deepgram \
  --base-url "$replica_url"
grep -q "HTTP 401" "$work/err" || fail "listen deepgram rejected message: $(cat "$work/err")"
start_replica stepfun-close --service stepfun --fault close
SSL_CERT_FILE="$replica_ca" expect_error "listen stepfun closed" listen "$work/ok.wav" --provider stepfun \
  --base-url "$replica_url"
grep -q "^partial: The replica" "$work/out" || fail "listen stepfun closed: no partial before the error"

# ----- every batch service family, validation and model discovery, against loopback replicas -----
cat >"$work/batch.py" <<'PY'
import json, sys, urllib.parse
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

fifo, log, key = sys.argv[1:4]
polls = {}

class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    def log_message(self, *args):
        pass

    def reply(self, status, body, content_type="application/json", pieces=None):
        data = (body if isinstance(body, str) else json.dumps(body)).encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def authorised(self, expected):
        got = self.headers.get("xi-api-key") if expected == "xi" else self.headers.get("Authorization")
        want = key if expected == "xi" else expected + key
        if got != want:
            self.reply(401, {"error": "rejected Authorization: %s" % got})
            return False
        return True

    def do_GET(self):
        url = urllib.parse.urlparse(self.path)
        with open(log, "a") as out:
            out.write(json.dumps({"method": "GET", "path": url.path}) + "\n")
        if url.path == "/v1/models":
            if not self.authorised("Bearer "): return
            return self.reply(200, {"object": "list", "data": [{"id": "m-%d" % i} for i in range(3)]})
        if url.path == "/soniox/v1/transcriptions/job-1":
            if not self.authorised("Bearer "): return
            polls["job"] = polls.get("job", 0) + 1
            return self.reply(200, {"id": "job-1", "status": "completed" if polls["job"] >= 2 else "queued"})
        if url.path == "/soniox/v1/transcriptions/job-1/transcript":
            return self.reply(200, {"id": "job-1", "text": "soniox heard you"})
        self.reply(404, {"error": "no route"})

    def do_POST(self):
        url = urllib.parse.urlparse(self.path)
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        with open(log, "a") as out:
            out.write(json.dumps({"method": "POST", "path": url.path, "query": url.query,
                                  "type": self.headers.get("Content-Type")}) + "\n")
        if url.path == "/deepgram/v1/listen":
            if not self.authorised("Token "): return
            if self.headers.get("Content-Type") != "audio/wav" or body[:4] != b"RIFF":
                return self.reply(400, {"error": "not a WAV body"})
            return self.reply(200, {"results": {"channels": [{"alternatives": [{"transcript": "deepgram heard you"}]}]}})
        if url.path == "/elevenlabs/v1/speech-to-text":
            if not self.authorised("xi"): return
            return self.reply(200, {"text": "elevenlabs heard you", "language_code": "eng"})
        if url.path == "/soniox/v1/files":
            if not self.authorised("Bearer "): return
            return self.reply(201, {"id": "file-1"})
        if url.path == "/soniox/v1/transcriptions":
            if not self.authorised("Bearer "): return
            with open(log, "a") as out:
                out.write(json.dumps({"soniox_context": json.loads(body).get("context")}) + "\n")
            return self.reply(201, {"id": "job-1", "status": "queued"})
        if url.path == "/stepfun/v1/audio/asr/sse":
            if not self.authorised("Bearer "): return
            stream = ': ping\n\ndata: {"type":"transcript.text.delta","text":"stepfun"}\n\n' \
                     'data: {"type":"transcript.text.delta","text":"heard you"}\n\ndata: [DONE]\n\n'
            return self.reply(200, stream, "text/event-stream")
        self.reply(404, {"error": "no route"})

server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
with open(fifo, "w") as out:
    out.write("%d\n" % server.server_address[1])
server.serve_forever()
PY
batch_log="$work/batch.jsonl"
mkfifo "$work/batch-fifo"
exec 4<>"$work/batch-fifo"
timeout 240 /usr/bin/python3 "$work/batch.py" "$work/batch-fifo" "$batch_log" "$key" &
batch_pid=$!
trap 'kill "$service_pid" "$batch_pid" "${replica_pids[@]}" 2>/dev/null; rm -rf "$work"' EXIT
batch_port=""
read -r -t 20 -u 4 batch_port
exec 4<&-
[ -n "$batch_port" ] || fail "the batch replicas did not start"
batch="http://127.0.0.1:$batch_port"
for id in deepgram elevenlabs soniox stepfun; do
  printf '%s' "$key" | "$orvid" credentials set "provider.$id.api-key" >/dev/null 2>"$work/err" \
    || fail "storing the $id key: $(cat "$work/err")"
done
expect_ok "transcribe deepgram (raw body)" "^deepgram heard you$" \
  transcribe "$work/ok.wav" --provider deepgram --base-url "$batch/deepgram/v1" --prompt "Brindle"
grep -q '"query": "model=nova-3&smart_format=true&.*keywords=Brindle"' "$batch_log" \
  || fail "deepgram query: $(cat "$batch_log")"
expect_ok "transcribe elevenlabs (multipart)" "^elevenlabs heard you$" \
  transcribe "$work/ok.wav" --provider elevenlabs --base-url "$batch/elevenlabs/v1"
expect_ok "transcribe soniox (job)" "^soniox heard you$" \
  transcribe "$work/ok.wav" --provider soniox --base-url "$batch/soniox/v1" --prompt "Brindle, Orvid"
grep -q '"soniox_context": {"terms": \["Brindle", "Orvid"\]}' "$batch_log" \
  || fail "soniox dictionary terms: $(cat "$batch_log")"
expect_ok "transcribe stepfun (event stream)" "^stepfun heard you$" \
  transcribe "$work/ok.wav" --provider stepfun --base-url "$batch/stepfun/v1/audio/asr/sse"
expect_ok "providers validate" "^deepgram: validated$" providers validate deepgram --base-url "$batch/deepgram/v1"
expect_ok "providers validate --json" '"kind": "validated"' \
  providers validate deepgram --base-url "$batch/deepgram/v1" --json
expect_error "providers validate without key" providers validate cartesia --base-url "$batch/cartesia"
grep -q "did not validate" "$work/err" || fail "validate without key: $(cat "$work/err")"
grep -q "^cartesia: failed: Missing credential.$" "$work/out" || fail "validate without key: $(cat "$work/out")"
expect_ok "providers validate --ai" "^openai-compatible: validated$" \
  providers validate openai-compatible --ai --base-url "http://127.0.0.1:$port/v1" --model echo
expect_ok "providers models" "^m-2$" providers models openai-compatible --base-url "$batch/v1"
expect_ok "providers models --json" '"modelID": "m-0"' providers models openai-compatible --base-url "$batch/v1" --json


if [ "$failures" -ne 0 ]; then echo "$failures failure(s)"; exit 1; fi
echo "all CLI checks passed"
