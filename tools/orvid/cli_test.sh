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

if [ "$failures" -ne 0 ]; then echo "$failures failure(s)"; exit 1; fi
echo "all CLI checks passed"
