#!/usr/bin/python3
"""Concealment of lost packets in the decoder element: real RTP pipelines, in real time.

packets.py draws the plot and prints the table; GST_PLUGIN_PATH says where the plug-in is. All
pipelines run at once, for as long as the speech lasts. Every one of them feeds two receivers with
the same losses, without concealment and with it.
"""
import os
import sys
import tempfile

import gi
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

gi.require_version("Gst", "1.0")
from gi.repository import Gst

from coding import ENGLISH, MALE, load
from loss import PATTERNS
from drawing import save
from measure import FRAME, RATE, Tally, aligned, high_passed, write_wav
from stoi import stoi

LOSSES = (0, 1, 3, 5, 10, 20)   # per cent of the packets
SECONDS = 90
PACKET = 20 * Gst.MSECOND
RECEIVER = ("t. ! queue ! rtpjitterbuffer latency=60 do-lost=true ! rtpg729depay "
            "! kelg729fdec plc={plc} ! appsink name={plc} sync=false")
LAUNCH = ("filesrc location={wav} ! wavparse ! kelg729fenc frames=1 "
          f"! rtpg729pay min-ptime={PACKET} max-ptime={PACKET} ! identity name=link sync=true ! tee name=t "
          + RECEIVER.format(plc="false") + " " + RECEIVER.format(plc="true"))


def speech():
    parts = [np.concatenate(load(voice, 60)) for voice in (ENGLISH, MALE)]
    return np.concatenate([part[: SECONDS // 2 * RATE] for part in parts])


class Link:
    """A sender and two receivers, with losses between."""

    def __init__(self, wav, lost):
        self.lost, self.at = lost, 0
        self.received = {"false": [], "true": []}
        self.pipeline = Gst.parse_launch(LAUNCH.format(wav=wav))
        self.pipeline.get_by_name("link").get_static_pad("src").add_probe(
            Gst.PadProbeType.BUFFER, self.pass_or_drop)
        for name in self.received:
            self.pipeline.get_by_name(name).get_static_pad("sink").add_probe(
                Gst.PadProbeType.BUFFER, self.receive, name)
        self.pipeline.set_state(Gst.State.PLAYING)

    def pass_or_drop(self, pad, info):
        self.at += 1
        return Gst.PadProbeReturn.DROP if self.lost[self.at - 1] else Gst.PadProbeReturn.OK

    def receive(self, pad, info, name):
        buffer = info.get_buffer()
        pcm = np.frombuffer(buffer.extract_dup(0, buffer.get_size()), "<i2")
        self.received[name].append((buffer.pts, pcm))
        return Gst.PadProbeReturn.DROP

    def wait(self):
        kinds = Gst.MessageType.EOS | Gst.MessageType.ERROR
        message = self.pipeline.get_bus().timed_pop_filtered(2 * SECONDS * Gst.SECOND, kinds)
        self.pipeline.set_state(Gst.State.NULL)
        if message is None or message.type != Gst.MessageType.EOS:
            sys.exit("a pipeline did not end")

    def output(self, name, length):
        """The samples at their times; silence where there are none."""
        x = np.zeros(length + FRAME)
        first = self.received[name][0][0]
        for pts, pcm in self.received[name]:
            at = round((pts - first) * RATE / Gst.SECOND / FRAME) * FRAME
            part = pcm[: max(0, len(x) - at)]
            x[at : at + len(part)] = part
        return x


def measure(x):
    """(pattern, loss) to the true loss (%) and, without and with concealment, SNR and STOI."""
    packets = len(x) // (2 * FRAME) + 2
    links = {}
    with tempfile.NamedTemporaryFile(suffix=".wav") as wav:
        write_wav(wav.name, x)
        for pattern, losses in PATTERNS.items():
            for loss in LOSSES:
                lost = losses(np.random.default_rng(loss), packets, loss / 100)
                lost[0] = False
                links[pattern, loss] = Link(wav.name, lost)
        for link in links.values():
            link.wait()
    points, reference = {}, high_passed(x)
    for key, link in links.items():
        row = [100 * np.mean(link.lost)]
        for name in ("false", "true"):
            tally, y = Tally(), link.output(name, len(x))
            tally.add(reference, y)
            row += [tally.segmental, stoi(*aligned(reference, y), RATE)]
        points[key] = row
    return points


def table(points):
    lines = ["| losses | packets lost | segmental SNR (dB): without | with | STOI: without | with |",
             "|---|---|---|---|---|---|"]
    for (pattern, _), (lost, snr, heard, snr_plc, heard_plc) in points.items():
        lines.append(f"| {pattern} | {lost:.1f} % | {snr:.2f} | {snr_plc:.2f} "
                     f"| {heard:.3f} | {heard_plc:.3f} |")
    return "\n".join(lines)


def plot(points):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.5), layout="constrained")
    for pattern, colour in zip(PATTERNS, ("tab:blue", "tab:red")):
        rows = np.array([row for (p, _), row in points.items() if p == pattern])
        for axis, first in zip(axes, (1, 2)):
            axis.plot(rows[:, 0], rows[:, first], "--o", ms=3, color=colour, label=f"{pattern}, without")
            axis.plot(rows[:, 0], rows[:, first + 2], "-o", ms=3, color=colour, label=f"{pattern}, with")
    for axis, name in zip(axes, ("segmental SNR (dB)", "STOI")):
        axis.set_xlabel("lost packets (%)")
        axis.set_ylabel(name)
        axis.grid(alpha=0.3)
    axes[0].legend(fontsize=7)
    return figure


def report(path):
    """Draws the plot into the file; returns the table."""
    Gst.init(None)
    points = measure(speech())
    save(plot(points), path)
    return table(points)


if __name__ == "__main__":
    print(report(sys.argv[1]))
