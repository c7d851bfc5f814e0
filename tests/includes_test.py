#!/usr/bin/python3
"""includes_test.py ROOT: a folder includes only what lies below it; the codec knows no GStreamer."""
import re
import sys
from pathlib import Path

HOUSE = r'#include ["<]((?:codec|src|tools|tests|bench|gst|glib)\b[^">]+)'
SEES = {
    "src/audio/g729f": r"src/|codec/g729\.h|gst/|glib",
    "tools": r"tools/|codec/g729(_rating)?\.h",
    "tools/capture": r"tools/|codec/g729\.h",
    "codec": r"codec/",
    "codec/encoder": r"codec/(encoder|dtx|dsp)/",
    "codec/decoder": r"codec/(decoder|dtx|dsp)/",
    "codec/dtx": r"codec/(dtx|dsp)/",
    "codec/dsp": r"codec/dsp/",
    "codec/dsp/tables": r"codec/dsp/(tables/|constants\.h)",
    "codec/dsp/simd": r"codec/dsp/simd/",
}
upward = []
for folder, sees in SEES.items():
    files = list((Path(sys.argv[1]) / folder).glob("*.[hc]*"))
    assert files, folder
    upward += [f"{file}: {name}" for file in files for name in re.findall(HOUSE, file.read_text())
               if not re.match(sees, name)]
sys.exit("\n".join(["upward:", *upward]) if upward else 0)
