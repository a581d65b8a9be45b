#!/usr/bin/env bash
# End-to-end checks of the orvid tool: good input works, and every kind of bad
# input gets exactly one line on stderr and a non-zero exit, never a crash.
set -u
orvid="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ORVID_CONFIG_HOME="$work/config"
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect_error NAME ARGS...: non-zero exit, nothing on stdout, exactly one stderr line.
expect_error() {
  local name="$1"; shift
  "$orvid" "$@" >"$work/out" 2>"$work/err"
  local status=$?
  local lines
  lines=$(wc -l <"$work/err")
  if [ "$status" -eq 0 ] || [ "$status" -ge 128 ]; then fail "$name: exit status $status"; fi
  if [ "$lines" -ne 1 ]; then fail "$name: expected one stderr line, got $lines: $(cat "$work/err")"; fi
  if grep -q -i -E 'terminate called|what\(\)|Aborted|Segmentation|AddressSanitizer|runtime error' "$work/err"; then
    fail "$name: crash output: $(cat "$work/err")"
  fi
}

# expect_ok NAME PATTERN ARGS...: zero exit and PATTERN on stdout.
expect_ok() {
  local name="$1" pattern="$2"; shift 2
  if ! "$orvid" "$@" >"$work/out" 2>"$work/err"; then fail "$name: exit status $?: $(cat "$work/err")"; return; fi
  grep -q -E "$pattern" "$work/out" || fail "$name: output lacks '$pattern': $(cat "$work/out")"
}

# A 16-bit mono WAV header for $3 data bytes at rate $2, written to $1 followed by zero samples.
write_wav() {
  /usr/bin/python3 - "$1" "$2" "$3" "${4:-16}" <<'PY'
import struct, sys
path, rate, size, bits = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
header = b"RIFF" + struct.pack("<I", size + 36) + b"WAVE" + b"fmt " + struct.pack("<IHHIIHH", 16, 1, 1, rate, rate * bits // 8, bits // 8, bits) + b"data" + struct.pack("<I", size)
open(path, "wb").write(header + bytes(size))
PY
}

write_wav "$work/ok.wav" 48000 9600
write_wav "$work/eight.wav" 8000 800 8
write_wav "$work/zero-rate.wav" 0 800
printf 'hello, not audio at all, just some text that is long enough for a header' >"$work/text.wav"
head -c 20 "$work/ok.wav" >"$work/short.wav"

expect_ok "wav info" "sample rate: +48000 Hz" wav info "$work/ok.wav"
expect_ok "wav resample" "4800 samples at 16000 Hz|1600 samples at 16000 Hz" wav resample "$work/ok.wav" "$work/out16.wav" --rate 16000
expect_ok "resampled info" "sample rate: +16000 Hz" wav info "$work/out16.wav"
expect_ok "speech-check silence" "contains speech: +no" speech-check "$work/ok.wav"
expect_ok "demo" "contains speech: +yes" demo
expect_ok "demo cleanup" "cleaned: Open GitHub and set the Brindle volume to 23\.5%" demo
expect_ok "demo route" "strategy=unavailableFallback \\| selected=de,en \\| language=de" demo

expect_error "missing file" wav info "$work/absent.wav"
expect_error "directory" wav info "$work"
expect_error "not a WAV" wav info "$work/text.wav"
expect_error "truncated" wav info "$work/short.wav"
expect_error "8-bit WAV" wav info "$work/eight.wav"
expect_error "8-bit resample" wav resample "$work/eight.wav" "$work/x.wav" --rate 16000
expect_error "rate 0 in header" wav resample "$work/zero-rate.wav" "$work/x.wav" --rate 16000
expect_error "rate 0 option" wav resample "$work/ok.wav" "$work/x.wav" --rate 0
expect_error "negative rate" wav resample "$work/ok.wav" "$work/x.wav" --rate -5
expect_error "rate not a number" wav resample "$work/ok.wav" "$work/x.wav" --rate fast
expect_error "unwritable output" wav resample "$work/ok.wav" "$work/no/such/dir/x.wav" --rate 16000
expect_error "speech-check missing" speech-check "$work/absent.wav"
expect_error "unknown command" frobnicate

# ---------------------------------------------------------------------------
# Providers, language routes and credentials.
# Credentials go to the owner-only file in $ORVID_CONFIG_HOME: the session bus is
# hidden, so no desktop keyring is ever touched.
# ---------------------------------------------------------------------------
expect_ok "providers" "^openai$" providers
grep -q -E "^soniox$" "$work/out" || fail "providers: soniox missing"
grep -q -E "^  api: " "$work/out" || fail "providers: no api lines"
grep -q -E "^local\." "$work/out" || fail "providers: no on-device models"
text_count=$(grep -c -E "^[^ ]" "$work/out")
expect_ok "providers --json" "\"id\"" providers --json
json_count=$(/usr/bin/python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))))' "$work/out" 2>/dev/null)
[ "$json_count" = "$text_count" ] || fail "providers: $text_count in text, '$json_count' in JSON"
expect_ok "providers --ai" "^anthropic$" providers --ai
grep -q -E "^  api style: anthropicMessages$" "$work/out" || fail "providers --ai: no Anthropic style"
grep -q -E "^ollama$" "$work/out" || fail "providers --ai: ollama missing"

expect_ok "route hints" "^strategy: candidateHints$" route --provider soniox --languages en,de --transport realtime
grep -q -x "language hints: en,de" "$work/out" || fail "route hints: $(cat "$work/out")"
grep -q -x "transport: realtime" "$work/out" || fail "route hints: transport"
expect_ok "route unsupported code" "^  Ignored unsupported language codes: xx$" route --provider soniox --languages en,xx
grep -q -x "selected: en" "$work/out" || fail "route unsupported code: selection"
grep -q -E "^summary: provider=soniox \| model=default \| transport=batch \| strategy=candidateHints \| selected=en \|" \
  "$work/out" || fail "route unsupported code: summary $(cat "$work/out")"
expect_ok "route multilingual" "^strategy: multilingualMode$" route --provider deepgram
grep -q -x "language: multi" "$work/out" || fail "route multilingual: language"
grep -q -x "  Automatic selection uses the provider's broad multilingual mode." "$work/out" \
  || fail "route multilingual: diagnostic"
expect_ok "route one language" "^language: zho$" route --provider elevenlabs --languages zh-Hans --model scribe_v1
grep -q -x "cleanup language: zh-Hans" "$work/out" || fail "route one language: cleanup language"
grep -q -x "model: scribe_v1" "$work/out" || fail "route one language: model"
expect_ok "route no adapter" "^  The selected transport has no constructible language-aware adapter.$" \
  route --provider groq --languages de --transport realtime
expect_error "route unknown provider" route --provider no-such-provider
expect_error "route provider case" route --provider OpenAI
expect_error "route bad transport" route --provider openai --transport carrier-pigeon
expect_error "route without provider" route --languages en

no_bus=(env -u DBUS_SESSION_BUS_ADDRESS -u ORVID_CREDENTIAL_STORE XDG_RUNTIME_DIR="$work/no-runtime")
secret="sk-cli-test-$$-S3cr3t"
credentials_file="$ORVID_CONFIG_HOME/credentials.json"
printf '%s\n' "$secret" | "${no_bus[@]}" "$orvid" credentials set provider.cli.api-key >"$work/out" 2>"$work/err" \
  || fail "credentials set (automatic store): $(cat "$work/err")"
grep -q -x "Stored provider.cli.api-key." "$work/out" || fail "credentials set: $(cat "$work/out")"
[ -f "$credentials_file" ] || fail "credentials set: no file store at $credentials_file"
[ "$(stat -c %a "$credentials_file" 2>/dev/null)" = "600" ] || fail "credentials file is not owner-only"
printf '%s' "second-$secret" | "$orvid" credentials --store file set provider.cli.x-token >/dev/null 2>"$work/err" \
  || fail "credentials set (file store): $(cat "$work/err")"
"${no_bus[@]}" "$orvid" credentials list >"$work/list" 2>"$work/err" || fail "credentials list: $(cat "$work/err")"
[ "$(cat "$work/list")" = "$(printf 'provider.cli.api-key\nprovider.cli.x-token')" ] \
  || fail "credentials list: $(cat "$work/list")"
grep -q "$secret" "$credentials_file" || fail "credentials file lacks the stored secret"
"$orvid" credentials --store file --service other list >"$work/out" 2>&1 || fail "credentials list other service"
[ -s "$work/out" ] && fail "credentials of another service: $(cat "$work/out")"
expect_error "credentials set empty" credentials --store file set provider.cli.empty </dev/null
expect_error "credentials set bad reference" credentials --store file set "two words" </dev/null
expect_error "credentials without action" credentials --store file
expect_error "credentials bad store" credentials --store vault list
"$orvid" credentials --store file delete provider.cli.api-key >"$work/out" 2>"$work/err" \
  || fail "credentials delete: $(cat "$work/err")"
grep -q -x "Deleted provider.cli.api-key." "$work/out" || fail "credentials delete: $(cat "$work/out")"
"$orvid" credentials --store file delete provider.cli.api-key >/dev/null 2>&1 || fail "deleting twice fails"
"$orvid" credentials --store file list >"$work/list" 2>&1
[ "$(cat "$work/list")" = "provider.cli.x-token" ] || fail "list after delete: $(cat "$work/list")"
printf '{"credentials": {"orvid": {"provider.cli.api-key": "'"$secret"'"' >"$credentials_file"
expect_error "credentials damaged file" credentials --store file list
# No secret ever reaches the terminal.
grep -q -e "$secret" "$work/out" "$work/err" "$work/list" && fail "a secret was printed"

# ----- transcribe and chat: cloud services (a fake OpenAI-compatible service on 127.0.0.1) -----
saved_config_home="$ORVID_CONFIG_HOME"
export ORVID_CONFIG_HOME="$work/cloud-config" ORVID_CREDENTIAL_STORE=file
cloud_key="sk-cli-fake-0123456789"
wrong_key="gsk-wrong-secret-98765"
cat >"$work/fake_service.py" <<'PY'
import json, sys, threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

KEY = sys.argv[1]

class Handler(BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, status, body, content_type="application/json"):
        data = body.encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        auth = self.headers.get("Authorization", "")
        if self.path.startswith("/broken/"):
            return self.reply(500, "upstream failed\nsecond line", "text/plain")
        if auth != "Bearer " + KEY:
            return self.reply(401, json.dumps({"error": "rejected Authorization: " + auth}))
        if self.path == "/v1/audio/transcriptions":
            upload = self.headers.get("Content-Type", "").startswith("multipart/form-data; boundary=Brindle-") \
                and b'name="file"; filename="tesselhost.wav"\r\nContent-Type: audio/wav\r\n\r\nRIFF' in body
            if not upload:
                return self.reply(400, json.dumps({"error": "not an upload"}))
            language = b'name="language"\r\n\r\nde\r\n' in body
            return self.reply(200, json.dumps({"text": "  Hallo von der Kommandozeile" + (" (de)" if language else "") + " "}))
        if self.path == "/v1/chat/completions":
            request = json.loads(body)
            return self.reply(200, json.dumps({"choices": [{"message": {"content": "echo: " + request["messages"][-1]["content"]}}]}))
        self.reply(404, "{}")

server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
threading.Timer(90, server.shutdown).start()  # never outlives the test by much
print(server.server_address[1], flush=True)
server.serve_forever()
PY
exec 3< <(/usr/bin/python3 "$work/fake_service.py" "$cloud_key")
fake_pid=$!
if read -r -t 20 fake_port <&3; then
  fake="http://127.0.0.1:$fake_port"

  expect_error "transcribe missing file" transcribe "$work/absent.wav" --provider openai
  expect_error "transcribe unknown provider" transcribe "$work/ok.wav" --provider no-such-service
  expect_error "transcribe on-device provider" transcribe "$work/ok.wav" --provider local.whispercpp-tiny
  expect_error "transcribe without base URL" transcribe "$work/ok.wav" --provider openai-compatible
  expect_error "transcribe bad base URL" transcribe "$work/ok.wav" --provider openai-compatible --base-url "ftp://x/v1"
  expect_error "transcribe without key" transcribe "$work/ok.wav" --provider openai-compatible --base-url "$fake/v1"
  grep -q "orvid credentials set provider.openai-compatible.api-key" "$work/err" || fail "missing key advice: $(cat "$work/err")"
  expect_error "transcribe not a WAV" transcribe "$work/text.wav" --provider openai --base-url "$fake/v1"
  expect_error "chat unknown provider" chat --provider no-such-model-host --model m hello
  expect_error "chat without key" chat --provider openai-compatible --base-url "$fake/v1" --model m hello

  printf '%s' "$cloud_key" | "$orvid" credentials set provider.openai-compatible.api-key >/dev/null 2>"$work/err" \
    || fail "storing the fake key: $(cat "$work/err")"
  printf '%s' "$wrong_key" | "$orvid" credentials set provider.groq.api-key >/dev/null 2>"$work/err" \
    || fail "storing the wrong key: $(cat "$work/err")"

  expect_ok "transcribe" "^Hallo von der Kommandozeile \(de\)$" \
    transcribe "$work/ok.wav" --provider openai-compatible --base-url "$fake/v1" --language de --prompt "Orvid"
  expect_ok "chat" "^echo: hello there$" chat --provider openai-compatible --base-url "$fake/v1" --model m hello there

  expect_error "transcribe rejected key" transcribe "$work/ok.wav" --provider groq --base-url "$fake/v1"
  grep -q "ASR request failed with HTTP 401: .*Authorization: Bearer \[REDACTED\]" "$work/err" \
    || fail "rejected key message: $(cat "$work/err")"
  grep -q -e "$wrong_key" "$work/err" && fail "transcribe printed the key: $(cat "$work/err")"
  expect_error "chat rejected key" chat --provider groq --base-url "$fake/v1" --model m hello
  grep -q "Bearer \[REDACTED\]" "$work/err" || fail "chat rejected key message: $(cat "$work/err")"
  grep -q -e "$wrong_key" "$work/err" && fail "chat printed the key: $(cat "$work/err")"
  expect_error "transcribe server error" transcribe "$work/ok.wav" --provider openai-compatible --base-url "$fake/broken/v1"
  grep -q -x "orvid: ASR request failed with HTTP 500: upstream failed second line" "$work/err" \
    || fail "server error message: $(cat "$work/err")"
  expect_error "chat server error" chat --provider openai-compatible --base-url "$fake/broken/v1" --model m hello
  expect_error "chat without model" chat --provider openai-compatible --base-url "$fake/v1" hello
  expect_error "chat bad effort" chat --provider openai-compatible --base-url "$fake/v1" --model m --effort max hello
  kill "$fake_pid" 2>/dev/null
  expect_error "transcribe unreachable service" transcribe "$work/ok.wav" --provider openai-compatible --base-url "$fake/v1"
else
  fail "the fake cloud service did not start"
  kill "$fake_pid" 2>/dev/null
fi
exec 3<&-
export ORVID_CONFIG_HOME="$saved_config_home"
unset ORVID_CREDENTIAL_STORE

# ---------------------------------------------------------------------------
# Transcript cleanup (orvid clean) and rewriting (orvid rewrite).
# A configuration folder of their own: its settings.json switches autocorrect,
# number normalisation and Chinese conversion; rewriting talks to a loopback
# server that answers like an OpenAI-compatible chat service.
# ---------------------------------------------------------------------------
saved_config_home="$ORVID_CONFIG_HOME"
export ORVID_CONFIG_HOME="$work/text-config"
mkdir -p "$ORVID_CONFIG_HOME"
text_settings="$ORVID_CONFIG_HOME/settings.json"

# expect_clean NAME EXPECTED ARGS...: zero exit and exactly EXPECTED on stdout.
expect_clean() {
  local name="$1" expected="$2"; shift 2
  if ! "$orvid" clean "$@" >"$work/out" 2>"$work/err"; then fail "$name: exit status $?: $(cat "$work/err")"; return; fi
  [ "$(cat "$work/out")" = "$expected" ] || fail "$name: got '$(cat "$work/out")', expected '$expected'"
}

zwsp=$(printf '\xe2\x80\x8b')
expect_clean "clean everything off" "um I I like it" " ${zwsp}um   I I${zwsp}  like it "
expect_clean "clean stutters" "I want to go" --stutters "I I I want to to go"
expect_clean "clean stutters ignore case" "The cat" --stutters "The the cat"
expect_clean "clean fillers" "so, yes" --fillers "Um, so, like, yes"
expect_clean "clean fillers keep words" "I have an umbrella" --fillers "I have an umbrella"
expect_clean "clean mixed scripts" "好的 我们 走吧 ok" --fillers --stutters "好的 好的 um 我们 走吧 uh ok OK"
expect_clean "clean fillers then stutters" "we should go" --fillers --stutters "we um we should go"
expect_clean "clean dictionary" "push to GitHub on the AWS console" --dictionary GitHub,AWS "push to git hub on the a w s console"
expect_clean "clean dictionary repeated" "from New York City to GitHub" --dictionary GitHub --dictionary "New York City" \
  "from new yolk city to git hub"
expect_clean "clean fuzzy default threshold" "ask Anthropic now" --dictionary Anthropic "ask an tropic now"
expect_clean "clean fuzzy high threshold" "ask an tropic now" --dictionary Anthropic --threshold 0.9 "ask an tropic now"
expect_clean "clean context terms" "open GitHub and run kubectl" --threshold 0.8 --context 'Use `kubectl` with GitHub' \
  "open git hub and run cube c t l"
printf 'hello \n\n   world\n' >"$work/transcript.txt"
expect_clean "clean file" "hello world" --file "$work/transcript.txt"
printf 'uh  from   standard input\n' | "$orvid" clean --fillers --file - >"$work/out" 2>"$work/err" \
  || fail "clean stdin: $(cat "$work/err")"
[ "$(cat "$work/out")" = "from standard input" ] || fail "clean stdin: $(cat "$work/out")"

printf '{"autocorrectEnabled": true, "autocorrectRules": {"sentenceCapitalization": false},
  "inverseTextNormalizationEnabled": true, "chineseConversionMode": "s2t"}' >"$text_settings"
expect_clean "clean with settings" "我有23個蘋果，共 23 個" "我有二十三个苹果,共twenty three个"
expect_clean "clean English numbers only" "二十三 and 23.5%" --language en "二十三 and twenty three point five percent"
expect_clean "clean Chinese date" "2024年3月5日" --language zh "二零二四年三月五日"
printf '{"autocorrectEnabled": true}' >"$text_settings"
expect_clean "clean autocorrect defaults" "Hello 你好 world, fine." "hello 你好world , fine."
printf '{"autocorrectEnabled": true, "autocorrectRules": {"sentenceCapitalization": false, "spaceBetweenCJKAndLatin": false}}' \
  >"$text_settings"
expect_clean "clean autocorrect rule off" "hello 你好world" "hello 你好world"
printf '{"chineseConversionMode": "tw2sp"}' >"$text_settings"
expect_clean "clean Taiwan to Simplified" "鼠标软件" "滑鼠軟體"
printf '{"chineseConversionMode": "x2y", "inverseTextNormalizationEnabled": false}' >"$text_settings"
expect_clean "clean unknown conversion" "滑鼠軟體 twenty three" "滑鼠軟體 twenty three"
rm -f "$text_settings"

printf 'abc\xff\n' >"$work/latin1.txt"
expect_error "clean without text" clean
expect_error "clean text and file" clean "hello" --file "$work/transcript.txt"
expect_error "clean missing file" clean --file "$work/absent.txt"
expect_error "clean directory" clean --file "$work"
expect_error "clean not UTF-8" clean --file "$work/latin1.txt"
expect_error "clean threshold above 1" clean --threshold 1.5 "hello"
expect_error "clean threshold not a number" clean --threshold high "hello"

# start_chat_server LOG RESPONSE...: a loopback server that answers the requests, in
# order, with "STATUS BODY" responses and appends each request to LOG as one JSON
# line; sets chat_server (its process) and chat_port.
start_chat_server() {
  local log="$1"; shift
  rm -f "$log" "$work/port-fifo"
  mkfifo "$work/port-fifo"
  exec 3<>"$work/port-fifo"
  /usr/bin/python3 - "$work/port-fifo" "$log" "$@" <<'PY' &
import http.server, json, sys
fifo, log, responses = sys.argv[1], sys.argv[2], sys.argv[3:]
class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0"))).decode("utf-8")
        with open(log, "a") as out:
            out.write(json.dumps({"path": self.path, "authorization": self.headers.get("Authorization"),
                                  "body": json.loads(body)}) + "\n")
        status, _, reply = responses.pop(0).partition(" ")
        data = reply.encode("utf-8")
        self.send_response(int(status))
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)
    def log_message(self, *args):
        pass
server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
server.timeout = 20
with open(fifo, "w") as out:
    out.write("%d\n" % server.server_address[1])
for _ in range(len(responses)):
    server.handle_request()
PY
  chat_server=$!
  chat_port=""
  read -r -t 10 -u 3 chat_port
  exec 3<&-
  [ -n "$chat_port" ] || fail "chat server did not start"
}

stop_chat_server() { kill "$chat_server" 2>/dev/null; wait "$chat_server" 2>/dev/null; }

# check_requests NAME LOG PYTHON-EXPRESSION: the expression, over the list of logged
# requests `r`, must be true.
check_requests() {
  /usr/bin/python3 -c 'import json, sys
r = [json.loads(line) for line in open(sys.argv[1])]
sys.exit(0 if eval("(" + sys.argv[2] + ")") else 1)' "$2" "$3" 2>/dev/null || fail "$1: requests do not satisfy $3: $(cat "$2" 2>/dev/null)"
}

chat_reply() {
  /usr/bin/python3 -c 'import json, sys
print(json.dumps({"choices": [{"message": {"role": "assistant", "content": sys.argv[1]}}],
                  "usage": {"prompt_tokens": 12, "completion_tokens": 4}}))' "$1"
}

chat_log="$work/chat-requests.jsonl"
start_chat_server "$chat_log" "200 $(chat_reply '{"transcription": " Hello, world. "}')"
"$orvid" rewrite "  hello world  " --prompt default_correct --provider ollama --model test-model \
  --base-url "http://127.0.0.1:$chat_port/v1" --stats >"$work/out" 2>"$work/err" || fail "rewrite: $(cat "$work/err")"
stop_chat_server
[ "$(cat "$work/out")" = "Hello, world." ] || fail "rewrite: $(cat "$work/out")"
grep -q -E "^model test-model, [0-9]+ ms, 12 tokens in, 4 tokens out" "$work/err" || fail "rewrite --stats: $(cat "$work/err")"
check_requests "rewrite" "$chat_log" 'len(r) == 1 and r[0]["path"] == "/v1/chat/completions"
  and r[0]["authorization"] is None and r[0]["body"]["model"] == "test-model"
  and r[0]["body"]["messages"][0]["role"] == "system" and r[0]["body"]["messages"][0]["content"].startswith("You correct dictated text.")
  and r[0]["body"]["messages"][1] == {"role": "user", "content": "hello world"}
  and r[0]["body"]["response_format"]["json_schema"]["name"] == "transcription_result"'

start_chat_server "$chat_log" '400 {"error": {"message": "response_format json_schema is not supported"}}' \
  "200 $(chat_reply '<output>Hi there.</output> Anything else?')"
"$orvid" rewrite "hi there" --prompt default_improve --provider ollama --model test-model \
  --base-url "http://127.0.0.1:$chat_port/v1" >"$work/out" 2>"$work/err" || fail "rewrite retry: $(cat "$work/err")"
stop_chat_server
[ "$(cat "$work/out")" = "Hi there." ] || fail "rewrite retry: $(cat "$work/out")"
check_requests "rewrite retry" "$chat_log" 'len(r) == 2 and "response_format" in r[0]["body"]
  and "response_format" not in r[1]["body"] and r[1]["body"]["messages"] == r[0]["body"]["messages"]'

start_chat_server "$chat_log" \
  "200 $(chat_reply '```json
[{"text": "Hi.", "start": 0, "end": 5}, {"text": "Hello.", "start": 0, "end": 5}]
```')"
"$orvid" rewrite "hello" --prompt default_correct --provider ollama --model test-model --alternatives \
  --base-url "http://127.0.0.1:$chat_port/v1" >"$work/out" 2>"$work/err" || fail "rewrite alternatives: $(cat "$work/err")"
stop_chat_server
[ "$(cat "$work/out")" = "$(printf '1. Hi.\n2. Hello.')" ] || fail "rewrite alternatives: $(cat "$work/out")"
check_requests "rewrite alternatives" "$chat_log" 'len(r) == 1 and "response_format" not in r[0]["body"]
  and r[0]["body"]["messages"][0]["content"].endswith("no explanations, no other text.")'

chat_secret="sk-rewrite-$$-S3cr3t"
printf '%s' "$chat_secret" | "$orvid" credentials --store file set provider.openai-compatible.api-key >/dev/null 2>"$work/err" \
  || fail "rewrite key: $(cat "$work/err")"
start_chat_server "$chat_log" "401 {\"error\": \"invalid key: Authorization: Bearer $chat_secret\"}"
ORVID_CREDENTIAL_STORE=file expect_error "rewrite rejected key" rewrite "hello" --prompt default_correct \
  --provider openai-compatible --model m --base-url "http://127.0.0.1:$chat_port/v1"
stop_chat_server
grep -q -e "$chat_secret" "$work/out" "$work/err" && fail "rewrite printed the API key: $(cat "$work/err")"
check_requests "rewrite key" "$chat_log" "len(r) == 1 and r[0]['authorization'] == 'Bearer $chat_secret'"

expect_error "rewrite unknown prompt" rewrite "hello" --prompt no-such-prompt --provider ollama --model m
expect_error "rewrite unknown provider" rewrite "hello" --prompt default_correct --provider no-such-provider --model m
expect_error "rewrite without model" rewrite "hello" --prompt default_correct --provider ollama
expect_error "rewrite blank text" rewrite "   " --prompt default_correct --provider ollama --model m
expect_error "rewrite without address" rewrite "hello" --prompt default_correct --provider openai-compatible --model m
expect_error "rewrite bad address" rewrite "hello" --prompt default_correct --provider ollama --model m --base-url "no url"
ORVID_CREDENTIAL_STORE=file expect_error "rewrite without key" rewrite "hello" --prompt default_correct --provider openai \
  --model m
expect_error "rewrite server down" rewrite "hello" --prompt default_correct --provider ollama --model m \
  --base-url "http://127.0.0.1:9/v1"
expect_error "rewrite without prompt" rewrite "hello" --provider ollama --model m

export ORVID_CONFIG_HOME="$saved_config_home"

# ---------------------------------------------------------------------------
# Voice automation (orvid automate) and the driver's status (orvid cua status).
# A loopback speech service (killed by the trap, bounded by timeout) answers the
# transcription and the rewrite; stand-in cua-driver scripts answer "--version",
# "doctor --json" and "run --json" (echoing the instruction they are given). The
# API key goes to the owner-only file store with the session bus hidden.
# ---------------------------------------------------------------------------
saved_config_home="$ORVID_CONFIG_HOME"
saved_bus="${DBUS_SESSION_BUS_ADDRESS-}"
unset DBUS_SESSION_BUS_ADDRESS
export ORVID_CONFIG_HOME="$work/automate-config" ORVID_CREDENTIAL_STORE=file
mkdir -p "$ORVID_CONFIG_HOME"
# The user's settings apply to the cleanup: autocorrect capitalises and tidies spaces.
printf '{"autocorrectEnabled": true}' >"$ORVID_CONFIG_HOME/settings.json"
automate_key="sk-automate-$$-K3y"
automate_log="$work/automate-requests.log"
: >"$automate_log"
cat >"$work/automate_service.py" <<'PY'
import json, sys
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

fifo, log, key = sys.argv[1], sys.argv[2], sys.argv[3]

class Handler(BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def reply(self, status, body, content_type="application/json"):
        data = body.encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        with open(log, "a") as out:
            out.write(self.path + "\n")
        if self.path.startswith("/broken/"):
            return self.reply(500, "upstream failed\nAuthorization: Bearer " + key, "text/plain")
        if self.path.endswith("/chat/completions"):
            spoken = json.loads(body)["messages"][-1]["content"]
            content = json.dumps({"transcription": "In Finder: " + spoken})
            return self.reply(200, json.dumps({"choices": [{"message": {"role": "assistant", "content": content}}]}))
        if self.headers.get("Authorization", "") != "Bearer " + key:
            return self.reply(401, json.dumps({"error": "rejected"}))
        if self.path.endswith("/audio/transcriptions"):
            german = b'name="language"\r\n\r\nde\r\n' in body
            answer = {"text": " open the Downloads folder , please" + (" auf Deutsch" if german else "") + " "}
            if self.path.startswith("/unsure/"):
                answer["confidence"] = 0.42
            return self.reply(200, json.dumps(answer))
        self.reply(404, "{}")

server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
with open(fifo, "w") as out:
    out.write("%d\n" % server.server_address[1])
server.serve_forever()
PY
rm -f "$work/automate-fifo"
mkfifo "$work/automate-fifo"
exec 3<>"$work/automate-fifo"
timeout 120 /usr/bin/python3 "$work/automate_service.py" "$work/automate-fifo" "$automate_log" "$automate_key" &
automate_server=$!
trap 'kill "$automate_server" 2>/dev/null; rm -rf "$work"' EXIT
automate_port=""
read -r -t 20 -u 3 automate_port
exec 3<&-
[ -n "$automate_port" ] || fail "the automation test service did not start"
service="http://127.0.0.1:$automate_port"

# Stand-ins for cua-driver. "ready" runs an instruction by echoing it with its time
# limit, and prints a secret on stderr that must come back redacted; "failing"
# exits 3; "slow" outlives a short time limit; "absent" reports itself not
# installed; "plain" has no doctor report and answers "status" in words.
make_driver() {
  local name="$1" run="$2" doctor="$3"
  cat >"$work/driver-$name" <<SH
#!/bin/bash
case "\$1 \${2:-}" in
  "--version ") echo "cua-driver 9.9.9-$name" ;;
  "doctor --json") $doctor ;;
  "status ") echo "Version: 1.2.3-beta, daemon running" ;;
  "run --json") $run ;;
  *) echo "unexpected arguments: \$*" >&2; exit 64 ;;
esac
SH
  chmod +x "$work/driver-$name"
}
ready_doctor="echo '{\"version\": \"9.9.9-test\", \"ready\": true, \"daemon\": \"running\", \"accessibility\": \"granted\", \"screen_recording\": \"granted\"}'"
make_driver ready "/usr/bin/python3 -c 'import json, sys; r = json.load(sys.stdin); print(\"ran: \" + r[\"instruction\"] + \" within \" + str(r[\"timeoutSeconds\"]) + \" s\")'; echo 'api_key=sk-driver-secret-123' >&2" "$ready_doctor"
make_driver failing "cat >/dev/null; echo 'could not find Finder'; exit 3" "$ready_doctor"
make_driver slow "exec sleep 30" "$ready_doctor"
make_driver absent "exit 0" "echo '{\"installed\": false}'"
make_driver plain "exit 0" "echo 'no such command: doctor'"

expect_ok "cua status" "^readiness: ready$" cua status --executable "$work/driver-ready"
grep -q -x "version: 9.9.9-test" "$work/out" || fail "cua status version: $(cat "$work/out")"
grep -q -x "binary path: $work/driver-ready" "$work/out" || fail "cua status path: $(cat "$work/out")"
grep -q -x "accessibility permission: granted" "$work/out" || fail "cua status permission: $(cat "$work/out")"
expect_ok "cua status --json" '"readiness":"ready"' cua status --executable "$work/driver-ready" --json
expect_ok "cua status in words" "^readiness: daemonRunning$" cua status --executable "$work/driver-plain"
grep -q -x "version: 1.2.3-beta" "$work/out" || fail "cua status in words version: $(cat "$work/out")"
expect_ok "cua status not installed" "^readiness: notInstalled$" cua status --executable "$work/driver-absent"
expect_error "cua status bad executable" cua status --executable "$work/no-such-driver"

request=(automate "$work/ok.wav" --provider openai-compatible)
ready=(--executable "$work/driver-ready")

expect_error "automate without key" "${request[@]}" --base-url "$service/v1" "${ready[@]}" --yes
grep -q "orvid credentials set provider.openai-compatible.api-key" "$work/err" || fail "automate key advice: $(cat "$work/err")"
printf '%s' "$automate_key" | "$orvid" credentials set provider.openai-compatible.api-key >/dev/null 2>"$work/err" \
  || fail "automate key: $(cat "$work/err")"

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

expect_ok "automate rewrite" "^Model: test-model via ollama$" "${request[@]}" --base-url "$service/unsure/v1" \
  "${ready[@]}" --yes --rewrite-prompt default_correct --ai-provider ollama --ai-model test-model --ai-base-url "$service/v1"
grep -q -x "instruction: In Finder: Open the Downloads folder, please" "$work/out" \
  || fail "automate rewrite instruction: $(cat "$work/out")"
grep -q -E "^rewrite time: [0-9]+ ms$" "$work/out" || fail "automate rewrite time: $(cat "$work/out")"
grep -q -x "confidence: 42%" "$work/out" || fail "automate confidence: $(cat "$work/out")"
grep -q -x "Low transcription confidence: 42% is below the 55% threshold. Confirm only if the request is correct." \
  "$work/out" || fail "automate low-confidence warning: $(cat "$work/out")"
grep -q -x "  ran: In Finder: Open the Downloads folder, please within 300 s" "$work/out" \
  || fail "automate rewrite run: $(cat "$work/out")"

# Without --yes and without any terminal (a new session, standard input not a
# terminal) it refuses before anything is sent or run.
requests_before=$(wc -l <"$automate_log")
setsid -w "$orvid" "${request[@]}" --base-url "$service/v1" "${ready[@]}" </dev/null >"$work/out" 2>"$work/err"
status=$?
[ "$status" -eq 1 ] || fail "automate without terminal: exit status $status"
[ "$(cat "$work/err")" = "orvid: no terminal to confirm on: run orvid automate in a terminal or pass --yes" ] \
  || fail "automate without terminal: $(cat "$work/err")"
[ -s "$work/out" ] && fail "automate without terminal printed: $(cat "$work/out")"
[ "$(wc -l <"$automate_log")" -eq "$requests_before" ] || fail "automate without terminal sent a request"

# On a terminal the answer decides: "y" runs the instruction, anything else does not.
answer_on_terminal() {
  timeout 60 /usr/bin/python3 - "$1" "$orvid" "${request[@]}" --base-url "$service/v1" "${ready[@]}" <<'PY'
import os, subprocess, sys
answer, command = sys.argv[1], sys.argv[2:]
master, terminal = os.openpty()
os.write(master, answer.encode() + b"\n")
child = subprocess.run(command, stdin=terminal, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
sys.stdout.write(child.stdout.decode())
sys.stderr.write(child.stderr.decode())
sys.exit(child.returncode)
PY
}
answer_on_terminal " Y" >"$work/out" 2>"$work/err" || fail "automate confirmed on a terminal: $(cat "$work/err")"
[ "$(cat "$work/err")" = "Run this instruction with cua-driver? [y/N] " ] || fail "automate question: $(cat "$work/err")"
grep -q -x "  ran: Open the Downloads folder, please within 300 s" "$work/out" || fail "automate confirmed: $(cat "$work/out")"
answer_on_terminal "no" >"$work/out" 2>"$work/err"
status=$?
[ "$status" -eq 1 ] || fail "automate declined: exit status $status"
grep -q -x "orvid: not confirmed; nothing was run" "$work/err" || fail "automate declined: $(cat "$work/err")"
grep -q "ran:" "$work/out" && fail "automate declined but ran: $(cat "$work/out")"
grep -q -x "confirm: Open the Downloads folder, please" "$work/out" || fail "automate declined proposal: $(cat "$work/out")"

# Failures: one redacted line and a non-zero exit.
expect_error "automate server error" "${request[@]}" --base-url "$service/broken/v1" "${ready[@]}" --yes
grep -q -x "orvid: ASR request failed with HTTP 500: upstream failed Authorization: Bearer \[REDACTED\]" "$work/err" \
  || fail "automate server error message: $(cat "$work/err")"
grep -q -e "$automate_key" "$work/err" && fail "automate printed the key: $(cat "$work/err")"
expect_error "automate driver not installed" "${request[@]}" --base-url "$service/v1" \
  --executable "$work/driver-absent" --yes
grep -q "CUA Driver is not ready (notInstalled)" "$work/err" || fail "automate driver not installed: $(cat "$work/err")"
"$orvid" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-failing" --yes >"$work/out" 2>"$work/err"
status=$?
[ "$status" -eq 1 ] || fail "automate failing driver: exit status $status"
[ "$(cat "$work/err")" = "orvid: cua-driver exited with status 3" ] || fail "automate failing driver: $(cat "$work/err")"
grep -q -x "  could not find Finder" "$work/out" || fail "automate failing driver output: $(cat "$work/out")"
expect_error "automate time limit" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-slow" \
  --timeout 1 --yes
grep -q -x "orvid: cua-driver did not finish within 1 s and was stopped" "$work/err" \
  || fail "automate time limit: $(cat "$work/err")"
# Stopping the tool while the driver runs ends the driver too (it runs in a
# process group of its own, which the terminal's signals do not reach).
make_driver hanging "echo \$\$ >'$work/hanging.pid'; cat >/dev/null; echo started; exec sleep 60" "$ready_doctor"
rm -f "$work/hanging.pid"
"$orvid" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-hanging" --yes >"$work/out" 2>"$work/err" &
orvid_pid=$!
for _ in $(seq 300); do [ -s "$work/hanging.pid" ] && break; sleep 0.1; done
driver_pid=$(cat "$work/hanging.pid" 2>/dev/null)
if [ -z "$driver_pid" ]; then
  kill "$orvid_pid" 2>/dev/null
  fail "automate interrupted: the driver did not start: $(cat "$work/err")"
else
  kill -TERM "$orvid_pid"
  timeout 20 tail --pid="$orvid_pid" -f /dev/null || kill -KILL "$orvid_pid"
  wait "$orvid_pid"
  status=$?
  [ "$status" -eq 143 ] || fail "automate interrupted: exit status $status: $(cat "$work/err")"
  [ "$(cat "$work/err")" = "orvid: interrupted" ] || fail "automate interrupted: $(cat "$work/err")"
  grep -q -x "exit code: 15" "$work/out" || fail "automate interrupted output: $(cat "$work/out")"
  grep -q -x "  started" "$work/out" || fail "automate interrupted output: $(cat "$work/out")"
  kill -0 "$driver_pid" 2>/dev/null && { kill -KILL "$driver_pid"; fail "automate interrupted: the driver is still running"; }
fi
# A driver that ignores the terminate signal, with a helper in a session of its own:
# a second signal 0.2 s after the first still leaves no process behind.
make_driver stubborn "trap '' TERM; echo \$\$ >'$work/stubborn.pid'; setsid sleep 60 & echo \$! >'$work/helper.pid'; cat >/dev/null; echo started; exec sleep 60" "$ready_doctor"
rm -f "$work/stubborn.pid" "$work/helper.pid"
"$orvid" "${request[@]}" --base-url "$service/v1" --executable "$work/driver-stubborn" --yes >"$work/out" 2>"$work/err" &
orvid_pid=$!
for _ in $(seq 300); do [ -s "$work/helper.pid" ] && break; sleep 0.1; done
driver_pid=$(cat "$work/stubborn.pid" 2>/dev/null)
helper_pid=$(cat "$work/helper.pid" 2>/dev/null)
if [ -z "$driver_pid" ] || [ -z "$helper_pid" ]; then
  kill -KILL "$orvid_pid" 2>/dev/null
  fail "automate twice interrupted: the driver did not start: $(cat "$work/err")"
else
  kill -TERM "$orvid_pid"
  sleep 0.2
  kill -TERM "$orvid_pid"
  timeout 20 tail --pid="$orvid_pid" -f /dev/null || kill -KILL "$orvid_pid"
  wait "$orvid_pid"
  status=$?
  [ "$status" -eq 143 ] || fail "automate twice interrupted: exit status $status: $(cat "$work/err")"
  for pid in "$driver_pid" "$helper_pid"; do
    if kill -0 "$pid" 2>/dev/null; then
      kill -KILL "$pid"
      fail "automate twice interrupted: process $pid outlived the tool"
    fi
  done
fi
expect_error "automate bad executable" "${request[@]}" --base-url "$service/v1" --executable "$work/no-such-driver" --yes
expect_error "automate missing file" automate "$work/absent.wav" --provider openai-compatible --base-url "$service/v1" --yes
expect_error "automate not a WAV" automate "$work/text.wav" --provider openai-compatible --base-url "$service/v1" --yes
expect_error "automate unknown provider" automate "$work/ok.wav" --provider no-such-service --yes
expect_error "automate on-device provider" automate "$work/ok.wav" --provider local.whispercpp-tiny "${ready[@]}" --yes
expect_error "automate prompt without AI provider" "${request[@]}" --base-url "$service/v1" \
  --rewrite-prompt default_correct --yes
expect_error "automate rewrite without model" "${request[@]}" --base-url "$service/v1" "${ready[@]}" --yes \
  --rewrite-prompt default_correct --ai-provider ollama
expect_error "automate unknown rewrite prompt" "${request[@]}" --base-url "$service/v1" "${ready[@]}" --yes \
  --rewrite-prompt no-such-prompt --ai-provider ollama --ai-model m
expect_error "automate zero timeout" "${request[@]}" --base-url "$service/v1" --timeout 0 --yes
kill "$automate_server" 2>/dev/null
wait "$automate_server" 2>/dev/null
expect_error "automate service down" "${request[@]}" --base-url "$service/v1" "${ready[@]}" --yes
grep -q -e "$automate_key" "$work/out" "$work/err" && fail "automate printed the key"
export ORVID_CONFIG_HOME="$saved_config_home"
unset ORVID_CREDENTIAL_STORE
[ -n "$saved_bus" ] && export DBUS_SESSION_BUS_ADDRESS="$saved_bus"

if [ "$failures" -ne 0 ]; then echo "$failures failure(s)"; exit 1; fi
echo "all CLI checks passed"
