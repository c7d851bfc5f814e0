#!/usr/bin/python3
"""Quality of the encoder's levels, and of other codecs in the same run, against CPU time.

usage: tools/quality/levels.py build/tools/kelg729f [--peers]

Prints tables; --peers codes the development set with every codec in GStreamer pipelines
(GST_PLUGIN_PATH says where the plug-in is), prints their table and draws docs/quality/levels.svg.
The encoder was tuned on the development set; the unseen one was looked at when all was settled.
"""
import argparse
import os
import resource
import subprocess
import tempfile

import numpy as np
from scipy import signal

import measure
from coding import noises
from measure import FRAME, RATE, aligned, decode, encode, erased, high_passed, read_wav, sample_of
from stoi import estoi, stoi
from weighted_snr import weighted_snr

LEVELS = range(4)
DEVELOPMENT, UNSEEN = ("en_US_f_Allison",), ("it_IT_m_Carlo", "fr_CA_f_June", "ru_RU_f_IvrvoiceRU")
SENTENCE = (2 * 2 * RATE, 10 * RATE)  # bytes: 2 to 5 s
PART = 40                             # files where less than the whole set is measured
NOISE_BELOW = 10                      # dB


def sentences(voices, count):
    """count sentences of each voice."""
    chosen = []
    for voice in voices:
        paths = measure.wav_files(os.path.join(measure.SOUNDS, voice))
        sized = [p for p in paths if SENTENCE[0] < os.path.getsize(p) < SENTENCE[1]]
        chosen += sample_of(sized, count, seed=3)
    return [read_wav(path) for path in chosen]


def in_noise(signals, noise):
    noisy = []
    for x in signals:
        n = noise(len(x))
        noisy.append(x + n * np.sqrt(np.mean(x**2) / np.mean(n**2) / 10 ** (NOISE_BELOW / 10)))
    return [np.round(x / 2) for x in noisy]


def scores(reference, output):
    """STOI, ESTOI, fwSNRseg, LSD of each pair."""
    return np.array([(stoi(r, o, RATE), estoi(r, o, RATE), *weighted_snr(r, o))
                     for r, o in (aligned(*pair) for pair in zip(reference, output))])


def coded(tool, signals, level, *options, lost=0.0):
    streams = encode(tool, signals, "--complexity", str(level), *options)
    if lost:
        random = np.random.default_rng(7)
        streams = [erased(s, random.random(len(s) // FRAME) < lost) for s in streams]
    return decode(tool, streams)


def tandem(tool, signals, level):
    first = coded(tool, signals, level)
    return [y[measure.DELAY:] for y in coded(tool, first, level)]


def row(name, of_level):
    """Level 0 as it is, the others against it, with the share of files whose ESTOI gains."""
    base = of_level(0)
    cells = ["{:.4f}, {:.4f}, {:.2f}, {:.2f}".format(*base.mean(0))]
    for level in LEVELS[1:]:
        gain = of_level(level) - base
        share = f" ({100 * np.mean(gain[:, 1] > 0):.0f} %)" if len(gain) > 9 else ""
        cells.append("{:+.4f}, {:+.4f}, {:+.2f}, {:+.2f}".format(*gain.mean(0)) + share)
    return f"| {name} | {' | '.join(cells)} |"


def print_levels(tool):
    sets = {"development: 111 English": sentences(DEVELOPMENT, 111)}
    for voice in UNSEEN:
        sets[f"unseen: 100 of {voice}"] = sentences([voice], 100)
    part = sets["development: 111 English"][:PART]
    made = noises(part)
    for name in ("babble", "car noise"):
        sets[f"{PART} English in {name} at {NOISE_BELOW} dB"] = in_noise(part, made[name])
    pieces = measure.wav_files(measure.MUSIC)
    sets[f"music: 20 s of {len(pieces)} pieces"] = [read_wav(p)[: 20 * RATE] for p in pieces]
    print("| signal | 0: STOI, ESTOI, fwSNRseg, LSD (dB) | 1 | 2 | 3 |\n|---|---|---|---|---|")
    for name, signals in sets.items():
        reference = [high_passed(x) for x in signals]
        print(row(name, lambda n: scores(reference, coded(tool, signals, n))), flush=True)
    reference = [high_passed(x) for x in part]
    ways = {
        "Annex B": lambda n: coded(tool, part, n, "--annexb"),
        "3 % of the frames lost": lambda n: coded(tool, part, n, lost=0.03),
        "10 % lost": lambda n: coded(tool, part, n, lost=0.1),
        "coded twice": lambda n: tandem(tool, part, n),
    }
    for name, way in ways.items():
        print(row(f"{PART} English, {name}", lambda n: scores(reference, way(n))), flush=True)


# Name, encoder, decoder, kbit/s.
PEERS = [(f"level {n}", f"kelg729fenc complexity={n}", "kelg729fdec", 8) for n in LEVELS] + [
    ("AMR-NB 7.95", "amrnbenc band-mode=MR795", "amrnbdec", 7.95),
    ("AMR-NB 12.2", "amrnbenc band-mode=MR122", "amrnbdec", 12.2),
    ("Opus 8k, complexity 5",
     "opusenc bitrate=8000 frame-size=20 audio-type=voice complexity=5", "opusdec", 8),
    ("Opus 8k, complexity 10",
     "opusenc bitrate=8000 frame-size=20 audio-type=voice complexity=10", "opusdec", 8),
    ("Speex, quality 4", "speexenc mode=nb quality=4 complexity=3", "speexdec", 11),
]
PLAIN = f"audioconvert ! audioresample ! audio/x-raw,format=S16LE,rate={RATE},channels=1"
ROUNDS = 3


def launch(line):
    """CPU seconds of a pipeline."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(["gst-launch-1.0", "-q", *line.split()], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def in_time(x, y):
    """y, which comes up to 50 ms late or 25 ms early, moved to where x is."""
    n, early, late = 40 * RATE, 200, 400
    padded = np.concatenate([np.zeros(early), y, np.zeros(len(x) - len(y) + late if len(y) < len(x) else late)])
    return padded[np.argmax(signal.correlate(padded[: n + early + late], x[:n], "valid")) :][: len(x)]


def measure_peers():
    """Of each codec: CPU (us a frame of 10 ms) and the scores of the development set."""
    signals = sentences(DEVELOPMENT, 111)
    joined = np.concatenate(signals)
    ends = np.cumsum([len(x) for x in signals])
    with tempfile.TemporaryDirectory() as folder:
        wav, raw = os.path.join(folder, "joined.wav"), os.path.join(folder, "coded.raw")
        measure.write_wav(wav, joined)
        source = f"filesrc location={wav} ! wavparse"
        cost, found = {peer[0]: [] for peer in PEERS}, {}
        for _ in range(ROUNDS):
            for name, encoder, *_ in PEERS:
                empty = launch(f"{source} ! fakesink")
                cost[name].append(launch(f"{source} ! {encoder} ! fakesink") - empty)
        for name, encoder, decoder, _ in PEERS:
            launch(f"{source} ! {encoder} ! {decoder} ! {PLAIN} ! filesink location={raw}")
            y = in_time(joined, np.fromfile(raw, "<i2").astype(float))
            pairs = zip(np.split(joined, ends[:-1]), np.split(y, ends[:-1]))
            found[name] = np.mean([(stoi(a, b, RATE), estoi(a, b, RATE), *weighted_snr(a, b))
                                   for a, b in pairs], axis=0)
    return {name: (np.median(cost[name]) / len(joined) * FRAME * 1e6, *found[name]) for name in found}


def draw(found, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    matplotlib.rcParams.update({"svg.hashsalt": "levels", "svg.fonttype": "none"})
    figure, axis = plt.subplots(figsize=(7, 4), layout="constrained")
    ours = [found[f"level {n}"] for n in LEVELS]
    axis.plot([v[0] for v in ours], [v[2] for v in ours], "o-")
    for name, (cpu, _, value, *_) in found.items():
        other = not name.startswith("level")
        if other:
            axis.plot(cpu, value, "s", color="gray")
        axis.annotate(name, (cpu, value), xytext=(4, -11) if other else (-4, 6),
                      ha="left" if other else "right", textcoords="offset points", fontsize=8)
    axis.set_xscale("log")
    axis.set_xlim(4, 300)
    axis.margins(y=0.1)
    axis.set_xlabel("encoder's CPU time, us a frame of 10 ms")
    axis.set_ylabel("ESTOI")
    axis.grid(alpha=0.3)
    figure.savefig(path, metadata={"Date": None})


def print_peers(path):
    """Prints the table; the plot goes to path."""
    found = measure_peers()
    draw(found, path)
    base = found["level 0"][0]
    print("| codec | kbit/s | encoding, us a frame of 10 ms | times level 0 | STOI | ESTOI | fwSNRseg (dB) | LSD (dB) |\n"
          "|---|---:|---:|---:|---:|---:|---:|---:|")
    for name, _, _, rate in PEERS:
        cpu, *values = found[name]
        print(f"| {name} | {rate} | {cpu:.1f} | {cpu / base:.2f} "
              "| {:.4f} | {:.4f} | {:.2f} | {:.2f} |".format(*values))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tool", help="build/tools/kelg729f")
    parser.add_argument("--peers", action="store_true", help="compare with other codecs instead")
    options = parser.parse_args()
    if not options.peers:
        return print_levels(options.tool)
    here = os.path.dirname(os.path.abspath(__file__))
    print_peers(os.path.join(here, "..", "..", "docs", "quality", "levels.svg"))


if __name__ == "__main__":
    main()
