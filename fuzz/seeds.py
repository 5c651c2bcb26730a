#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets: fuzz/seeds.py OUT_DIR

OUT_DIR/wav: small WAV files of every sample format the engine reads (and a few it refuses);
OUT_DIR/dispatcher: host sessions in the dispatcher target's byte language;
OUT_DIR/system: the example descriptions and those of the documentation;
and in each, the inputs that once crashed the target (fuzz/regressions/).
"""
import math
import os
import re
import shutil
import struct
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def chunk(name, payload):
    pad = b"\0" if len(payload) % 2 else b""
    return name + struct.pack("<I", len(payload)) + payload + pad


def wav(tag, channels, bits, samples, rate=48000, extensible=False, before=b"", between=b""):
    frame = channels * bits // 8
    fmt = struct.pack("<HHIIHH", 65534 if extensible else tag, channels, rate, rate * frame, frame, bits)
    if extensible:
        fmt += struct.pack("<HHI", 22, bits, 0) + struct.pack("<H", tag) + b"\0\0\0\0\x10\0\x80\0\0\xaa\0\x38\x9b\x71"
    body = before + chunk(b"fmt ", fmt) + between + chunk(b"data", samples)
    return b"RIFF" + struct.pack("<I", 4 + len(body)) + b"WAVE" + body


def tone(n, channels):
    return [0.5 * math.sin(0.3 * i + c) for i in range(n) for c in range(channels)]


def encode(tag, bits, values):
    if tag == 3:
        return b"".join(struct.pack("<f" if bits == 32 else "<d", v) for v in values)
    if bits == 8:
        return bytes(int(128 + 127 * v) for v in values)
    scale = 2 ** (bits - 1) - 1
    return b"".join(int(v * scale).to_bytes(bits // 8, "little", signed=True) for v in values)


def wav_seeds(out):
    os.makedirs(out, exist_ok=True)
    for tag, bits in [(1, 8), (1, 16), (1, 24), (1, 32), (3, 32), (3, 64), (1, 12), (2, 16)]:
        for channels in (1, 2):
            data = encode(tag if tag != 2 else 1, bits if bits != 12 else 16, tone(16, channels))
            with open(os.path.join(out, "pcm%d-%dbit-%dch.wav" % (tag, bits, channels)), "wb") as f:
                f.write(wav(tag, channels, bits, data))
    with open(os.path.join(out, "extensible-float.wav"), "wb") as f:
        f.write(wav(3, 2, 32, encode(3, 32, tone(8, 2)), extensible=True))
    with open(os.path.join(out, "chunks.wav"), "wb") as f:
        f.write(wav(1, 1, 16, encode(1, 16, tone(8, 1)), before=chunk(b"JUNK", b"abc"),
                    between=chunk(b"LIST", b"INFOx")))
    impulse = os.path.join(ROOT, "tests", "readers", "impulse16.wav")
    if os.path.exists(impulse):
        shutil.copy(impulse, out)


class Session:
    """The dispatcher target's byte language (fuzz/dispatcher_fuzz.cpp)."""

    def __init__(self):
        self.b = bytearray()

    def call(self, opcode, index=0, value=0, text=b"", extra=b""):
        self.b += bytes([0, opcode, 0, index & 0xFF]) + struct.pack("<h", value)
        self.b += bytes([0]) + struct.pack("<H", 0) + bytes([len(text)]) + text + extra
        return self

    def rate(self, which):  # 0..6: 22050 .. 192000
        return self.call(10, extra=bytes([which]))

    def block_size(self, n):
        return self.call(11, extra=bytes([0]) + struct.pack("<H", n - 1))

    def mains(self, on):
        self.b += bytes([7, 1 if on else 0])
        return self

    def parameter(self, index, value):
        self.b += bytes([2, index + 1, 0]) + struct.pack("<H", int(value * 65535))
        return self

    def process(self, frames, shape=0):
        self.b += bytes([4]) + struct.pack("<H", frames) + bytes([shape, 0]) + struct.pack("<H", 30000)
        return self


def dispatcher_seeds(out):
    os.makedirs(out, exist_ok=True)
    sessions = {
        "start-and-play": Session().call(0).rate(2).block_size(256).mains(True).process(256).process(100),
        "knobs": Session().call(0).rate(1).block_size(64).mains(True).parameter(0, 1.0).process(64)
        .parameter(5, 1.0).process(64).parameter(3, 1.0).process(64).parameter(7, 1.0).process(64, 1),
        "rate-change": Session().call(0).rate(2).block_size(128).mains(True).process(128).mains(False)
        .rate(6).mains(True).process(128, 2),
        "texts": Session().call(0).call(8, 3, text=b"").call(7, 1).call(45, text=b"x").call(47)
        .call(51, text=b"receiveVstEvents").call(58).call(13).call(19).call(69),
        "arrangement": Session().call(0).call(42, extra=bytes([1, 1])).rate(3).block_size(32).mains(True)
        .process(32, 4).call(42, extra=bytes([2, 2])).process(31, 16),
    }
    for name, session in sessions.items():
        with open(os.path.join(out, name), "wb") as f:
            f.write(bytes(session.b))


def system_seeds(out):
    """The examples, and every description shown in the documentation (the tube-stage circuits of
    resources/ take seconds a run: too slow to fuzz from)."""
    os.makedirs(out, exist_ok=True)
    for name in sorted(os.listdir(os.path.join(ROOT, "examples"))):
        if name.endswith(".xml"):
            shutil.copy(os.path.join(ROOT, "examples", name), out)
    for doc in ("system-description.md", "circuits.md"):
        with open(os.path.join(ROOT, "docs", doc)) as f:
            blocks = re.findall(r"```xml\n(.*?)```", f.read(), re.S)
        for i, block in enumerate(blocks):
            if "<System>" in block:
                with open(os.path.join(out, "%s-%d.xml" % (doc[:-3], i)), "w") as f:
                    f.write(block)


def regressions(out, target):
    """Inputs that once crashed a target (fuzz/regressions/TARGET): every run replays them."""
    folder = os.path.join(ROOT, "fuzz", "regressions", target)
    for name in sorted(os.listdir(folder)) if os.path.isdir(folder) else []:
        shutil.copy(os.path.join(folder, name), out)


if __name__ == "__main__":
    base = sys.argv[1]
    wav_seeds(os.path.join(base, "wav"))
    dispatcher_seeds(os.path.join(base, "dispatcher"))
    system_seeds(os.path.join(base, "system"))
    for target in ("wav", "dispatcher", "system"):
        regressions(os.path.join(base, target), target)
