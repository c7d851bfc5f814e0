#!/usr/bin/python3
"""What sending every packet twice does against lost packets, and what the other ways do.

redundancy.py LINK prints the tables; LINK is build/bench/link, and GST_PLUGIN_PATH says where the
plug-in is. GStreamer's own elements make the packets; a link delays each by up to 20 ms and loses
some; GStreamer's own elements and the decoder with `plc=true` make audio of the rest, in simulated time.
"""
import concurrent.futures
import struct
import subprocess
import sys
import tempfile

import gi
import numpy as np

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
from gi.repository import Gst, GstApp

from links import NS, SECONDS, arrivals, speech
from measure import FRAME, RATE, aligned, high_passed, write_wav
from stoi import stoi

SEEDS = (1, 2)
LOSSES = (5, 10, 20, 30)          # per cent of the packets
BURSTS = (None, 1, 2, 3, 4)       # packets lost in a row, always as many; None: at random
PACKET, RTT, JITTER = 20, 40, 20  # ms
BUFFER = 60                       # ms: the jitter buffer of those who send once
HEADERS = 20 + 8                  # bytes of IPv4 and UDP
SSRC = 729
LOST, LOST_AGAIN = 1 << 31, 1 << 30
SENDER = ("filesrc location={wav} ! wavparse ! kelg729fenc annexb={annexb} frames=1 "
          f"! rtpg729pay ssrc={SSRC} min-ptime={PACKET}000000 perfect-rtptime=false "
          "{protect} ! appsink name=sink sync=false")
RED = "before=rtpreddec pt=96"
# The jitter buffer's latency (ms), what the sender adds, and what the receiver does.
WAYS = {
    "once": (BUFFER, "", ()),
    "twice, distance 1": (BUFFER + PACKET, "! rtpredenc pt=96 distance=1", (RED,)),
    "twice, distance 2": (BUFFER + 2 * PACKET, "! rtpredenc pt=96 distance=2", (RED,)),
    "again on request": (BUFFER + 3 * PACKET, "", (
        f"rtx={RTT}", f"buffer=do-retransmission=true rtx-min-retry-timeout={RTT + PACKET}")),
    "with ULPFEC": (BUFFER + 2 * PACKET, "! rtpulpfecenc pt=98 percentage=100 multipacket=false", (
        f'before=capssetter caps="application/x-rtp,ssrc=(uint){SSRC}" ! rtpstorage name=storage size-time=1000000000', "behind=rtpulpfecdec pt=98 name=fec")),
}
EVERYWHERE = tuple(WAYS)[:3]      # the others are measured without Annex B, and in two patterns


def sent(wav, annexb, protect):
    """[(time of sending in seconds, packet)]"""
    pipeline = Gst.parse_launch(SENDER.format(wav=wav, annexb=str(annexb).lower(), protect=protect))
    sink, packets = pipeline.get_by_name("sink"), []
    pipeline.set_state(Gst.State.PLAYING)
    while sample := sink.pull_sample():
        buffer = sample.get_buffer()
        packets.append(((buffer.pts / NS) + PACKET / 1000, buffer.extract_dup(0, buffer.get_size())))
    pipeline.set_state(Gst.State.NULL)
    return packets


def losses(random, count, loss, burst):
    """Which packets are lost; never the first."""
    if burst is None:
        lost = random.random(count) < loss / 100
    else:
        lost, at = np.zeros(count, bool), 0
        while loss and at < count:
            at += random.geometric(min(1, loss / (100 - loss) / burst))
            lost[at : at + burst] = True
            at += burst
    lost[0] = False
    return lost


def received(link, way, packets, times, lost, lost_again):
    """The samples at their times, silence where there are none; how many packets came again."""
    latency, _, arguments = WAYS[way]
    data = b"".join(
        struct.pack("<QI", int(time * NS), len(packet) | LOST * bool(gone) | LOST_AGAIN * bool(again)) + packet
        for (_, packet), time, gone, again in zip(packets, times, lost, lost_again))
    done = subprocess.run([link, "plc=true", f"latency={latency}", *arguments], input=data, capture_output=True,
                          check=True)
    out, x, at, begin = done.stdout, np.zeros((SECONDS + 2) * RATE), 0, None
    while at < len(out):
        pts, _, size = struct.unpack_from("<QQI", out, at)
        pcm = np.frombuffer(out, "<i2", size // 2, at + 20)
        begin = pts if begin is None else begin
        to = max(0, round((pts - begin) * RATE / NS))
        x[to : to + len(pcm)] = pcm[: len(x) - to]
        at += 20 + size
    return x, int(done.stderr or 0)


def measure_one(link, reference, way, packets, loss, burst, seed):
    """STOI and kbit/s with IP headers."""
    random = np.random.default_rng([seed, loss, burst or 0])
    lost, lost_again = (losses(random, len(packets), loss, b) for b in (burst, None))
    times = arrivals(random, np.array([time for time, _ in packets]), JITTER)
    y, again = received(link, way, packets, times, lost, lost_again)
    size = sum(len(packet) + HEADERS for _, packet in packets)
    size += again * size / len(packets)
    return stoi(*aligned(reference, y), RATE), 8 * size / SECONDS / 1000


def keys():
    for annexb in (False, True):
        for way in WAYS if not annexb else EVERYWHERE:
            for burst in BURSTS if way in EVERYWHERE else (None, 2):
                for loss in (0, *LOSSES) if burst is None else LOSSES:
                    yield annexb, way, burst, loss


def measure(link):
    """(annexb, way, burst, loss) to the means of STOI and kbit/s over the seeds."""
    x = np.round(speech())
    reference = high_passed(x)
    with tempfile.NamedTemporaryFile(suffix=".wav") as wav:
        write_wav(wav.name, x)
        streams = {(annexb, way): sent(wav.name, annexb, WAYS[way][1]) for annexb in (False, True) for way in WAYS}
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        jobs = {(annexb, way, burst, loss): [pool.submit(measure_one, link, reference, way, streams[annexb, way],
                                                         loss, burst, seed) for seed in SEEDS]
                for annexb, way, burst, loss in keys()}
        return {key: np.mean([job.result() for job in seeds], axis=0) for key, seeds in jobs.items()}


def table(points):
    lines = ["| Annex B | packets are sent | jitter buffer | kbit/s | losses | 0 % | "
             + " | ".join(f"{loss} %" for loss in LOSSES) + " |", "|---" * (6 + len(LOSSES)) + "|"]
    for annexb, way, burst, loss in points:
        if loss != LOSSES[0]:
            continue
        heard, rate = points[annexb, way, None, 0]
        cells = [heard, *(points[annexb, way, burst, loss][0] for loss in LOSSES)]
        rates = {f"{points[annexb, way, burst, loss][1]:.0f}" for loss in (LOSSES[0], LOSSES[-1])}
        lines.append(f"| {'on' if annexb else 'off'} | {way} | {WAYS[way][0]} ms | {' to '.join(sorted(rates))} "
                     f"| {f'{burst} in a row' if burst else 'random'} | "
                     + " | ".join(f"{cell:.3f}" for cell in cells) + " |")
    return "\n".join(lines)


def report(link):
    Gst.init(None)
    return table(measure(link))


if __name__ == "__main__":
    print(report(sys.argv[1]))
