"""What the scripts of this folder share: speech, the command-line tool, measures.

The measures are those of `kelg729f compare`: segments of 20 ms within 40 dB of the loudest one
count; a segment's SNR is held to -10 to 35 dB; the log-spectral distance is taken over the bins
within 40 dB of the peak of a Hann window of 32 ms. The reference is the original, as it is or
passed through the codec's own two high-pass filters.
"""
import glob
import os
import subprocess
import tempfile
import wave

import numpy as np
from scipy import signal

RATE, FRAME, DELAY = 8000, 80, 40  # the decoded signal is 5 ms of look-ahead late
SEGMENT, WINDOW = 160, 256
INPUT_FILTER = ([0.92727436, -1.8544941, 0.92727436], [1, -1.9059465, 0.9114024])
OUTPUT_FILTER = ([0.93980581, -1.8795834, 0.93980581], [1, -1.9330735, 0.93589199])
RATES = ("6.4", "8", "11.8")
SOUNDS = "/usr/share/asterisk/sounds"
MUSIC = "/usr/share/asterisk/moh"
ERASED = 0  # a bit of the serial format


def read_wav(path):
    with wave.open(path) as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2").astype(float)


def write_wav(path, x):
    with wave.open(path, "wb") as file:
        file.setparams((1, 2, RATE, 0, "NONE", ""))
        file.writeframes(np.round(x).clip(-32768, 32767).astype("<i2").tobytes())


def wav_files(*folders):
    """Speech and music of the folders; files of silence and tones are left out."""
    paths = [p for f in folders for p in sorted(glob.glob(os.path.join(f, "*.wav")))]
    return [p for p in paths if "beep" not in p and "silence" not in p]


def sample_of(paths, count, seed=1):
    """count of the paths, drawn at random but always the same."""
    random = np.random.default_rng(seed)
    return [paths[i] for i in sorted(random.permutation(len(paths))[:count])]


def run(tool, *args):
    subprocess.run([tool, *args], check=True, stderr=subprocess.DEVNULL)


def each(folder, count, suffix):
    return [os.path.join(folder, f"{i:05}{suffix}") for i in range(count)]


def encode(tool, signals, *options):
    """The serial streams (arrays of words) of the signals."""
    with tempfile.TemporaryDirectory() as wavs, tempfile.TemporaryDirectory() as bits:
        names = each(wavs, len(signals), ".wav")
        for name, x in zip(names, signals):
            write_wav(name, x)
        outputs = each(bits, len(signals), ".bit")
        run(tool, "encode", *options, "--format", "bit", *names, bits)
        return [np.fromfile(name, "<u2") for name in outputs]


def decode(tool, streams):
    with tempfile.TemporaryDirectory() as bits, tempfile.TemporaryDirectory() as wavs:
        names = each(bits, len(streams), ".bit")
        for name, words in zip(names, streams):
            words.astype("<u2").tofile(name)
        run(tool, "decode", *names, wavs)
        return [read_wav(name) for name in each(wavs, len(streams), ".wav")]


def frame_starts(words):
    starts, at = [], 0
    while at + 1 < len(words):
        starts.append(at)
        at += 2 + int(words[at + 1])
    return np.array(starts)


def bits_of(words):
    return words[frame_starts(words) + 1].astype(int)


def erased(words, lost):
    """The stream with the frames erased in which lost is true; of fixed-size frames."""
    rows = words.reshape(-1, 2 + int(words[1])).copy()
    rows[lost[: len(rows)], 2] = ERASED
    return rows.ravel()


def high_passed(x):
    return np.round(signal.lfilter(*OUTPUT_FILTER, signal.lfilter(*INPUT_FILTER, x)))


def decibel(x):
    return 10 * np.log10(x + 1e-9)


def aligned(reference, output):
    output = output[DELAY:]
    n = min(len(reference), len(output))
    return reference[:n], output[:n]


def active_starts(x):
    n = (len(x) - WINDOW) // SEGMENT + 1
    if n < 1:
        return np.zeros(0, int)
    energy = np.sum(x[: n * SEGMENT].reshape(n, SEGMENT) ** 2, axis=1)
    return SEGMENT * np.flatnonzero((energy > 0) & (energy >= 1e-4 * np.max(energy)))


def rows_at(x, starts, length):
    return x[starts[:, None] + np.arange(length)]


def segment_measures(reference, output):
    """SNR (dB), log-spectral distance (dB), both energies, of each active segment of an aligned pair."""
    starts = active_starts(reference)
    r, o = (rows_at(x, starts, SEGMENT) for x in (reference, output))
    snr = np.clip(decibel(np.sum(r**2, 1)) - decibel(np.sum((r - o) ** 2, 1)), -10, 35)
    window = 0.5 - 0.5 * np.cos(2 * np.pi * (np.arange(WINDOW) + 0.5) / WINDOW)
    spectra = [np.abs(np.fft.rfft(rows_at(x, starts, WINDOW) * window)[:, : WINDOW // 2]) ** 2
               for x in (reference, output)]
    counted = spectra[0] >= 1e-4 * np.max(spectra[0], axis=1, keepdims=True)
    d = decibel(spectra[1] + 1) - decibel(spectra[0] + 1)
    distance = np.sqrt(np.sum(counted * d**2, 1) / np.maximum(1, np.sum(counted, 1)))
    return snr, distance, np.sum(r**2, 1), np.sum(o**2, 1)


class Tally:
    """Means over all active segments of many signals."""

    def __init__(self):
        self.columns = [[], [], [], []]

    def add(self, reference, output):
        for column, values in zip(self.columns, segment_measures(*aligned(reference, output))):
            column.append(values)

    def _all(self, i):
        return np.concatenate(self.columns[i])

    segmental = property(lambda self: float(np.mean(self._all(0))))
    distance = property(lambda self: float(np.mean(self._all(1))))
    level = property(lambda self: float(decibel(np.sum(self._all(3))) - decibel(np.sum(self._all(2)))))


def compare(signals, outputs, reference=high_passed):
    tally = Tally()
    for x, y in zip(signals, outputs):
        tally.add(reference(x), y)
    return tally
