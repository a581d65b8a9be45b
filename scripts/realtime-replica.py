#!/usr/bin/python3
"""A stand-in for the real-time transcription services on 127.0.0.1, over TLS.

--service picks whose documented exchange it follows (OpenAI by default):
  openai          announces the session, acknowledges the session update, takes
                  base64 PCM16 at 24 kHz in "input_audio_buffer.append" events and
                  answers "input_audio_buffer.commit" with deltas and a completed
                  transcript.
  soniox          takes a JSON start message, raw PCM16 at 16 kHz in binary frames,
                  and answers the empty binary frame with tentative and final tokens
                  and "finished".
  deepgram        takes every setting in the URL's query and raw audio, and answers
                  {"type":"CloseStream"} with interim and final "Results", the
                  metadata and a normal close.
  stepfun         confirms "session.update" with "session.updated", takes base64
                  audio events and answers the commit with deltas and a completed
                  transcript.
  aliyun-bailian  at /api-ws/v1/inference the task protocol (run-task,
                  task-started, binary audio, finish-task, result-generated,
                  task-finished); at /api-ws/v1/realtime the Qwen event protocol
                  (session.update, session.updated, base64 audio, session.finish,
                  transcription text and completed events, session.finished).
It cannot understand speech: the transcript says how much audio arrived, so a
client that sends audio at the wrong rate gets a visibly wrong duration back.

It makes a throwaway certificate for 127.0.0.1 with the openssl tool and prints one
line when ready, then serves until interrupted:
    ready BASE_URL ca=CERT_DIR/cert.pem
Point a client at that base URL and trust the certificate (SSL_CERT_FILE=...).

usage: realtime-replica.py [--service NAME] [--port N] [--cert-dir DIR] [--fault NAME]
faults: reject (401 whose body echoes the key), close (closes with 1011 after the
first partial), stall (never sends the final event, nor, where the service has
one, the acknowledgement of the start)
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


def transcript_for(audio_bytes, sample_rate=SAMPLE_RATE):
    seconds = audio_bytes / 2 / sample_rate
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


async def soniox(socket, fault):
    start = json.loads(await socket.recv())
    if start.get("audio_format") != "pcm_s16le" or start.get("num_channels") != 1:
        await socket.close(code=1003, reason="unsupported audio")
        return
    rate, audio_bytes = start.get("sample_rate", 16000), 0
    async for message in socket:
        if isinstance(message, str):
            continue
        if message:
            audio_bytes += len(message)
            continue
        words = transcript_for(audio_bytes, rate).split(" ")
        tentative = [{"text": (" " if i else "") + w, "is_final": False, "language": "en"} for i, w in enumerate(words)]
        await socket.send(json.dumps({"tokens": tentative[:2], "total_audio_proc_ms": 100}))
        if fault == "close":
            await socket.close(code=1011, reason="replica fault")
            return
        final = [dict(token, is_final=True) for token in tentative]
        await socket.send(json.dumps({"tokens": final + [{"text": "<fin>", "is_final": True}]}))
        if fault != "stall":
            await socket.send(json.dumps({"tokens": [], "finished": True}))


async def deepgram(socket, fault):
    audio_bytes = 0
    async for message in socket:
        if isinstance(message, bytes):
            audio_bytes += len(message)
            continue
        if json.loads(message).get("type") != "CloseStream":
            continue
        text = transcript_for(audio_bytes, 16000)

        def results(transcript, final):
            return json.dumps({"type": "Results", "is_final": final, "speech_final": final,
                               "channel": {"alternatives": [{"transcript": transcript, "confidence": 0.9}]}})

        await socket.send(results(" ".join(text.split(" ")[:2]), False))
        if fault == "close":
            await socket.close(code=1011, reason="replica fault")
            return
        if fault == "stall":
            continue
        await socket.send(results(text, True))
        await socket.send(json.dumps({"type": "Metadata", "request_id": "req_replica", "channels": 1}))
        await socket.close(code=1000)
        return


async def stepfun(socket, fault):
    await socket.send(json.dumps({"type": "session.created", "session": {"id": "sess_replica"}}))
    audio_bytes = 0
    async for message in socket:
        event = json.loads(message)
        kind = event.get("type")
        if kind == "session.update" and fault != "stall":
            await socket.send(json.dumps({"type": "session.updated", "event_id": "event_replica"}))
        elif kind == "input_audio_buffer.append":
            audio_bytes += len(base64.b64decode(event["audio"], validate=True))
        elif kind == "input_audio_buffer.commit":
            text = transcript_for(audio_bytes, 16000)
            await socket.send(json.dumps({"type": "conversation.item.input_audio_transcription.delta",
                                          "delta": " ".join(text.split(" ")[:2])}))
            if fault == "close":
                await socket.close(code=1011, reason="replica fault")
                return
            await socket.send(json.dumps({"type": "conversation.item.input_audio_transcription.completed",
                                          "transcript": text}))


async def aliyun_fun(socket, fault):
    audio_bytes, rate, task = 0, 16000, ""
    async for message in socket:
        if isinstance(message, bytes):
            audio_bytes += len(message)
            continue
        command = json.loads(message)
        header = command.get("header", {})
        task = header.get("task_id", task)

        def event(name, payload=None):
            return json.dumps({"header": {"task_id": task, "event": name, "attributes": {}}, "payload": payload or {}})

        if header.get("action") == "run-task":
            rate = command["payload"]["parameters"].get("sample_rate", 16000)
            if fault != "stall":
                await socket.send(event("task-started"))
        elif header.get("action") == "finish-task":
            text = transcript_for(audio_bytes, rate)
            for words, end in ((" ".join(text.split(" ")[:2]), False), (text, True)):
                await socket.send(event("result-generated",
                                        {"output": {"sentence": {"text": words, "sentence_end": end}}}))
                if fault == "close":
                    await socket.close(code=1011, reason="replica fault")
                    return
            await socket.send(event("task-finished"))


async def aliyun_qwen(socket, fault):
    await socket.send(json.dumps({"type": "session.created", "session": {"id": "sess_replica"}}))
    audio_bytes, rate = 0, 16000
    async for message in socket:
        event = json.loads(message)
        kind = event.get("type")
        if kind == "session.update":
            rate = event["session"].get("sample_rate", 16000)
            if fault != "stall":
                await socket.send(json.dumps({"type": "session.updated"}))
        elif kind == "input_audio_buffer.append":
            audio_bytes += len(base64.b64decode(event["audio"], validate=True))
        elif kind == "session.finish":
            text = transcript_for(audio_bytes, rate)
            await socket.send(json.dumps({"type": "conversation.item.input_audio_transcription.text",
                                          "text": " ".join(text.split(" ")[:2])}))
            if fault == "close":
                await socket.close(code=1011, reason="replica fault")
                return
            await socket.send(json.dumps({"type": "conversation.item.input_audio_transcription.completed",
                                          "transcript": text}))
            await socket.send(json.dumps({"type": "session.finished"}))


# Per service: the base URL path printed, the credential scheme, whether a request
# path is the service's, and the exchange.
SERVICES = {
    "openai": ("https", "/v1", "Bearer ",
               lambda path: path.split("?")[0].rstrip("/").endswith("/realtime") and "intent=transcription" in path),
    "soniox": ("wss", "/transcribe-websocket", "Bearer ", lambda path: path == "/transcribe-websocket"),
    "deepgram": ("https", "/v1", "Token ",
                 lambda path: path.startswith("/v1/listen?") and "encoding=linear16" in path
                 and "sample_rate=16000" in path),
    "stepfun": ("wss", "/v1/realtime/asr/stream", "Bearer ", lambda path: path == "/v1/realtime/asr/stream"),
    "aliyun-bailian": ("https", "/api-ws/v1/realtime", "Bearer ",
                       lambda path: path == "/api-ws/v1/inference" or path.startswith("/api-ws/v1/realtime?model=")),
}


async def serve_dictation(socket, service, fault):
    if service == "openai":
        await dictation(socket, fault)
    elif service == "soniox":
        await soniox(socket, fault)
    elif service == "deepgram":
        await deepgram(socket, fault)
    elif service == "stepfun":
        await stepfun(socket, fault)
    elif socket.path.startswith("/api-ws/v1/inference"):
        await aliyun_fun(socket, fault)
    else:
        await aliyun_qwen(socket, fault)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--service", choices=sorted(SERVICES), default="openai")
    parser.add_argument("--port", type=int, default=8765)
    parser.add_argument("--cert-dir")
    parser.add_argument("--fault", choices=["reject", "close", "stall"])
    options = parser.parse_args()
    folder = options.cert_dir or tempfile.mkdtemp(prefix="orvid-replica-")
    os.makedirs(folder, exist_ok=True)
    cert, key = make_certificate(folder)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)

    scheme, base_path, credential_scheme, is_service_path = SERVICES[options.service]

    async def check_request(path, headers):
        authorization = headers.get("Authorization", "")
        if options.fault == "reject" or not authorization.startswith(credential_scheme):
            key = authorization[len(credential_scheme):]
            body = json.dumps({"error": {"message": f"Incorrect API key provided: {key}"}})
            return http.HTTPStatus.UNAUTHORIZED, [("Content-Type", "application/json")], body.encode()
        if not is_service_path(path):
            return http.HTTPStatus.NOT_FOUND, [], b"not found\n"
        return None

    async def handler(socket):
        try:
            await serve_dictation(socket, options.service, options.fault)
        except (websockets.ConnectionClosed, ValueError, KeyError, TypeError):
            pass

    async def serve():
        async with websockets.serve(handler, "127.0.0.1", options.port, ssl=context,
                                    process_request=check_request) as server:
            port = server.sockets[0].getsockname()[1]
            print(f"ready {scheme}://127.0.0.1:{port}{base_path} ca={cert}", flush=True)
            await asyncio.Future()

    try:
        asyncio.run(serve())
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    sys.exit(main())
