#!/usr/bin/python3
"""A call's receiver behind a link that delays and loses packets, by both of its receivers.

links.py TOOL LINK prints the table; TOOL is build/tools/kelg729f, LINK build/bench/link, and
GST_PLUGIN_PATH says where the plug-in is. Time is simulated: a minute of a call takes a second or two.
"""
import concurrent.futures
import struct
import subprocess
import sys

import numpy as np

from coding import ENGLISH, MALE, load
from measure import FRAME, RATE, aligned, bits_of, decode, encode, frame_starts, high_passed
from stoi import stoi

SECONDS = 60
SEEDS = (1, 2, 3)
JITTERS = (0, 20, 40)            # ms, each packet's delay is drawn evenly from below
LINKS = ((0, 1), (5, 1), (5, 2), (5, 3), (10, 1), (10, 2), (10, 3))  # loss in %, packets in a row
NS = 10**9
FRAMES = 2                       # of a packet
SPEECH_BITS, ONE = 80, 0x81


def speech():
    parts = [np.concatenate(load(voice, 60)) for voice in (ENGLISH, MALE)]
    return np.concatenate([part[: SECONDS // 2 * RATE] for part in parts])


def coded(tool, x, annexb):
    return encode(tool, [x], *(["--annexb"] if annexb else []))[0]


def packets(words):
    """(first frame, frames, payload) of each packet: as many frames as fit, a descriptor the last."""
    result, bits, starts = [], bits_of(words), frame_starts(words)
    for pair in range(0, len(bits), FRAMES):
        ongoing = False
        for i in range(pair, min(pair + FRAMES, len(bits))):
            if bits[i]:
                ones = words[starts[i] + 2 : starts[i] + 2 + bits[i]] == ONE
                payload = np.packbits(ones).tobytes()
                if ongoing:
                    first, count, before = result.pop()
                    result.append((first, count + 1, before + payload))
                else:
                    result.append((i, 1, payload))
            ongoing = bits[i] == SPEECH_BITS
    return result


def losses(random, count, loss, burst):
    lost, at = np.zeros(count, bool), 0
    while loss > 0:
        at += random.geometric(loss / (100 - loss) / burst)
        if at >= count:
            break
        lost[at : at + burst] = True
        at += burst
    return lost


def arrivals(random, sent, jitter):
    delays = random.uniform(0, jitter / 1000, len(sent))
    delays[0] = 0
    return np.maximum.accumulate(sent + delays)


def received(link, stream, times, lost, plc):
    """The samples at their times; silence where there are none."""
    data = b""
    for i, (first, _, payload) in enumerate(stream):
        if not lost[i]:
            marker = i == 0 or first > stream[i - 1][0] + stream[i - 1][1]
            rtp = struct.pack(">BBHII", 0x80, 18 | marker << 7, i, first * FRAME, 1)
            data += struct.pack("<QI", int(times[i] * NS), 12 + len(payload)) + rtp + payload
    out = subprocess.run([link, f"plc={plc}"], input=data, stdout=subprocess.PIPE, check=True).stdout
    x, at, begin = np.zeros((SECONDS + 2) * RATE), 0, None
    while at < len(out):
        pts, _, size = struct.unpack_from("<QQI", out, at)
        pcm = np.frombuffer(out, "<i2", size // 2, at + 20)
        begin = pts if begin is None else begin
        to = max(0, round((pts - begin) * RATE / NS))
        part = pcm[: len(x) - to]
        x[to : to + len(part)] = part
        at += 20 + size
    return x


def frame_wise(tool, words, stream, lost):
    """The tool's decoding of the stream with the same frames erased."""
    words, starts, bits = words.copy(), frame_starts(words), bits_of(words)
    for i, (first, count, _) in enumerate(stream):
        for frame in range(first, first + count if lost[i] else first):
            words[starts[frame] + 2 : starts[frame] + 2 + bits[frame]] = 0
    return decode(tool, [words])[0]


def measure_link(tool, link, x, coded_streams, jitter, loss, burst, seed):
    """STOI of both kinds of stream: frame-wise, without plc, with it."""
    reference, row = high_passed(x), []
    heard = lambda y: stoi(*aligned(reference, y), RATE)
    for words in coded_streams:
        stream = packets(words)
        random = np.random.default_rng([seed, jitter, loss, burst])
        lost = losses(random, len(stream), loss, burst)
        lost[0] = False
        sent = np.array([(first + FRAMES) * FRAME / RATE for first, _, _ in stream])
        times = arrivals(random, sent, jitter)
        row.append(heard(frame_wise(tool, words, stream, lost)))
        row += [heard(received(link, stream, times, lost, plc)) for plc in ("false", "true")]
    return row


def measure(tool, link):
    """(jitter, loss, burst) to the means over the seeds."""
    x = speech()
    streams = [coded(tool, x, annexb) for annexb in (False, True)]
    keys = [(jitter, *losses) for losses in LINKS for jitter in JITTERS]
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        rows = {key: [pool.submit(measure_link, tool, link, x, streams, *key, seed)
                      for seed in SEEDS] for key in keys}
        return {key: np.mean([row.result() for row in seeds], axis=0)
                for key, seeds in rows.items()}


def table(rows):
    lines = ["| loss | in a row | jitter (ms) | without Annex B: frame-wise | `plc` off | on "
             "| with Annex B: frame-wise | `plc` off | on |", "|---|---|---|---|---|---|---|---|---|"]
    for (jitter, loss, burst), row in rows.items():
        cells = " | ".join(f"{value:.3f}" for value in row)
        lines.append(f"| {loss} % | {burst if loss else ''} | {jitter} | {cells} |")
    return "\n".join(lines)


def report(tool, link):
    return table(measure(tool, link))


if __name__ == "__main__":
    print(report(*sys.argv[1:3]))
