"""Concealment of lost frames: quality against loss, loudness of bursts, time until recovery."""
import numpy as np

from measure import (FRAME, RATES, compare, decibel, decode, encode, erased, frame_starts)

LOSSES = (0, 1, 3, 5, 10, 20)  # per cent of the frames
BURST_LENGTHS = range(1, 7)
APART = 60      # frames from burst to burst when single bursts are measured
HISTORY = 10    # frames before a burst
TOLERANCE = 3   # dB
STEADY = 3      # frames in a row that count as recovered


def random_losses(random, frames, loss):
    return random.random(frames) < loss


def bursty_losses(random, frames, loss):
    """Bursts of 1 to 6 frames, all equally likely, with geometric gaps between."""
    mean = np.mean(BURST_LENGTHS)
    lost, at = np.zeros(frames, bool), 0
    while loss > 0:
        at += random.geometric(1 / max(1, mean * (1 - loss) / loss))
        if at >= frames:
            break
        length = random.integers(BURST_LENGTHS[0], BURST_LENGTHS[-1] + 1)
        lost[at : at + length] = True
        at += length
    return lost


PATTERNS = {"random": random_losses, "bursty": bursty_losses}


def coded(tool, signals):
    return {rate: encode(tool, signals, "--rate", rate) for rate in RATES}


def quality_curves(tool, signals, streams):
    """(pattern, rate) to lists of true loss (%), segmental SNR and log-spectral distance."""
    curves = {}
    for pattern, losses in PATTERNS.items():
        for rate in RATES:
            points = []
            for loss in LOSSES:
                random = np.random.default_rng(loss)
                lost = [losses(random, len(frame_starts(s)), loss / 100) for s in streams[rate]]
                outputs = decode(tool, [erased(s, l) for s, l in zip(streams[rate], lost)])
                tally = compare(signals, outputs)
                points.append((100 * np.mean(np.concatenate(lost)), tally.segmental, tally.distance))
            curves[pattern, rate] = np.array(points).T
    return curves


def curve_table(curves):
    lines = ["| losses | rate | " + " | ".join(f"{loss} %" for loss in LOSSES) + " |",
             "|---|---|" + "---|" * len(LOSSES)]
    for (pattern, rate), (_, segmental, distance) in curves.items():
        cells = " | ".join(f"{s:.2f}, {d:.2f}" for s, d in zip(segmental, distance))
        lines.append(f"| {pattern} | {rate} | {cells} |")
    return "\n".join(lines)


def power(x, length=FRAME):
    return np.mean(x[: len(x) // length * length].reshape(-1, length) ** 2, axis=1)


class Bursts:
    """What single bursts do to the decoded signal, in dB or frames, one entry a burst."""

    def __init__(self):
        self.mean, self.clean_mean, self.steady_mean = [], [], []
        self.peak, self.peak_excess, self.recovery = [], [], []

    def add(self, clean, disturbed, start, length):
        end = start + length
        floor = 1e-4 * np.max(power(clean))
        frames = [decibel(power(x) + floor) for x in (disturbed, clean)]
        history = slice(start - HISTORY, start)
        for column, x in ((self.mean, disturbed), (self.clean_mean, clean)):
            p = power(x) + floor
            column.append(decibel(np.mean(p[start:end])) - decibel(np.mean(p[history])))
        p = power(disturbed)
        if p[start - 1] <= np.mean(p[history]):
            self.steady_mean.append(self.mean[-1])
        fine = [decibel(power(x, FRAME // 2) + floor) for x in (disturbed, clean)]
        fine_past, fine_burst = slice(2 * start - 2 * HISTORY, 2 * start), slice(2 * start, 2 * end)
        found, before = np.max(fine[0][fine_burst]), np.max(fine[0][fine_past])
        self.peak.append(found - before)
        self.peak_excess.append(found - max(before, np.max(fine[1][fine_burst])))
        after = slice(end, start + APART - HISTORY)
        near = np.abs(frames[0][after] - frames[1][after]) <= TOLERANCE
        steady = np.convolve(near, np.ones(STEADY), "valid") == STEADY
        if frames[1][start:end].max() > decibel(10 * floor) and np.any(steady):
            self.recovery.append(int(np.argmax(steady)))


def measure_bursts(tool, streams, length):
    random, lost, starts = np.random.default_rng(length), [], []
    for words in streams:
        frames = len(frame_starts(words))
        starts.append(np.arange(HISTORY + random.integers(APART), frames - APART, APART))
        lost.append(np.isin(np.arange(frames), starts[-1][:, None] + np.arange(length)))
    clean = decode(tool, streams)
    disturbed = decode(tool, [erased(s, l) for s, l in zip(streams, lost)])
    bursts = Bursts()
    for c, d, at in zip(clean, disturbed, starts):
        for start in at:
            bursts.add(c, d, start, length)
    return bursts


def louder(values):
    values = np.array(values)
    return f"{100 * np.mean(values > TOLERANCE):.1f} % ({np.max(values):+.0f})"


def burst_table(tool, streams):
    lines = ["| rate | burst | bursts | burst above the mean | after a level signal | undisturbed "
             "| peak above the peak before | and above the undisturbed | recovered after: mean | 95 % "
             "| longest |", "|---" * 11 + "|"]
    for rate in RATES:
        for length in BURST_LENGTHS:
            b = measure_bursts(tool, streams[rate], length)
            loudness = (b.mean, b.steady_mean, b.clean_mean, b.peak, b.peak_excess)
            lines.append(f"| {rate} | {length} | {len(b.mean)} | {' | '.join(map(louder, loudness))} "
                         f"| {np.mean(b.recovery):.1f} | {np.percentile(b.recovery, 95):.0f} "
                         f"| {np.max(b.recovery)} |")
    return "\n".join(lines)
