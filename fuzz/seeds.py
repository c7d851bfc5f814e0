#!/usr/bin/env python3
"""Writes inputs for the fuzz targets to start from: fuzz/seeds.py TOOL FOLDER

TOOL is the command-line tool; what it makes of speech-like samples becomes packets, frames and
files. The rest is random bytes, of which the targets make steps."""
import math
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

tool, folder = sys.argv[1], pathlib.Path(sys.argv[2])
rng = random.Random(1)
BITS = [0, 16, 64, 80, 118]  # what kind a step of the serial target is, by its index


def put(target, name, data):
    (folder / target).mkdir(parents=True, exist_ok=True)
    (folder / target / name).write_bytes(data)


def speech(frames):
    """Pulses through a resonance, with pauses."""
    out, y1, y2 = [], 0.0, 0.0
    for n in range(80 * frames):
        loud = max(0.0, math.sin(n / 1500))
        x = 2500 * loud * (n % (60 + n // 900) == 0) + rng.gauss(0, 3 + 40 * loud)
        y = x + 1.7 * y1 - 0.85 * y2
        y1, y2 = y, y1
        out.append(max(-32768, min(32767, int(y))))
    return out


def wav(tag, bits, data, rate=8000, channels=1, claim=None):
    block = channels * bits // 8
    head = struct.pack("<HHIIHH", tag, channels, rate, rate * block, block, bits)
    body = b"WAVEfmt " + struct.pack("<I", len(head)) + head
    body += b"data" + struct.pack("<I", len(data) if claim is None else claim) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


def coded(samples, *options):
    """The serial frames that the tool makes of samples."""
    with tempfile.TemporaryDirectory() as scratch:
        source, target = scratch + "/in.wav", scratch + "/out.bit"
        pathlib.Path(source).write_bytes(wav(1, 16, struct.pack(f"<{len(samples)}h", *samples)))
        subprocess.run([tool, "encode", *options, source, target], check=True)
        data = pathlib.Path(target).read_bytes()
    frames = []
    while data:
        size = 4 + 2 * struct.unpack_from("<H", data, 2)[0]
        frames.append(data[:size])
        data = data[size:]
    return frames


def packed(frame):
    """The bits of a serial frame, eight to a byte."""
    words = struct.unpack_from(f"<{len(frame) // 2 - 2}H", frame, 4)
    words += (0x7F,) * (-len(words) % 8)
    return bytes(sum((words[i + k] == 0x81) << (7 - k) for k in range(8))
                 for i in range(0, len(words), 8))


def codec_seeds():
    for rate in ("6.4", "8", "11.8"):
        frames = coded(speech(60), "--rate", rate, "--annexb")
        put("streams", "speech-" + rate, b"\x01" + b"".join(frames[20:28]))
        put("serial", "speech-" + rate, b"".join(
            bytes([BITS.index(len(f) // 2 - 2), 0]) + packed(f) for f in frames[:40]))
        if rate == "11.8":
            continue
        kinds = {0: 0, 2: 1, 8: 2, 10: 3}
        put("packets", "speech-" + rate, b"".join(
            bytes([kinds[len(packed(f))]]) + packed(f) for f in frames[:40]))
    put("streams", "packed", b"\x00" + rng.randbytes(33))


def sound_seeds():
    for tag, bits in ((1, 8), (1, 16), (1, 24), (3, 32), (3, 64), (6, 8), (7, 8)):
        put("wav", f"tag{tag}-{bits}", bytes([bits]) + wav(tag, bits, rng.randbytes(bits * 25)))
    put("wav", "claims-too-much", b"\x01" + wav(1, 16, rng.randbytes(90), claim=0x7FFFFFFE))
    put("wav", "stereo", b"\x01" + wav(1, 16, rng.randbytes(90), channels=2))
    info = struct.pack(">HH", 4096, 4096) + bytes(6)
    info += (8000 << 44 | 15 << 36 | (1 << 36) - 1).to_bytes(8, "big") + bytes(16)
    put("wav", "claims-a-year", b"\x01fLaC\x80\x00\x00\x22" + info + b"\xff\xf8" + bytes(20))


def random_seeds():
    for i in range(12):
        put("packets", f"random-{i}", rng.randbytes(30 * (1 + i)))
        put("serial", f"random-{i}", rng.randbytes(40 * (1 + i)))
        put("encoder", f"random-{i}", rng.randbytes(20 * (1 + i)))
        put("element", f"random-{i}", rng.randbytes(10 * (1 + i)))
    for annexb in (0, 1):
        for rate in (0, 1, 2):
            own = [x // 64 & 255 for x in speech(12)]
            steps = b"".join(bytes([rate, 0, 0, 0, 64]) + bytes((v + 128) % 256 for v in own[f:f + 80])
                             for f in range(0, 960, 80))
            put("encoder", f"speech-{annexb}{rate}", bytes([annexb]) + steps)


codec_seeds()
sound_seeds()
random_seeds()
