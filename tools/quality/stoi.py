"""Short-time objective intelligibility (Taal, Hendriks, Heusdens, Jensen, 2011), 0 to 1."""
import numpy as np
from scipy import signal

RATE, FRAME, FFT = 10000, 256, 512
BANDS, LOWEST = 15, 150  # third octaves, centre of the first in Hz
SEGMENT = 30             # frames
CLIP = 1 + 10 ** (15 / 20)
SILENT = 40              # dB below the loudest frame


def frames(x):
    return np.lib.stride_tricks.sliding_window_view(x, FRAME)[:: FRAME // 2] * np.hanning(FRAME + 2)[1:-1]


def without_silence(x, y):
    """Both signals, put together again from the frames in which x is not silent."""
    parts = [frames(s) for s in (x, y)]
    level = 20 * np.log10(np.linalg.norm(parts[0], axis=1) + 1e-12)
    kept = level > np.max(level) - SILENT
    joined = np.zeros((2, (np.count_nonzero(kept) + 1) * FRAME // 2))
    for out, part in zip(joined, parts):
        for i, frame in enumerate(part[kept]):
            out[i * FRAME // 2 :][:FRAME] += frame
    return joined


def band_matrix():
    bins = np.arange(FFT // 2 + 1) * RATE / FFT
    centres = LOWEST * 2 ** (np.arange(BANDS) / 3)
    edges = [np.argmin(np.abs(bins[:, None] - centres * 2**side), axis=0) for side in (-1 / 6, 1 / 6)]
    index = np.arange(len(bins))
    return ((index >= edges[0][:, None]) & (index < edges[1][:, None])).astype(float)


def band_levels(x):
    return np.sqrt(band_matrix() @ np.abs(np.fft.rfft(frames(x), FFT).T) ** 2)


def stoi(x, y, rate):
    x, y = without_silence(*(signal.resample_poly(s, RATE, rate) for s in (x, y)))
    segments = [np.lib.stride_tricks.sliding_window_view(band_levels(s), SEGMENT, axis=1)
                for s in (x, y)]
    a, b = segments
    norm = lambda s: np.linalg.norm(s, axis=2, keepdims=True) + 1e-12
    b = np.minimum(b * norm(a) / norm(b), a * CLIP)
    a, b = (s - np.mean(s, axis=2, keepdims=True) for s in (a, b))
    return float(np.mean(np.sum(a / norm(a) * b / norm(b), axis=2)))


def normalised(s):
    """Each row, then each column of the segments free of its mean and of unit length."""
    for axis in (2, 1):
        s = s - np.mean(s, axis=axis, keepdims=True)
        s = s / (np.linalg.norm(s, axis=axis, keepdims=True) + 1e-12)
    return s


def estoi(x, y, rate):
    """Extended STOI (Jensen and Taal, 2016): spectra correlate too, not only envelopes."""
    x, y = without_silence(*(signal.resample_poly(s, RATE, rate) for s in (x, y)))
    a, b = (normalised(np.moveaxis(
        np.lib.stride_tricks.sliding_window_view(band_levels(s), SEGMENT, axis=1), 1, 0))
        for s in (x, y))
    return float(np.mean(np.sum(a * b, axis=(1, 2))) / SEGMENT)
