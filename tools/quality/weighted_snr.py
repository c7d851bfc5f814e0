"""Frequency-weighted segmental SNR (Hu and Loizou, 2008) and log-spectral distance."""
import numpy as np

from measure import RATE, decibel

LENGTH, STEP, FFT = 240, 60, 512  # samples: 30 ms, three quarters of overlap
LEAST, MOST = -10, 35             # dB
POWER = 0.2                       # of a band's level in its weight
ACTIVE = 40                       # dB below the loudest frame
# Critical bands: centre and width in Hz.
CENTRES = np.array([50, 120, 190, 260, 330, 400, 470, 540, 617.372, 703.378, 798.717, 904.128,
                    1020.38, 1148.30, 1288.72, 1442.54, 1610.70, 1794.16, 1993.93, 2211.08,
                    2446.71, 2701.97, 2978.04, 3276.17, 3597.63])
WIDTHS = np.array([70, 70, 70, 70, 70, 70, 70, 77.3724, 86.0056, 95.3398, 105.411, 116.256,
                   127.914, 140.423, 153.823, 168.154, 183.457, 199.776, 217.153, 235.631,
                   255.255, 276.072, 298.126, 321.465, 346.136])


def band_filters():
    bins = np.arange(FFT // 2) * RATE / FFT
    shape = np.exp(-11 * ((bins - CENTRES[:, None]) / WIDTHS[:, None]) ** 2 + np.log(WIDTHS[0] / WIDTHS[:, None]))
    return np.where(shape > 10 ** (-30 / 20), shape, 0)


FILTERS, HANN = band_filters(), np.hanning(LENGTH + 2)[1:-1]


def spectra(x):
    frames = np.lib.stride_tricks.sliding_window_view(x, LENGTH)[::STEP]
    return np.abs(np.fft.rfft(frames * HANN, FFT)[:, : FFT // 2])


def weighted_snr(x, y):
    """fwSNRseg and log-spectral distance (dB) of an aligned pair, over the frames that are not silent."""
    a, b = spectra(x), spectra(y)
    level = decibel(np.sum(a**2, 1))
    a, b = a[level > np.max(level) - ACTIVE], b[level > np.max(level) - ACTIVE]
    distance = np.sqrt(np.mean((decibel(a**2 + 1) - decibel(b**2 + 1)) ** 2, 1))
    a, b = (s / np.sum(s, 1, keepdims=True) @ FILTERS.T for s in (a, b))
    snr = np.clip(20 * np.log10((a + 1e-12) / (np.abs(a - b) + 1e-12)), LEAST, MOST)
    weight = a**POWER
    return float(np.mean(np.sum(weight * snr, 1) / np.sum(weight, 1))), float(np.mean(distance))
