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


def udp(payload, v6=False):
    """An IP packet."""
    datagram = struct.pack(">HHHH", 4000, 5000, 8 + len(payload), 0) + payload
    if v6:
        options = bytes([17, 0, 1, 4, 0, 0, 0, 0])
        return (struct.pack(">IHBB", 6 << 28, 8 + len(datagram), 0, 64) + bytes(15) + b"\1" +
                bytes(15) + b"\2" + options + datagram)
    return struct.pack(">BBHIBBH", 0x45, 0, 20 + len(datagram), 0, 64, 17, 0) + bytes(
        [10, 0, 0, 1, 10, 0, 0, 2]) + datagram


def rtp(number, payload):
    """With a contributing source, a header extension and padding by turns."""
    head = 0x80 | (1 if number % 3 == 1 else 0) | (0x10 if number % 5 == 2 else 0)
    extra = bytes(4) * (head & 1) + (bytes([0, 0, 0, 1]) + bytes(4)) * (head >> 4 & 1)
    pad = b"\0\0\3" if number % 7 == 3 else b""
    return struct.pack(">BBHII", head | (0x20 if pad else 0), 18, number, 160 * number, 9) + (
        extra + payload + pad)


def capture_seeds():
    links = {"ethernet": (1, bytes(12) + b"\x08\0"), "vlan": (1, bytes(12) + b"\x81\0\0\1\x08\0"),
             "v6": (1, bytes(12) + b"\x86\xdd"), "cooked": (113, bytes(14) + b"\x08\0"),
             "cooked2": (276, b"\x08\0" + bytes(18)), "raw": (101, b"")}
    for name, (link, front) in links.items():
        file = struct.pack("<IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, link)
        for i in range(6):
            data = front + udp(rtp(i + i // 4, rng.randbytes(20 if i != 3 else 12)), name == "v6")
            file += struct.pack("<IIII", 5, 20000 * i, len(data), len(data)) + data
        put("capture", name, b"\x01" + file)
    blocks = [struct.pack("<III", 0x0A0D0D0A, 28, 0x1A2B3C4D) + struct.pack("<HHqI", 1, 0, -1, 28),
              struct.pack("<IIHHII", 1, 20, 1, 0, 0, 20)]
    for i in range(5):
        data = bytes(12) + b"\x08\0" + udp(rtp(i, rng.randbytes(20)))
        size = 32 + (len(data) + 3) // 4 * 4
        blocks.append(struct.pack("<IIIIIII", 6, size, 0, 0, 20000 * i, len(data), len(data)) +
                      data + bytes(-len(data) % 4) + struct.pack("<I", size))
    put("capture", "pcapng", b"\x01" + b"".join(blocks))
    for i in range(8):
        put("capture", f"packets-{i}", bytes([2 + 128 * (i % 2)]) + rng.randbytes(60 * (1 + i)))


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
capture_seeds()
random_seeds()
