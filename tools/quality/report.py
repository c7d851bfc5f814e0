#!/usr/bin/python3
"""Writes docs/quality.md and its plots from measurements through the command-line tool.

Speech: Debian's asterisk-core-sounds-{en,fr,it,ru}-wav and asterisk-prompt-it-menardi-wav; music:
asterisk-moh-opsound-wav; AMR-NB: gstreamer1.0-plugins-ugly. GST_PLUGIN_PATH says where the plug-in is. Takes ten minutes or so.
"""
import argparse
import contextlib
import io
import os
import subprocess

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

import coding
import levels
import links
import loss
import packets
import redundancy
import silence
from drawing import save
from measure import RATE, RATES, decode, encode, read_wav, wav_files

LOSS_FILES = 100  # of each voice
UTTERANCE = "conf-userswilljoin.wav"


def printed(measure, *arguments):
    text = io.StringIO()
    with contextlib.redirect_stdout(text):
        measure(*arguments)
    return text.getvalue().strip()


def plot_spectrograms(tool, path):
    x = read_wav(os.path.join(silence.SPEECH, UTTERANCE))
    panels = {"original": x}
    for rate in RATES:
        panels[f"{rate} kbit/s"] = decode(tool, encode(tool, [x], "--rate", rate))[0]
    figure, axes = plt.subplots(len(panels), 1, figsize=(8, 9), sharex=True, layout="constrained")
    for axis, (name, y) in zip(axes, panels.items()):
        dither = np.random.default_rng(1).standard_normal(len(y))  # silence has a logarithm then
        axis.specgram(y + 0.1 * dither, NFFT=256, noverlap=192, Fs=RATE, vmin=-45, vmax=35,
                      cmap="magma")
        axis.set_title(name, loc="left", fontsize=9)
        axis.set_ylabel("Hz")
    axes[-1].set_xlabel("s")
    save(figure, path)


def plot_curves(curves, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.8), layout="constrained")
    for (pattern, rate), (lost, segmental, distance) in curves.items():
        style = dict(color=f"C{RATES.index(rate)}", linestyle="-" if pattern == "random" else "--",
                     marker="o", markersize=3, label=f"{rate} kbit/s, {pattern}")
        axes[0].plot(lost, segmental, **style)
        axes[1].plot(lost, distance, **style)
    for axis, name in zip(axes, ("segmental SNR (dB)", "log-spectral distance (dB)")):
        axis.set_xlabel("lost frames (%)")
        axis.set_ylabel(name)
        axis.grid(alpha=0.3)
    axes[0].legend(fontsize=7)
    save(figure, path)


def random_frames(program, count):
    done = subprocess.run([program, "--gtest_filter=Storm.*"], stdout=subprocess.PIPE, text=True,
                          env=os.environ | {"STORM_FRAMES": str(count)})
    return next(line for line in done.stdout.splitlines() if "random frames" in line)


def sections(options):
    tool = options.tool
    sets, pieces = coding.speech_sets(), coding.music()
    values = {}
    sets_and_music = {**sets, "music": list(pieces.values())}
    values["coding"] = coding.coding_table(tool, sets_and_music)
    values["annexb"] = coding.coding_table(tool, sets_and_music, ("--annexb",))
    values["music"] = coding.music_table(tool, pieces)
    values["decision"] = NOT_MEASURED
    if options.forward_only:
        values["decision"] = coding.decision_table(
            tool, options.forward_only, {**sets, **{n: [x] for n, x in pieces.items()}})
    clean = sets["female, English"][1::5][:LOSS_FILES] + sets["male, Italian"][1::5][:LOSS_FILES]
    streams = loss.coded(tool, clean)
    curves = loss.quality_curves(tool, clean, streams)
    plot_curves(curves, os.path.join(options.folder, "loss.png"))
    values["curves"], values["bursts"] = loss.curve_table(curves), loss.burst_table(tool, streams)
    values["packets"] = packets.report(os.path.join(options.folder, "packets.png"))
    values["links"] = links.report(tool, options.link) if options.link else NOT_MEASURED
    values["redundancy"] = redundancy.report(options.link) if options.link else NOT_MEASURED
    values["robustness"] = NOT_MEASURED
    if options.random_frames:
        values["robustness"] = random_frames(options.random_frames, options.count)
    paths = wav_files(silence.SPEECH)
    values["levels"] = printed(levels.print_levels, tool)
    values["peers"] = printed(levels.print_peers, os.path.join(options.folder, "levels.svg"))
    values["detector"] = printed(silence.measure_detector, tool, paths)
    values["noise"] = printed(silence.measure_noise, tool, paths)
    plot_spectrograms(tool, os.path.join(options.folder, "spectrograms.png"))
    return values


NOT_MEASURED = "(not measured in this run)"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("tool", help="build/tools/kelg729f")
    parser.add_argument("--forward-only", metavar="TOOL",
                        help="the tool of a build whose mode decision always answers forward")
    parser.add_argument("--link", metavar="PROGRAM", help="build/bench/link")
    parser.add_argument("--random-frames", metavar="PROGRAM", help="build/tests/codec-tests")
    parser.add_argument("--count", type=int, default=10_000_000, help="random frames")
    options = parser.parse_args()
    here = os.path.dirname(os.path.abspath(__file__))
    docs = os.path.join(here, "..", "..", "docs")
    options.folder = os.path.join(docs, "quality")
    os.makedirs(options.folder, exist_ok=True)
    with open(os.path.join(here, "quality.md.in")) as file:
        template = file.read()
    text = template.format_map(sections(options))
    with open(os.path.join(docs, "quality.md"), "w") as file:
        file.write(text)


if __name__ == "__main__":
    main()
