#!/usr/bin/python3
"""A stand-in for OpenAI's real-time transcription service on 127.0.0.1, over TLS.

It follows the service's documented exchange: after the upgrade it announces the
session ("transcription_session.created"), acknowledges the session update, takes
base64 PCM16 audio at 24 kHz in "input_audio_buffer.append" events, and answers
"input_audio_buffer.commit" with transcription deltas and a completed transcript.
It cannot understand speech: the transcript says how much audio arrived, so a
client that sends audio at the wrong rate gets a visibly wrong duration back.

It makes a throwaway certificate for 127.0.0.1 with the openssl tool and prints one
line when ready, then serves until interrupted:
    ready https://127.0.0.1:PORT/v1 ca=CERT_DIR/cert.pem
Point a client at that base URL and trust the certificate (SSL_CERT_FILE=...).

usage: realtime-replica.py [--port N] [--cert-dir DIR] [--fault NAME]
faults: reject (401 whose body echoes the key), close (closes with 1011 after a
delta), stall (never sends the final event)
"""
import argparse
import asyncio
import base64
import http
import json
import os
import ssl
import subprocess
import sys
import tempfile

import websockets

SAMPLE_RATE = 24000


def make_certificate(folder):
    cert, key = os.path.join(folder, "cert.pem"), os.path.join(folder, "key.pem")
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
         "-keyout", key, "-out", cert, "-days", "1", "-subj", "/CN=127.0.0.1",
         "-addext", "subjectAltName=IP:127.0.0.1"],
        check=True, capture_output=True)
    return cert, key


def transcript_for(audio_bytes):
    seconds = audio_bytes / 2 / SAMPLE_RATE
    return f"The replica heard {seconds:.2f} seconds of audio."


async def dictation(socket, fault):
    await socket.send(json.dumps({"type": "transcription_session.created", "session": {"id": "sess_replica"}}))
    audio_bytes = 0
    async for message in socket:
        event = json.loads(message)
        kind = event.get("type")
        if kind == "transcription_session.update":
            await socket.send(json.dumps({"type": "transcription_session.updated", "session": event.get("session")}))
        elif kind == "input_audio_buffer.append":
            audio_bytes += len(base64.b64decode(event["audio"], validate=True))
        elif kind == "input_audio_buffer.commit":
            item = {"item_id": "item_replica", "content_index": 0}
            await socket.send(json.dumps({"type": "input_audio_buffer.committed", **item}))
            words = transcript_for(audio_bytes).split(" ")
            for index in range(len(words)):
                delta = (" " if index else "") + words[index]
                await socket.send(json.dumps(
                    {"type": "conversation.item.input_audio_transcription.delta", "delta": delta, **item}))
                if fault == "close" and index == 1:
                    await socket.close(code=1011, reason="replica fault")
                    return
            if fault == "stall":
                continue
            await socket.send(json.dumps({"type": "conversation.item.input_audio_transcription.completed",
                                          "transcript": transcript_for(audio_bytes), **item}))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=8765)
    parser.add_argument("--cert-dir")
    parser.add_argument("--fault", choices=["reject", "close", "stall"])
    options = parser.parse_args()
    folder = options.cert_dir or tempfile.mkdtemp(prefix="orvid-replica-")
    os.makedirs(folder, exist_ok=True)
    cert, key = make_certificate(folder)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)

    async def check_request(path, headers):
        authorization = headers.get("Authorization", "")
        if options.fault == "reject" or not authorization.startswith("Bearer "):
            body = json.dumps({"error": {"message": f"Incorrect API key provided: {authorization[7:]}"}})
            return http.HTTPStatus.UNAUTHORIZED, [("Content-Type", "application/json")], body.encode()
        if path.split("?")[0].rstrip("/").split("/")[-1] != "realtime" or "intent=transcription" not in path:
            return http.HTTPStatus.NOT_FOUND, [], b"not found\n"
        return None

    async def handler(socket):
        try:
            await dictation(socket, options.fault)
        except (websockets.ConnectionClosed, ValueError, KeyError):
            pass

    async def serve():
        async with websockets.serve(handler, "127.0.0.1", options.port, ssl=context,
                                    process_request=check_request) as server:
            port = server.sockets[0].getsockname()[1]
            print(f"ready https://127.0.0.1:{port}/v1 ca={cert}", flush=True)
            await asyncio.Future()

    try:
        asyncio.run(serve())
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    sys.exit(main())
