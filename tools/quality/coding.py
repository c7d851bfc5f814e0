"""Quality of every rate without loss: speech, noisy speech and music."""
import os

import numpy as np
from scipy import signal

from measure import (FRAME, MUSIC, RATE, RATES, SOUNDS, bits_of, compare, decode, encode,
                     frame_starts, read_wav, sample_of, wav_files)

ENGLISH, MALE = "en_US_f_Allison", "it_IT_m_Carlo"
OTHER_FEMALE = ("fr_CA_f_June", "ru_RU_f_IvrvoiceRU", "it_IT_f_Menardi")
NOISY_FILES, FEMALE_FILES = 100, 150  # of each voice
NOISE_BELOW = 15  # dB
ONE, BACKWARD = 0x0081, 2  # a set bit; index of the mode bit of an 11.8 kbit/s frame


def load(voice, count=None):
    paths = wav_files(os.path.join(SOUNDS, voice))
    if not paths:
        raise SystemExit(f"no {voice} below {SOUNDS}: install the asterisk-core-sounds-*-wav packages")
    return [read_wav(path) for path in (sample_of(paths, count) if count else paths)]


def with_noise(signals, noise):
    """Each signal with noise(length), NOISE_BELOW dB below its power."""
    noisy = []
    for x in signals:
        n = noise(len(x))
        noisy.append(x + n * np.sqrt(np.mean(x**2) / np.mean(n**2) / 10 ** (NOISE_BELOW / 10)))
    return noisy


def noises(voices):
    random = np.random.default_rng(11)
    white = lambda n: random.standard_normal(n)
    car = ([1], [1, -np.exp(-2 * np.pi * 300 / RATE)])
    talk = np.concatenate(voices)
    start = lambda n: random.integers(len(talk) - n)
    return {
        "white noise": white,
        "car noise": lambda n: signal.lfilter(*car, white(n)),
        "babble": lambda n: sum(talk[s : s + n] for s in (start(n) for _ in range(8))),
    }


def speech_sets():
    """Name to list of signals, noisy speech last."""
    english, male = load(ENGLISH), load(MALE)
    female = [x for voice in OTHER_FEMALE for x in load(voice, FEMALE_FILES)]
    clean = english[::5][:NOISY_FILES] + male[::5][:NOISY_FILES]
    sets = {"all clean speech": english + female + male,
            "female, English": english, "female, French, Russian, Italian": female,
            "male, Italian": male}
    for name, noise in noises(female).items():
        sets[f"noisy, {name}"] = with_noise(clean, noise)
    return sets


def music():
    return {os.path.basename(path)[:-4]: read_wav(path) for path in wav_files(MUSIC)}


def kbit_per_second(streams):
    return np.mean(np.concatenate([bits_of(s) for s in streams])) / FRAME * RATE / 1000


def backward_share(streams):
    """Share (%) of backward frames among the speech frames of 11.8 kbit/s."""
    modes = []
    for words in streams:
        starts = frame_starts(words)
        starts = starts[words[starts + 1] == 118]
        modes.append(words[starts + BACKWARD] == ONE)
    return 100 * np.mean(np.concatenate(modes))


class Row:
    """One set at one rate."""

    def __init__(self, tool, signals, rate, options):
        streams = encode(tool, signals, "--rate", rate, *options)
        outputs = decode(tool, streams)
        self.rate, self.sent = rate, kbit_per_second(streams)
        self.filtered, self.raw = compare(signals, outputs), compare(signals, outputs, lambda x: x)

    def better_than(self, other):
        return (self.filtered.segmental > other.filtered.segmental
                and self.filtered.distance < other.filtered.distance)

    def __str__(self):
        f, r = self.filtered, self.raw
        return (f"{self.rate} | {f.segmental:.2f} | {r.segmental:.2f} | {f.distance:.2f} "
                f"| {f.level:+.2f} | {r.level:+.2f} | {self.sent:.2f}")


HEADING = """| signal | rate | segmental SNR (dB) | against the raw original | log-spectral distance (dB) | level (dB) | against the raw original | sent (kbit/s) |
|---|---|---|---|---|---|---|---|"""


def coding_table(tool, sets, options=()):
    lines, unordered = [HEADING], []
    for name, signals in sets.items():
        rows = [Row(tool, signals, rate, options) for rate in RATES]
        lines += [f"| {name} | {row} |" for row in rows]
        if not all(upper.better_than(lower) for lower, upper in zip(rows, rows[1:])):
            unordered.append(name)
    verdict = f"except on: {', '.join(unordered)}" if unordered else "on every signal"
    return "\n".join(lines + ["", f"Each rate is better than the one below it, in SNR and in distance, {verdict}."])


def music_table(tool, pieces):
    lines = ["| piece | 8 kbit/s: SNR, distance | 11.8 kbit/s: SNR, distance | gain in SNR | backward frames |",
             "|---|---|---|---|---|"]
    for name, x in pieces.items():
        at_8, at_11k8 = (encode(tool, [x], "--rate", rate) for rate in RATES[1:])
        lower, upper = (compare([x], decode(tool, s)) for s in (at_8, at_11k8))
        lines.append(f"| {name} | {lower.segmental:.2f}, {lower.distance:.2f} "
                     f"| {upper.segmental:.2f}, {upper.distance:.2f} "
                     f"| {upper.segmental - lower.segmental:+.2f} | {backward_share(at_11k8):.1f} % |")
    return "\n".join(lines)


def decision_table(tool, forward_only, sets):
    """11.8 kbit/s with the mode decision against a build that always answers forward."""
    lines = ["| signal | backward frames | SNR with the decision | forward only | distance with the decision | forward only |",
             "|---|---|---|---|---|---|"]
    for name, signals in sets.items():
        streams = [encode(t, signals, "--rate", "11.8") for t in (tool, forward_only)]
        free, forward = (compare(signals, decode(tool, s)) for s in streams)
        lines.append(f"| {name} | {backward_share(streams[0]):.2f} % | {free.segmental:.4f} "
                     f"| {forward.segmental:.4f} | {free.distance:.3f} | {forward.distance:.3f} |")
    return "\n".join(lines)
