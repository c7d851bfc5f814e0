"""Writes sections of docs/performance.md and their plots from what the measuring scripts found."""
import common
from common import ROOT, median

DOCS = ROOT / "docs"


def table(head, rows, left=1):
    """A Markdown table; all but the first `left` columns are numbers."""
    lines = ["| " + " | ".join(head) + " |",
             "|" + "|".join("---" if i < left else "---:" for i in range(len(head))) + "|"]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)


def plot(name, draw, width=8, height=4):
    """Saves what draw(axes) draws; returns its Markdown."""
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(figsize=(width, height))
    draw(axes)
    figure.tight_layout()
    figure.savefig(DOCS / f"{name}.png", dpi=110)
    pyplot.close(figure)
    return f"![{name}]({name}.png)"


def thousands(value):
    return f"{value:,.0f}"


# ---- against other codecs -------------------------------------------------------------------

def multiples(data, name, direction):
    """Multiples of real time: the median round and the spread of all."""
    runs = [data["seconds"] / r[name][direction] for r in data["rounds"]]
    return median(runs), min(runs), max(runs)


def ratio(data, name, direction):
    """How many times faster ours is: the median of the ratios within a round."""
    return median(r[name][direction] / r[data["ours"]][direction] for r in data["rounds"])


def tool_multiple(data, name, direction):
    return data["seconds"] / median(run[direction] for run in data["tools"][name])


def comparison_rows(data):
    peers = [n for n in data["names"] if not n.startswith(data["ours"] + ",")]
    rows = []
    for name in peers:
        row = [name]
        for direction in ("encode", "decode"):
            mid, low, high = multiples(data, name, direction)
            row += [f"{thousands(mid)} ({thousands(low)} to {thousands(high)})",
                    "" if name == data["ours"] else f"{ratio(data, name, direction):.2f}"]
        rows.append(row)
    ours = f"{data['ours']} (tool)"
    for name in data["tools"]:
        row = [name]
        for direction in ("encode", "decode"):
            mid = tool_multiple(data, name, direction)
            against = tool_multiple(data, ours, direction) / mid if ours in data["tools"] else 0
            row += [thousands(mid), "" if name == ours or not against else f"{against:.2f}"]
        rows.append(row)
    return rows


def comparison_plot(data):
    names = [n for n in data["names"] if not n.startswith(data["ours"] + ",")][::-1]

    def draw(axes):
        for offset, direction in ((0.2, "encode"), (-0.2, "decode")):
            values = [multiples(data, n, direction)[0] for n in names]
            bars = axes.barh([i + offset for i in range(len(names))], values, 0.38, label=direction)
            axes.bar_label(bars, [thousands(v) for v in values], padding=3, fontsize=8)
        axes.set_yticks(range(len(names)), names, fontsize=8)
        axes.set_xscale("log")
        axes.set_xlabel("multiples of real time on one core")
        axes.margins(x=0.15)
        axes.legend()

    return plot("comparison", draw)


# Goals: what, the least ratio to a codec or the least multiple of real time.
GOALS = [
    ("encode at least 7.5 times AMR-NB 7.95", "encode", "AMR-NB 7.95 kbit/s", 7.5),
    ("encode at least 4 times Speex", "encode", "Speex narrow band, quality 4, complexity 3", 4),
    ("decode at least 4 times AMR-NB 7.95", "decode", "AMR-NB 7.95 kbit/s", 4),
]


def goal_rows(data):
    rows = []
    for text, direction, peer, least in GOALS:
        if peer in data["names"]:
            got = ratio(data, peer, direction)
            rows.append([text, f"{got:.2f} times", "yes" if got >= least else "no"])
    ours = data["ours"]
    for direction in ("encode", "decode"):
        ahead = {n: ratio(data, n, direction) for n in data["names"] if not n.startswith(ours)}
        mine = f"{ours} (tool)"
        if mine in data["tools"]:
            ahead |= {n: tool_multiple(data, mine, direction) / tool_multiple(data, n, direction)
                      for n in data["tools"] if n != mine}
        name, least = min(ahead.items(), key=lambda item: item[1])
        rows.append([f"{direction} ahead of every other codec", f"{least:.2f} times {name}",
                     "yes" if least > 1 else "no"])
    return rows


def frames_rows(data):
    rows = []
    for frames in (1, 2, 10, 100):
        name = data["ours"] if frames == 2 else f"{data['ours']}, frames={frames}"
        row = [frames]
        for direction in ("encode", "decode"):
            mid = multiples(data, name, direction)[0]
            row += [thousands(mid), f"{1e7 / mid:.0f}"]
        rows.append(row)
    return rows


def comparison(data):
    minutes = data["seconds"] / 60
    text = f"""## Against other codecs

GStreamer 1.22 pipelines over the recordings of Debian's `asterisk-core-sounds-en-wav`, joined
({minutes:.0f} minutes). CPU time (user and system) less that of the same pipeline without the codec;
every round measures all codecs in turn, {len(data['rounds'])} rounds; the median, in brackets the least and the
greatest. "Ours is faster" is the median of the ratios within a round. Tools are whole processes and
stand beside our own tool. One core does all the work.

"""
    text += table(["codec", "encode, times real time", "ours is faster", "decode, times real time",
                   "ours is faster"], comparison_rows(data))
    text += f"\n\n{comparison_plot(data)}\n\n" + table(["goal", "measured", "met"], goal_rows(data))
    text += """

How many frames a buffer holds (`frames` of the encoder; the decoder is given buffers of that size).
What a buffer costs besides the codec, in the base class and the scheduler of pads, is what falls
away from one row to the next:

"""
    return text + table(["frames", "encode, times real time", "ns a frame", "decode, times real time", "ns a frame"],
                        frames_rows(data))


# ---- stages ---------------------------------------------------------------------------------

def stage_table(data, direction):
    part, peak = data[direction], data["peak"][data[direction]["target"]]
    rows = []
    for stage in [*part["stages"], {"name": "not told apart", "share": part["outside"], "multiply_adds": 0, "why": ""}]:
        took, adds = stage["share"] * part["ns_per_frame"], stage["multiply_adds"]
        if took < 0.5 and not adds:
            continue
        limit = 1e9 * adds / peak
        rows.append([stage["name"], f"{100 * stage['share']:.1f} %", f"{took:.0f}",
                     thousands(adds) if adds else "", f"{limit:.0f}" if adds else "", stage["why"]])
    adds = sum(s["multiply_adds"] for s in part["stages"])
    rows.append(["**all**", "100 %", f"{part['ns_per_frame']:.0f}", thousands(adds), f"{1e9 * adds / peak:.0f}", ""])
    return table(["stage", "share", "takes, ns", "multiply-adds", "at the peak, ns", "counted from"], rows)


def stage_plot(data):
    def draw(axes):
        for row, direction in enumerate(("decode", "encode")):
            left = 0
            stages = sorted(data[direction]["stages"], key=lambda s: -s["share"])
            for stage in stages:
                took = stage["share"] * data[direction]["ns_per_frame"]
                bar = axes.barh(row, took, left=left, edgecolor="white")
                if took > 250:
                    axes.text(left + took / 2, row, stage["name"], rotation=90, ha="center", va="center", fontsize=7)
                left += took
        axes.set_yticks([0, 1], ["decode", "encode"])
        axes.set_xlabel("ns a frame of 10 ms")

    return plot("stages", draw, height=4.5)


def summary(data, direction):
    part, peak = data[direction], data["peak"][data[direction]["target"]]
    limit = 1e9 * sum(s["multiply_adds"] for s in part["stages"]) / peak
    return limit, part["ns_per_frame"] / limit


def distances(data, direction, count=4):
    """The stages that are farthest from their limit."""
    part, peak = data[direction], data["peak"][data[direction]["target"]]
    beyond = {s["name"]: s["share"] * part["ns_per_frame"] - 1e9 * s["multiply_adds"] / peak for s in part["stages"]}
    largest = sorted(beyond, key=lambda name: -beyond[name])[:count]
    return ", ".join(f"{name} {beyond[name]:.0f}" for name in largest)


def build_table(data):
    """Codec by build and setting."""
    builds = list(data["peak"])
    names = {"8k": "8 kbit/s", "8k_dtx": "8 kbit/s, silence compression", "6k4": "6.4 kbit/s",
             "6k4_dtx": "6.4 kbit/s, silence compression", "11k8": "11.8 kbit/s",
             "11k8_dtx": "11.8 kbit/s, silence compression"}
    rows = []
    for direction in ("encode", "decode"):
        for key, text in names.items():
            times = [data["times"][f"{direction}/{build}/{key}"] for build in builds]
            rows.append([direction, text, *(f"{1e9 * t:.0f}" for t in times), thousands(0.01 / times[-1])])
    return table(["", "rate", *(f"{b}, ns" for b in builds), "times real time"], rows, left=2)


def kernel_table(data):
    builds = list(data["peak"])
    names = [n.split("/")[2] for n in data["times"] if n.startswith(f"kernel/{builds[0]}/")]
    return table(["kernel", *(f"{b}, ns a frame" for b in builds)],
                 [[f"`{n}`", *(f"{1e9 * data['times'][f'kernel/{b}/{n}']:.0f}" for b in builds)] for n in names])


def instruction_table(counts):
    names = {"6k4": "6.4 kbit/s", "8k": "8 kbit/s", "11k8": "11.8 kbit/s"}
    rows = []
    for key in counts["encode"]:
        rate, _, dtx = key.partition(" ")
        rows.append([names[rate], "on" if dtx else "off", *(thousands(counts[d][key]) for d in ("encode", "decode"))])
    return table(["rate", "silence compression", "encode", "decode"], rows, left=2)


def instructions(data):
    text = f"""## Instructions

Instructions a frame on the AVX2 build, counted by callgrind.

{instruction_table(data["callgrind"])}

"""
    if not data["perf"]:
        return text + "`perf` has no hardware counters on this machine."
    return text + f"On the best build, counted by `perf`:\n\n{instruction_table(data['perf'])}"


def levels(data):
    rows = []
    for rate, of_level in data["rates"].items():
        for level, cost in enumerate(of_level):
            rows.append([rate, level, f"{cost['ns']:.0f}", f"{cost['multiple']:.2f}", f"{cost['instructions']:,.0f}",
                         f"{cost['instructions'] / of_level[0]['instructions']:.2f}", f"{1e7 / cost['ns']:,.0f}"])
    head = ["rate", "`complexity`", "ns a frame", "times level 0", "instructions, AVX2", "times level 0",
            "times real time"]
    return f"""## Levels of the search

What the encoder takes for a frame of speech at each `complexity` (`bench/levels`): CPU time of the best
build, the median of {data['rounds']} rounds that go through all levels in turn, and instructions of the AVX2 build.

{table(head, rows)}"""


def profile(data):
    encode, decode = (summary(data, d) for d in ("encode", "decode"))
    peaks = ", ".join(f"{name} {value * 1e-9:.1f}" for name, value in data["peak"].items())
    return f"""## Where the time goes

One frame of 10 ms at 8 kbit/s, the {data['encode']['target']} build: samples of the CPU clock with their call chains
(`bench/profile`). "Multiply-adds" is the arithmetic that the algorithm cannot avoid, on doubles, from the
standard's sizes; "at the peak" the time of that many multiply-adds at the rate at which this machine
does them in registers (`bench/peak.cpp`; billions a second: {peaks}). Products and sums are not fused, so
that all machines agree.

### Encoder

{stage_table(data, "encode")}

### Decoder

{stage_table(data, "decode")}

{stage_plot(data)}

The arithmetic alone would take {encode[0]:.0f} ns to encode and {decode[0]:.0f} ns to decode; the codec takes
{encode[1]:.1f} and {decode[1]:.1f} times that. The largest distances, nanoseconds beyond the peak: encoder
{distances(data, "encode")}; decoder {distances(data, "decode")}. Recursions (order-10 synthesis filters, Levinson-Durbin, biquads) wait for
their last result, a latency that no vector hides; searches compare after every few multiply-adds; elementary
functions, divisions and square roots are not in the count at all.

### Builds and kernels

`build/bench/codec-bench` on {data['speech']}: CPU time of a frame by instruction set. All builds give
the same bits. "times real time" is that of the last column.

{build_table(data)}

Kernels by themselves, the calls of a frame together; not every frame runs every kernel:

{kernel_table(data)}"""


# ---- 64-bit ARM -----------------------------------------------------------------------------

def arm_frame_rows(data):
    states = [name for name in ("before", "now") if name in data]
    rows = []
    for setting, sse2 in data["sse2"].items():
        rate, _, dtx = setting.partition(" ")
        for way in ("encode", "decode"):
            mine = [data[name]["frames"][setting][way] for name in states]
            rows.append([way, rate, "on" if dtx else "off", thousands(sse2[way]), *map(thousands, mine),
                         f"{mine[-1] / sse2[way]:.2f}"])
    return ["", "rate", "silence compression", "SSE2", *(f"ARM, {name}" for name in states), "ARM / SSE2"], rows


def arm_kernel_rows(data):
    states = [name for name in ("before", "now") if name in data]
    rows = []
    for kernel in data["now"]["kernels"]:
        counts = [data[name]["kernels"].get(kernel, ["", "", ""]) for name in states]
        rows.append([f"`{kernel}`", *(cell for three in counts for cell in three)])
    return ["kernel", *(f"{what}, {name}" for name in states for what in ("NEON", "scalar", "all"))], rows


def arm64(data):
    frame_head, frames = arm_frame_rows(data)
    kernel_head, kernels = arm_kernel_rows(data)
    return f"""## 64-bit ARM

Instructions a frame of the same program over the same generated speech (`bench/arm64.py`): 64-bit ARM
counted by QEMU, x86-64 with SSE2, whose registers are as wide, by callgrind.

{table(frame_head, frames, left=3)}

What the compiler makes of the larger kernels: instructions on NEON vectors, scalar ones on floating-point
numbers, and all, in the disassembly (not how often each runs).

{table(kernel_head, kernels)}"""


# ---- growth ---------------------------------------------------------------------------------

def span(frames):
    seconds = frames / 100
    return f"{seconds / 3600:g} h" if seconds >= 3600 else f"{seconds:g} s"


def growth_rows(data):
    encode, decode = data["growth"]["encode"], data["growth"]["decode"]
    return [[span(e["frames"]), f"{e['ns_per_frame']:.0f}", f"{e['memory_growth'] / 1024:.0f}",
             f"{d['ns_per_frame']:.0f}", f"{d['memory_growth'] / 1024:.0f}"] for e, d in zip(encode, decode)]


def type_rows(data):
    return [[name, *(f"{data['types'][d][key]['ns']:.0f}" for d in ("encode", "decode"))]
            for name, key in (("speech", "speech"), ("silence descriptor", "descriptor"),
                              ("not transmitted", "untransmitted"))]


def signal_rows(data):
    names = {"speech": "speech", "noise": "faint noise", "zeros": "digital silence"}
    return [[text, *(f"{v:.0f}" for d in ("encode", "decode") for v in data["signals"][d][key])]
            for key, text in names.items()]


def silence_holds(data):
    worst = max(data["types"][d][key]["ns"] / data["types"][d]["speech"]["ns"]
                for d in ("encode", "decode") for key in ("descriptor", "untransmitted"))
    return f"The dearest silent frame costs {worst:.2f} times a speech frame."


def handle_text(data):
    sizes = {d: data["growth"][d][0]["handle_bytes"] / 1024 for d in ("encode", "decode")}
    return (f"An encoder's handle takes {sizes['encode']:.1f} KiB, a decoder's {sizes['decode']:.1f} KiB, "
            f"together {sum(sizes.values()):.1f} KiB; handles share constants only.")


def scaling(data):
    return f"""## How cost grows

The codec alone, 8 kbit/s (`bench/scaling`). Memory is what the process takes more at the end than before
the first frame: the handle and the code and tables that are touched for the first time.

{handle_text(data)}

{table(["length of the call", "encode, ns a frame", "memory, KiB", "decode, ns a frame", "memory, KiB"], growth_rows(data))}

With silence compression, by what is sent of a frame (ns). {silence_holds(data)}

{table(["frame", "encode", "decode"], type_rows(data))}

Signals without speech, silence compression off and on (ns a frame):

{table(["signal", "encode", "encode, on", "decode", "decode, on"], signal_rows(data))}"""


# ---- calls ----------------------------------------------------------------------------------

def call_row(run):
    if "failed" in run:
        return [run["channels"], run["failed"], "", "", "", "", ""]
    late = run["late_ms"]
    lost = max(0, run["sent"] - run["arrived"])
    return [run["channels"], f"{run['cores_used']:.2f}", f"{late['median']:.2f}", f"{late['p999']:.2f}",
            late_text(late["max"]), thousands(lost), run["threads"]]


def late_text(ms):
    return "over 1000" if ms >= 1000 else f"{ms:.1f}"


CALL_HEAD = ["calls", "cores used", "late, median ms", "99.9 %", "latest", "not arrived", "threads"]


def density_plot(data):
    runs = [r for r in data["sweep"] if "failed" not in r]

    def draw(axes):
        n = [r["channels"] for r in runs]
        axes.plot(n, [r["channels"] / r["cores_used"] for r in runs], "o-", color="tab:blue")
        axes.set_xlabel("calls in the process, on one core")
        axes.set_ylabel("calls a core, N / cores used", color="tab:blue")
        axes.set_ylim(bottom=0)
        right = axes.twinx()
        right.plot(n, [min(r["late_ms"]["max"], 1000) for r in runs], "s--", color="tab:red", label="latest")
        right.plot(n, [min(r["late_ms"]["p999"], 1000) for r in runs], "^:", color="tab:orange", label="99.9 %")
        right.axhline(10, color="tab:red", linewidth=0.7)
        right.set_yscale("log")
        right.set_ylabel("late, ms", color="tab:red")
        right.legend(loc="lower right")

    return plot("density", draw)


def part_rows(data):
    parts, n = data["parts"], data["parts"]["all"]["channels"]
    cost = {name: 1e6 * run["cores_used"] / n / 50 for name, run in parts.items()}
    framework = cost["without both"]
    udp = cost["without codec"] - framework
    codec = cost["all"] - cost["without codec"]
    share = lambda value: f"{100 * value / cost['all']:.0f} %"
    return [["source, payloader, depayloader, a waking thread", f"{framework:.1f}", share(framework)],
            ["UDP: sockets, system calls, a second waking thread", f"{udp:.1f}", share(udp)],
            ["encoder and decoder elements, the codec in them", f"{codec:.1f}", share(codec)],
            ["**all**", f"{cost['all']:.1f}", "100 %"]]


def memory_text(data):
    runs = [r for r in data["sweep"] + data["fixed"] if "failed" not in r and r["channels"] >= 50]
    if not runs:
        runs = [r for r in data["sweep"] if "failed" not in r]
    return f"{median(r['bytes_per_channel'] for r in runs) / 1024:.0f} KiB"


def limit_text(data):
    """What limits, from the parts and from the codec's own time where that was measured."""
    parts, n, own = data["parts"], data["parts"]["all"]["channels"], common.load("profile")
    per_buffer = lambda run: 1e6 * run["cores_used"] / n / 50
    elements = per_buffer(parts["all"]) - per_buffer(parts["without codec"])
    threads = parts["all"]["threads"] / n
    text = ""
    if own:
        codec = 2e-3 * (own["encode"]["ns_per_frame"] + own["decode"]["ns_per_frame"])
        text = (f"Of the elements' {elements:.1f} us the codec takes {codec:.1f} us when it runs without pause; the rest is "
                "buffers, the base classes, and code and tables that have left the caches since the core last served "
                f"a call. That is {100 * codec / per_buffer(parts['all']):.0f} % of a call: what limits is ")
        text += "the codec. " if codec > 0.5 * per_buffer(parts["all"]) else "not the codec but what surrounds it. "
    return text + (f"A call has {threads:.1f} threads; its source and its receiver wake 50 times a second each, with the "
                   "system calls of timer and sockets. A server that serves many calls from few threads spends "
                   "less than these pipelines.")


def density(data):
    n = data["parts"]["all"]["channels"]
    cost = data["parts"]["all"]["cores_used"] / n
    beyond = next((r for r in data["sweep"] if r.get("limit")), None)
    end = f"With {beyond['channels']} the limit is passed: {beyond['limit']}." if beyond else ""
    return f"""## Calls at once

N live pipelines in one process, each from speech at 20 ms through `kelg729fenc`, `rtpg729pay`, UDP on the
loopback, `rtpg729depay` and `kelg729fdec` (`bench/density-sweep`). A buffer's lateness is the time from when
its samples are due to when its decoded samples arrive. On one core, until a buffer is more than 10 ms
late or the core is full; every run measures {data['seconds']} s.

{table(CALL_HEAD, [call_row(r) for r in data["sweep"]], left=0)}

{density_plot(data)}

{data['most']} calls run on one core within the limit. {end} What a buffer of 20 ms takes, in microseconds of CPU
time, at {n} calls on one core, from the same run with parts left out:

{table(["part", "us a buffer", "share"], part_rows(data))}

{limit_text(data)}

Fixed numbers of calls on two cores:

{table(CALL_HEAD, [call_row(r) for r in data["fixed"]], left=0)}

A call takes {memory_text(data)} of memory in all: pipeline, elements, thread stacks, sockets and codec.

A call costs {100 * cost:.2f} % of a core at {n} calls. Past one machine a deployment grows by machines: calls are
independent and share nothing, so whatever balances calls balances this, and N machines carry N times
the calls."""


# ---- the document ---------------------------------------------------------------------------

SECTIONS = {f.__name__: f
            for f in (comparison, profile, instructions, levels, arm64, scaling, density)}


def write(name):
    """Renews the section of this name, which begins at <!-- name -->, from what was last measured."""
    document = DOCS / "performance.md"
    before, mark, text = document.read_text().partition(f"<!-- {name} -->\n")
    if not mark:
        raise SystemExit(f"{document} has no <!-- {name} -->")
    _, next_mark, after = text.partition("<!-- ")
    data = common.load(name)
    section = f"""{SECTIONS[name](data)}

Measured on {data['cpu']}; everything else on the machine used {data['others']:.2f} cores meanwhile.
"""
    document.write_text(before + mark + section + ("\n" + next_mark if next_mark else "") + after)
