"""Plots as the documents hold them."""
import io

import matplotlib.pyplot as plt
from PIL import Image


def save(figure, path):
    drawn = io.BytesIO()
    figure.savefig(drawn, dpi=80)
    plt.close(figure)
    Image.open(drawn).convert("RGB").quantize(64).save(path, optimize=True)  # small enough for git
