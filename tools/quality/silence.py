#!/usr/bin/python3
"""Measures silence compression through the command-line tool.

Speech with pauses, clean and in noise: how many active frames the detector loses, how many pause
frames it saves, the bit rate. Noise alone: level and spectrum of the comfort noise against the
background. A frame is active when the clean speech in it is above -40 dB of its utterance's peak.

usage: silence.py build/tools/kelg729f [folder of 8 kHz WAV files]
"""
import glob
import os
import sys

import numpy as np
from scipy import signal

from measure import (DELAY, FRAME, RATE, SOUNDS, bits_of, decibel, decode, encode, high_passed,
                     read_wav)

SPEECH = os.path.join(SOUNDS, "en_US_f_Allison")
NONE, SID, VOICE = 0, 16, 80  # bits of a frame


def frames(x):
    """Rows of 80 samples as the encoder codes them, look-ahead late."""
    x = np.concatenate([np.zeros(DELAY), x])
    return x[: len(x) // FRAME * FRAME].reshape(-1, FRAME)


def transcode(tool, x, *options):
    """The coded frames' sizes in bits and the decoded frames."""
    coded = encode(tool, [x], "--annexb", *options)
    (out,) = decode(tool, coded)
    return bits_of(coded[0]), out[: len(out) // FRAME * FRAME].reshape(-1, FRAME)


def utterances(paths, seconds, seed):
    """Random utterances joined without pauses."""
    random, parts, n = np.random.default_rng(seed), [], 0
    while n < seconds * RATE:
        parts.append(read_wav(paths[random.integers(len(paths))]))
        n += len(parts[-1])
    return np.concatenate(parts)[: seconds * RATE]


def dialogue(paths, count):
    """Utterances with pauses of 0.5 to 2 s, and whether each frame is active."""
    random, parts, floors = np.random.default_rng(1), [], []
    for _ in range(count):
        x = read_wav(paths[random.integers(len(paths))])
        peak = np.max(np.mean(x[: len(x) // FRAME * FRAME].reshape(-1, FRAME) ** 2, axis=1))
        parts += [x, np.zeros(int(RATE * random.uniform(0.5, 2.0)))]
        floors.append(np.full(len(parts[-2]) + len(parts[-1]), 1e-4 * peak))
    x = np.concatenate(parts)
    floor = frames(np.concatenate(floors)).max(axis=1)
    return x, np.mean(frames(x) ** 2, axis=1) > np.maximum(floor, 1e-9)


def backgrounds(paths, seconds):
    white = lambda: np.random.default_rng(3).standard_normal(seconds * RATE)
    return {
        "white": white(),
        "car (-6 dB/octave from 300 Hz)": signal.lfilter(
            [1], [1, -np.exp(-2 * np.pi * 300 / RATE)], white()),
        "car (-12 dB/octave from 400 Hz)": signal.lfilter(*signal.butter(2, 400 / 4000), white()),
        "babble (8 talkers)": sum(utterances(paths, seconds, seed) for seed in range(8)),
    }


def scaled(x, power):
    return x * np.sqrt(power / np.mean(x**2))


def measure_detector(tool, paths):
    x, active = dialogue(paths, 40)
    speech = np.mean(frames(x)[active] ** 2)
    noises = backgrounds(paths, len(x) // RATE + 1)
    print("| noise | SNR | active lost | of those above the noise | pauses saved | SID | kbit/s |")
    print("|---|---|---|---|---|---|---|")
    cases = [("none", None)] + [(name, snr) for name in noises for snr in (0, 10, 20, 30)]
    for name, snr in cases:
        noise = 0 * x
        if snr is not None:
            noise = scaled(noises[name][: len(x)], speech / 10 ** (snr / 10))
        bits, _ = transcode(tool, x + noise)
        n = min(len(bits), len(active))
        sent, voice = bits[:n], active[:n]
        above = voice & (np.mean(frames(x)[:n] ** 2 - frames(noise)[:n] ** 2, axis=1) > 0)
        lost, lost_above = (np.mean(sent[m] != VOICE) for m in (voice, above))
        print(f"| {name} | {'' if snr is None else f'{snr} dB'} | {100 * lost:.2f} % "
              f"| {100 * lost_above:.2f} % | {100 * np.mean(sent[~voice] != VOICE):.1f} % "
              f"| {100 * np.mean(sent == SID):.1f} % | {np.mean(sent) / 10:.2f} |")


class Noise:
    """Comfort noise against what is in its place, from the third second on."""

    def __init__(self, tool, x, complexity):
        self.sent, out = transcode(tool, x, "--complexity", complexity)
        n = min(len(self.sent), len(out), len(x) // FRAME)
        self.speech = 100 * np.mean(self.sent == VOICE)
        self.descriptors = np.mean(self.sent == SID) * RATE / FRAME
        at = np.flatnonzero(self.sent[:n] != VOICE)
        at = at[at >= 2 * RATE // FRAME]
        self.pair = out[at], frames(high_passed(x))[at]

    def __len__(self):
        return len(self.pair[0])

    def level(self, part=slice(None)):
        made, there = (decibel(np.mean(rows[part] ** 2)) for rows in self.pair)
        return made - there

    def variation(self):
        """Of the level of a second's worth of frames, standard deviation."""
        return np.std([self.level(slice(i, i + 100)) for i in range(0, len(self) - 99, 100)])

    def shape(self):
        """Distance of the mean spectra, 250 to 3600 Hz, level taken out."""
        made, there = (decibel(np.mean(np.abs(np.fft.rfft(rows * np.hanning(FRAME), 128)) ** 2, 0))
                       for rows in self.pair)
        return np.std((made - there)[4:58])


def noise_row(name, rms, noises):
    if any(len(noise) < 200 for noise in noises):
        return f"| {name} | {rms} | {noises[0].speech:.1f} % |" + " |" * 10
    cells = [f"| {name} | {rms} | {noises[0].speech:.1f} % "]
    for form, value in (("+.2f", lambda n: n.level()), (".2f", lambda n: n.variation()),
                        (".1f", lambda n: n.shape()), (".1f", lambda n: n.descriptors),
                        (".2f", lambda n: np.mean(n.sent) / 10)):
        cells += [f"| {value(noise):{form}} " for noise in noises]
    return "".join(cells) + "|"


def measure_noise(tool, paths):
    columns = ("level (dB): 0", "its variation (dB): 0", "spectral shape (dB): 0",
               "descriptors a second: 0", "kbit/s: 0")
    print("\n| background | RMS | called speech | " + " | 1 | ".join(columns) + " | 1 |")
    print("|---" * (3 + 2 * len(columns)) + "|")
    talk, _ = dialogue(paths, 20)
    for name, noise in backgrounds(paths, max(60, len(talk) // RATE + 1)).items():
        for prefix, speech, levels in (("", np.zeros(60 * RATE), (30, 100, 300, 1000, 3000)),
                                       ("speech with pauses, ", talk, (30, 100, 300))):
            for rms in levels:
                x = speech + scaled(noise, rms**2)[: len(speech)]
                noises = [Noise(tool, x, complexity) for complexity in "01"]
                print(noise_row(prefix + name, rms, noises))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    folder = sys.argv[2] if len(sys.argv) > 2 else SPEECH
    paths = sorted(glob.glob(os.path.join(folder, "*.wav")))
    if not paths:
        sys.exit(f"no speech in {folder}")
    measure_detector(sys.argv[1], paths)
    measure_noise(sys.argv[1], paths)


if __name__ == "__main__":
    main()
