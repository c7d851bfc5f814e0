"""Draws a call: what went in and what came out, frames by type, losses and concealment."""
import os
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from matplotlib.patches import Patch

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "quality"))
from drawing import save

RATE, SECOND = 8000, 10**9
AROUND = (0.15, 0.25)  # seconds before and after the loss that is drawn enlarged
COLOURS = {"frames": "#0072b2", "sids": "#5b2a86", "comfort-noise": "#009e73", "concealed": "#e69f00",
           "lost": "#d62728"}
NAMES = {"frames": "speech", "sids": "silence descriptor", "comfort-noise": "comfort noise",
         "lost": "lost on the way", "concealed": "concealed"}
RARE = ("sids", "lost", "concealed")  # drawn with an edge, so that one frame is seen
NOTHING = "#c8c8c8"


def lay_out(pieces):
    """The samples on one time line; silence where there are none."""
    starts = [round(time * RATE / SECOND) for time, _ in pieces]
    x = np.zeros(max((at + len(s) for at, (_, s) in zip(starts, pieces)), default=0))
    for at, (_, samples) in zip(starts, pieces):
        x[at : at + len(samples)] = samples
    return x / 32768


def by_kind(parts):
    """(kind, [(begin, duration)] in seconds)."""
    for kind in COLOURS:
        at = [(time / SECOND, samples / RATE) for time, samples, k in parts if k == kind]
        if at:
            yield kind, at


def waveform(axis, x, parts):
    """The signal, each part in its colour; grey where nothing is said of it."""
    time = np.arange(len(x)) / RATE
    axis.plot(time, x, color=NOTHING, lw=0.5)
    for kind, at in by_kind(parts):
        shown = np.full(len(x), np.nan)
        for begin, duration in at:
            part = slice(round(begin * RATE), round((begin + duration) * RATE) + 1)
            shown[part] = x[part]
        axis.plot(time, shown, color=COLOURS[kind], lw=0.5)


def strip(axis, row, parts):
    for kind, at in by_kind(parts):
        rare = kind in RARE
        axis.broken_barh(at, (row, 0.8), color=COLOURS[kind], lw=0.8 if rare else 0, zorder=2 + rare)


def loudest_loss(direction, x):
    """When it was, in seconds."""
    def loudness(loss):
        at = round(loss[0] * RATE / SECOND)
        return np.sum(x[at : at + loss[1]] ** 2)
    return max(direction.lost, key=loudness)[0] / SECOND if direction.lost else AROUND[0]


def draw_column(column, direction, said, heard):
    sent, top = direction.sent + direction.lost, 1.05 * max(np.max(np.abs(x), initial=1e-3) for x in (said, heard))
    waveform(column[0], said, sent)
    strip(column[1], 1, sent)
    strip(column[1], 0, direction.played)
    waveform(column[2], heard, direction.played)
    for axis in column:
        axis.set(ylim=(-top, top), yticks=[])
    column[1].set(ylim=(-0.1, 1.9), facecolor=NOTHING)
    for axis in column[:2]:
        axis.tick_params(labelbottom=False)
    column[2].locator_params(axis="x", nbins=6)


def draw_direction(axes, direction, ends):
    """Said, sent and played, heard; in the right column again, enlarged."""
    said, heard = lay_out(direction.said), lay_out(direction.heard)
    near = loudest_loss(direction, said)
    window = near - AROUND[0], near + AROUND[1]
    for column in axes.T:
        draw_column(column, direction, said, heard)
    for axis in axes[:, 0]:
        axis.set_xlim(0, max(len(said), len(heard)) / RATE)
    for axis in axes[::2, 0]:
        axis.axvspan(*window, color="#f3e3a6", zorder=0)
    for axis in axes[:, 1]:
        axis.set_xlim(window)
    axes[0, 0].set_ylabel(f"{ends[0]} says")
    axes[1, 0].set(yticks=[1.4, 0.4], yticklabels=["sent", "played"])
    axes[2, 0].set_ylabel(f"{ends[1]} hears")
    axes[2, 0].set_xlabel("time of the call (s)")
    axes[2, 1].set_xlabel("s")
    axes[0, 0].set_title(title(direction, ends), fontsize=10, loc="left")
    axes[0, 1].set_title("the loudest loss, enlarged", fontsize=10, loc="left")


def title(direction, ends):
    speech, sids, _, lost, concealed, noise = direction.counts
    gone = f"{lost} lost, {direction.back} back" if direction.redundancy else f"{lost} of them lost"
    return (f"{ends[0]} to {ends[1]}: {speech} frames of speech and {sids} descriptors in "
            f"{direction.packets} packets, {gone}; {ends[1]} hears {concealed} frames "
            f"concealed and {noise} of comfort noise")


def draw(directions, options, path):
    figure, axes = plt.subplots(6, 2, figsize=(15, 9.5), layout="constrained",
                                gridspec_kw={"width_ratios": (3, 1), "height_ratios": (2, 1, 2) * 2})
    figure.get_layout_engine().set(rect=(0, 0, 1, 0.955))
    for rows, direction, ends in zip((axes[:3], axes[3:]), directions, ("AB", "BA")):
        draw_direction(rows, direction, ends)
    patches = [Patch(color=COLOURS[kind], label=NAMES[kind]) for kind in NAMES]
    figure.legend(handles=[*patches, Patch(color=NOTHING, label="nothing")], ncols=6, loc="upper right")
    bursts = f", in bursts of {options.burst:g}" if options.burst > 1 else ""
    twice = f", sent twice ({options.redundancy} apart)" if options.redundancy else ""
    figure.text(0.008, 0.97, f"A call with {options.loss:g} % of its packets lost{bursts}{twice}",
                fontsize=11)
    save(figure, path)
