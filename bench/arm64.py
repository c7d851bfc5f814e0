#!/usr/bin/python3
"""What the compiler makes of the codec on 64-bit ARM: NEON and scalar instructions of every kernel from
the disassembly, and instructions a frame, counted by QEMU, against those of x86-64 with SSE2, counted by
callgrind. Both run the same program over the same generated speech. Writes docs/performance.md.

Needs g++-aarch64-linux-gnu, qemu-user and valgrind.

usage: bench/arm64.py [CHECKOUT]    CHECKOUT: another state of the sources, to show both
"""
import re
import subprocess
import sys
from pathlib import Path

import common
import performance

FEW, MANY = 100, 500  # frames
LEAST = 150  # instructions of a kernel worth a row
CROSS = common.ROOT / "tools/arm64/cross.ini"
SPEECH = """#include "bench/speech.h"
#include "tests/support/signals.h"
bench::Speech bench::load_speech(int) { return {"generated", signals::speech_like(600)}; }
"""


def library(source, folder, options):
    """The codec of a checkout, built in the folder."""
    if not (folder / "build.ninja").exists():
        common.run(["meson", "setup", folder, source, "--buildtype=release", "-Dfuzz=off",
                    *(f"-D{part}=disabled" for part in ("plugin", "tools", "tests", "bench")), *options])
    common.run(["ninja", "-C", folder])
    return next((folder / "codec").glob("libkelg729f*.a"))


def program(source, folder, lib, compiler, targets):
    speech = folder / "speech.cpp"
    speech.write_text(SPEECH)
    out = folder / "codec-run"
    common.run([compiler, "-static", "-std=c++20", "-O2", f"-I{source}", f"-DKELG729F_TARGETS={targets}",
                source / "bench/codec_run.cpp", speech, lib, "-o", out])
    return out


def on_arm(folder):
    plugin, program = folder / "count.so", folder / "codec-run"

    def count(*args):
        done = subprocess.run(["qemu-aarch64", "-plugin", plugin, program, *args], capture_output=True, text=True)
        found = re.search(r"^instructions (\d+)$", done.stderr, re.M)
        return int(found.group(1)) if found else None

    for version in range(1, 9):  # of QEMU's interface to plug-ins: the first that this QEMU takes
        common.run(["cc", "-shared", "-fPIC", "-O2", f"-DPLUGIN_VERSION={version}",
                    common.ROOT / "bench/qemu_count.c", "-o", plugin])
        if count("encode", "--frames", "1"):
            return count
    sys.exit("this QEMU does not take the plug-in")


def on_x86(folder):
    out = folder / "callgrind.out"

    def count(*args):
        common.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", folder / "codec-run", *args,
                    "--target", "sse2"])
        return int(re.search(r"^(?:summary|totals): (\d+)", out.read_text(), re.M).group(1))

    return count


def frames(count):
    """Instructions a frame; the decoder's input is encoded by the same process, which is taken off."""
    result = {}
    for rate in ("8k", "6k4", "11k8"):
        for dtx in ([], ["--annexb"]):
            spent = {}
            for way in ("encode", "decode"):
                few, many = (count(way, "--rate", rate, *dtx, "--frames", str(n)) for n in (FEW, MANY))
                spent[way] = (many - few) / (MANY - FEW) - spent.get("encode", 0)
            result[rate + (" dtx" if dtx else "")] = spent
    return result


def kernels(lib):
    """NEON, scalar floating-point and all instructions by function."""
    listing = common.run(["aarch64-linux-gnu-objdump", "-d", "-C", "--no-show-raw-insn", lib])
    result, counts = {}, None
    for line in listing.splitlines():
        if found := re.match(r"[0-9a-f]+ <(.*)>:$", line):
            name = re.split(r"[(<]", found[1].replace("(anonymous namespace)", "anonymous"))[0].split("::")[-1]
            counts = result.setdefault(name, [0, 0, 0]) if "g729::generic::" in found[1] else None
        elif counts and (found := re.match(r"\s+[0-9a-f]+:\s+(\S+)\s*(.*)", line)):
            counts[0] += bool(re.search(r"\bv\d+\.\d+[bhsd]\b", found[2]))
            counts[1] += found[1].startswith("f") and bool(re.search(r"\b[ds]\d+\b", found[2]))
            counts[2] += 1
    return {name: c for name, c in result.items() if c[2] >= LEAST and c[0] + c[1] > c[2] / 10}


def main():
    for tool in ("aarch64-linux-gnu-g++", "qemu-aarch64", "valgrind"):
        if not common.which(tool):
            sys.exit(f"{tool} is needed")
    meanwhile = common.Meanwhile()
    base = common.BUILD / "arm64"
    base.mkdir(parents=True, exist_ok=True)
    (base / "sysroot.ini").write_text("[constants]\nsysroot = '/usr/aarch64-linux-gnu'\n")
    cross = ["--cross-file", base / "sysroot.ini", "--cross-file", CROSS]
    data = {}
    for name, source in (("before", sys.argv[1] if sys.argv[1:] else None), ("now", common.ROOT)):
        if source:
            source, folder = Path(source).resolve(), base / name
            lib = library(source, folder, cross)
            program(source, folder, lib, "aarch64-linux-gnu-g++", "X(generic)")
            data[name] = {"kernels": kernels(lib), "frames": frames(on_arm(folder))}
    folder = base / "sse2"
    program(common.ROOT, folder, library(common.ROOT, folder, ["-Dinstruction_sets=sse2"]), "c++", "X(sse2)")
    common.save("arm64", {**data, "sse2": frames(on_x86(folder))}, meanwhile)
    performance.write("arm64")


main()
