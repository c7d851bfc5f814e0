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

from measure import (DELAY, FRAME, RATE, INPUT_FILTER, SOUNDS, bits_of, decibel, decode, encode,
                     read_wav)

SPEECH = os.path.join(SOUNDS, "en_US_f_Allison")
NONE, SID, VOICE = 0, 16, 80  # bits of a frame


def frames(x):
    """Rows of 80 samples as the encoder codes them, look-ahead late."""
    x = np.concatenate([np.zeros(DELAY), x])
    return x[: len(x) // FRAME * FRAME].reshape(-1, FRAME)


def transcode(tool, x):
    """The coded frames' sizes in bits and the decoded frames."""
    coded = encode(tool, [x], "--annexb")
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


def measure_noise(tool, paths):
    print("\n| background | RMS | without speech | level | spectral distance | level taken out |")
    print("|---|---|---|---|---|---|")
    for name, noise in backgrounds(paths, 60).items():
        for rms in (30, 100, 1000):
            x = scaled(noise, rms**2)
            bits, out = transcode(tool, x)
            n = min(len(bits), len(out))
            quiet = bits[:n] != VOICE
            run = np.convolve(quiet, np.ones(11))[:n] == 11  # ten frames after the last speech
            row = f"| {name} | {rms} | {100 * np.mean(quiet):.1f} % |"
            if np.sum(run) < 30:
                print(f"{row} - | - | - |")
                continue
            pair = [rows[:n][run] for rows in (out, frames(signal.lfilter(*INPUT_FILTER, x)))]
            level = decibel(np.mean(pair[0] ** 2)) - decibel(np.mean(pair[1] ** 2))
            spectra = [np.mean(np.abs(np.fft.rfft(p * np.hanning(FRAME), 128)) ** 2, axis=0)
                       for p in pair]
            d = (decibel(spectra[0]) - decibel(spectra[1]))[4:58]  # 250 to 3600 Hz
            print(f"{row} {level:+.1f} dB | {np.sqrt(np.mean(d**2)):.1f} dB | {np.std(d):.1f} dB |")


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
