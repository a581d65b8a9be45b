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

if [ "$failures" -ne 0 ]; then echo "$failures failure(s)"; exit 1; fi
echo "all CLI checks passed"
