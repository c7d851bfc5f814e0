#!/usr/bin/python3
"""A call between two live ends on this machine, over RTP with lost packets.

call.py [--loss PERCENT] [--burst PACKETS] [--redundancy N] [--seed N] [--seconds N] [--capture FILE]
        --folder FOLDER [speech.wav|test]

Each end codes what it says with silence compression and sends it over UDP on the loopback; the link
loses some packets, by themselves or in bursts; the other end conceals them and writes what it hears.
With redundancy N every packet carries the one that was sent N packets before it, too (RFC 2198).
End A says the recording given, and B answers; with "test" both send tones; otherwise they talk in
turn, all with Debian's recorded announcements. The counters come from the elements while the call
goes on. FOLDER gets what each end says and hears, and a picture, call.png; with --capture FILE the
packets as the ends receive them go there. GST_PLUGIN_PATH tells where the plug-in is, KELG729F_TOOL
the command-line tool, which rates the call.
"""
import argparse
import os
import random
import subprocess
import sys
import time
import wave

import gi
import numpy as np

gi.require_version("Gst", "1.0")
from gi.repository import Gst

import picture
from capture import Capture

RATE, FRAME, SECOND = 8000, 80, Gst.SECOND
SPEECH_BYTES, SID_BYTES, RTP_HEADER = 10, 2, 12
SOUNDS = "/usr/share/asterisk/sounds/en_US_f_Allison"
TURNS = (("queue-youarenext", "queue-thankyou"), ("vm-sorry", "something-terribly-wrong"),
         ("demo-thanks", "vm-goodbye"))
PAUSE = 0.6  # seconds between the turns
ROOM = 8     # rms of the noise under the announcements, which have none of their own

SENDER = ("filesrc location={says} ! wavparse ! kelg729fenc name=codec annexb=true frames=1 "
          "! rtpg729pay min-ptime=20000000 perfect-rtptime=false {protect} ! identity name=link "
          "! udpsink host=127.0.0.1 port={port} ts-offset={ready}")
RECEIVER = ("udpsrc name=socket address=127.0.0.1 port=0 reuse=false caps=\"application/x-rtp,media=audio,"
            "clock-rate=8000,encoding-name=G729,payload=18\" {recover} ! rtpjitterbuffer name=buffer latency={latency} do-lost=true "
            "! rtpg729depay ! kelg729fdec name=codec plc=true ! audiorate tolerance=1000000 ! wavenc "
            "! filesink location={heard}")
PACKET, LATENCY = 20, 60  # ms; the jitter buffer's, without redundancy
RECORDER = ("{source} ! audioconvert ! audioresample ! audio/x-raw,format=S16LE,rate=8000,channels=1 "
            "! wavenc ! filesink location={path}")
TONES = "audiotestsrc wave=ticks tick-interval={every} sine-periods-per-tick=250 num-buffers={count}"
READY = 25 * Gst.MSECOND  # a packet of 20 ms is ready when they and the look-ahead have been said
DELAY = PACKET + 5        # ms: until a packet is ready
SETTLE = 0.5              # seconds for the last packets to arrive

HEADER = f"{'A to B':>24} {'B to A':>36}\n  time" + " speech  SID unsent lost conc. noise" * 2
WIDTHS = (6, 4, 6, 4, 5, 5)
SENT = ("frames", "sids", "untransmitted")
PLAYED = ("frames", "sids", "concealed", "comfort-noise")


def quoted(path):
    """As a launch line takes it."""
    return '"' + path.replace("\\", "\\\\").replace('"', '\\"') + '"'


def write_wav(path, samples):
    with wave.open(path, "wb") as file:
        file.setparams((1, 2, RATE, 0, "NONE", ""))
        file.writeframes(samples.astype("<i2").tobytes())


def read_wav(path):
    with wave.open(path) as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2")


def conversation():
    """What each end says: one talks, the other keeps still."""
    said = ([], [])
    for turn in TURNS:
        for talker, name in enumerate(turn):
            words = np.pad(read_wav(f"{SOUNDS}/{name}.wav"), (0, round(PAUSE * RATE)))
            said[talker].append(words)
            said[1 - talker].append(np.zeros(len(words)))
    rng = np.random.default_rng(1)
    return [np.round(np.concatenate(s) + rng.normal(0, ROOM, sum(map(len, s)))) for s in said]


pipelines = []  # all that were made, to be stopped at the end


def launch(line):
    pipelines.append(Gst.parse_launch(line))
    return pipelines[-1]


def await_end(pipeline):
    """True when it has ended; waits for it a little while."""
    kinds = Gst.MessageType.EOS | Gst.MessageType.ERROR
    message = pipeline.get_bus().timed_pop_filtered(SECOND // 10, kinds)
    if message and message.type == Gst.MessageType.ERROR:
        sys.exit(f"call: {message.parse_error()[0].message}")
    return message is not None


def record(source, path):
    pipeline = launch(RECORDER.format(source=source, path=quoted(path)))
    pipeline.set_state(Gst.State.PLAYING)
    while not await_end(pipeline):
        pass
    pipeline.set_state(Gst.State.NULL)  # the file is whole then
    return read_wav(path)


def sayings(options, paths):
    """Writes what the ends say."""
    if options.says == "test":
        said = [record(TONES.format(every=every, count=options.seconds * RATE // 1024 + 1), path)
                for every, path in zip((1_500_000_000, 2_000_000_000), paths)]
    else:
        said = conversation()
        if options.says:
            said[0] = record(f"filesrc location={quoted(options.says)} ! decodebin", paths[0])
    for path, samples in zip(paths, said):
        write_wav(path, samples[: options.seconds * RATE])


class Link:
    """Loses packets independently of each other, or in bursts of so many in the mean."""

    def __init__(self, loss, burst, seed):
        self.random, self.lost = random.Random(seed), False
        self.begin = loss / (burst * (1 - loss)) if burst > 1 else loss
        self.go_on = 1 - 1 / burst if burst > 1 else loss

    def loses(self):
        self.lost = self.random.random() < (self.go_on if self.lost else self.begin)
        return self.lost


def counters(pipeline, names):
    stats = pipeline.get_by_name("codec").get_property("stats")
    return {name: stats.get_value(name) for name in names}


def primary(packet):
    """How many bytes of a packet are its own, not those of an earlier one (RFC 2198, 3)."""
    data = packet.extract_dup(RTP_HEADER, packet.get_size() - RTP_HEADER)
    at = earlier = 0
    while data[at] & 0x80:
        earlier += (data[at + 2] & 3) << 8 | data[at + 3]
        at += 4
    return len(data) - at - 1 - earlier


def probe(pad, passes):
    """Shows every buffer to `passes`; what it answers False to is lost."""
    def look(_, info):
        lost = passes(info.get_buffer()) is False
        return Gst.PadProbeReturn.DROP if lost else Gst.PadProbeReturn.OK
    pad.add_probe(Gst.PadProbeType.BUFFER, look)


def samples_of(buffer):
    return np.frombuffer(buffer.extract_dup(0, buffer.get_size()), "<i2")


class Direction:
    """What one end says and the other hears. Times are the clock's, in nanoseconds of the call."""

    def __init__(self, says, heard, link, redundancy):
        self.link, self.lost_packets, self.packets, self.redundancy = link, 0, 0, redundancy
        self.latency = LATENCY + PACKET * redundancy
        protect, recover = (f"! rtpredenc pt=96 distance={redundancy}", "! rtpreddec pt=96") if redundancy else ("", "")
        self.said, self.heard = [], []    # (time, samples)
        # (time, samples, what that is): frames as sent, packets lost on the way, audio as played.
        self.sent, self.lost, self.played = [], [], []
        self.before = dict.fromkeys(PLAYED, 0)
        self.receiver = launch(RECEIVER.format(heard=quoted(heard), recover=recover, latency=self.latency))
        self.receiver.set_state(Gst.State.PAUSED)
        port = self.receiver.get_by_name("socket").get_property("port")
        self.sender = launch(SENDER.format(says=quoted(says), port=port, ready=READY, protect=protect))
        encoder, decoder = (p.get_by_name("codec") for p in (self.sender, self.receiver))
        probe(encoder.get_static_pad("sink"), self.on_said)
        probe(encoder.get_static_pad("src"), self.on_sent)
        probe(self.sender.get_by_name("link").get_static_pad("src"), self.on_link)
        probe(decoder.get_static_pad("src"), self.on_played)
        self.port, self.on_arrival = port, None
        probe(self.receiver.get_by_name("socket").get_static_pad("src"), self.on_received)

    def on_said(self, buffer):
        self.said.append((buffer.pts, samples_of(buffer)))

    def on_sent(self, buffer):
        self.sent.append((buffer.pts, FRAME, "frames" if buffer.get_size() == SPEECH_BYTES else "sids"))

    def on_received(self, packet):
        if self.on_arrival:
            self.on_arrival(packet.extract_dup(0, packet.get_size()))

    def on_link(self, packet):
        self.packets += 1
        if not self.link.loses():
            return True
        payload = primary(packet) if self.redundancy else packet.get_size() - RTP_HEADER
        frames = payload // SPEECH_BYTES + payload % SPEECH_BYTES // SID_BYTES
        self.lost_packets += 1
        self.lost.append((packet.pts, frames * FRAME, "lost"))
        return False

    def on_played(self, buffer):
        """The counters tell what a buffer is. Concealed audio may hold parts of frames, the rest of
        one that is counted already among them; else all frames are whole, a descriptor's the last."""
        samples = samples_of(buffer)
        self.heard.append((buffer.pts, samples))
        now = counters(self.receiver, PLAYED)
        kinds = [kind for kind in PLAYED for _ in range(now[kind] - self.before[kind])]
        self.before = now
        if "concealed" in kinds or not kinds:
            self.played.append((buffer.pts, len(samples), "concealed"))
            return
        for i, kind in enumerate(kinds):
            self.played.append((buffer.pts + i * FRAME * SECOND // RATE, FRAME, kind))

    def recovered(self):
        """How many of the packets lost on the way came with others."""
        stats = self.receiver.get_by_name("buffer").get_property("stats")
        return max(0, self.lost_packets - stats.get_value("num-lost")) if self.redundancy else 0

    def rating(self):
        """R and MOS, by the frames that were missing when they were to be played."""
        heard = counters(self.receiver, ("frames", "concealed", "loss-events"))
        loss = heard["concealed"] / max(1, heard["concealed"] + heard["frames"])
        packets = heard["concealed"] / max(1, heard["loss-events"]) / (PACKET / 10)
        ratio = max(0.1, packets * (1 - loss)) if heard["loss-events"] else 1
        delay = DELAY + self.latency
        said = subprocess.run([os.environ.get("KELG729F_TOOL", "kelg729f"), "rating", f"--loss={100 * loss}",
                               f"--burst-ratio={ratio}", f"--delay={delay}"], capture_output=True, text=True, check=True)
        return (f"{said.stdout.strip()} (G.107: {100 * loss:.1f} % of the speech missing, burst ratio {ratio:.2f}, "
                f"{delay} ms)")

    def pipelines(self):
        return self.sender, self.receiver

    def count(self):
        """Those of HEADER."""
        return (*counters(self.sender, SENT).values(), self.lost_packets,
                *(counters(self.receiver, PLAYED[2:]).values()))


def show(line, last=False):
    """One line that renews itself on a terminal; elsewhere only the last one."""
    if sys.stdout.isatty():
        print("\r" + line, end="\n" if last else "", flush=True)
    elif last:
        print(line)


def status(seconds, directions):
    counts = [f"{count:{width}}" for d in directions for count, width in zip(d.count(), WIDTHS)]
    return " ".join([f"{seconds:6.1f}", *counts])


def hold(directions):
    """The call, in real time; all pipelines go by one clock from one moment."""
    clock = Gst.SystemClock.obtain()
    base = clock.get_time()
    for pipeline in (p for d in directions for p in d.pipelines()):
        pipeline.use_clock(clock)
        pipeline.set_start_time(Gst.CLOCK_TIME_NONE)
        pipeline.set_base_time(base)
        pipeline.set_state(Gst.State.PLAYING)
    print(HEADER)
    talking = [d.sender for d in directions]
    while talking:
        talking = [sender for sender in talking if not await_end(sender)]
        show(status((clock.get_time() - base) / SECOND, directions))
    time.sleep(SETTLE)
    for d in directions:
        d.receiver.send_event(Gst.Event.new_eos())
        while not await_end(d.receiver):
            pass
    show(status((clock.get_time() - base) / SECOND, directions), last=True)


def parse():
    parser = argparse.ArgumentParser(prog="./demo call", usage="%(prog)s [--loss PERCENT] [--burst PACKETS] "
                                     "[--redundancy N] [--seed N] [--seconds N] [--capture FILE] "
                                     "[speech.wav|test]")
    parser.add_argument("--loss", type=float, default=5, help="share of the packets that the link loses")
    parser.add_argument("--burst", type=float, default=1, help="packets lost in a row, in the mean")
    parser.add_argument("--redundancy", type=int, default=0, metavar="N",
                        help="send every packet again with the Nth after it")
    parser.add_argument("--seed", type=int, default=1, help="other losses")
    parser.add_argument("--seconds", type=int, default=30, help="the longest that the call lasts")
    parser.add_argument("--capture", metavar="FILE", help="write the packets that arrive there (pcap)")
    parser.add_argument("--folder", required=True, help=argparse.SUPPRESS)
    parser.add_argument("says", nargs="?", help="what one end says: a recording, or tones")
    options = parser.parse_args()
    if options.burst < 1 or not 0 <= options.loss <= 100 * options.burst / (options.burst + 1):
        parser.error("a burst is 1 packet at least, and the loss at most what bursts of that length allow")
    if not 0 <= options.redundancy <= 10:
        parser.error("the redundancy is a distance of 0 (none) to 10 packets")
    if options.seconds < 1:
        parser.error("a call lasts a second at least")
    if options.says not in (None, "test") and not os.access(options.says, os.R_OK):
        parser.error(f"{options.says}: cannot be read")
    return options


def call(options):
    """Both directions of a call that is over."""
    says, hears = ([f"{options.folder}/{end}-{does}.wav" for end in ends]
                   for ends, does in (("ab", "says"), ("ba", "hears")))
    capture = Capture(options.capture)
    sayings(options, says)
    links = [Link(options.loss / 100, options.burst, options.seed + i) for i in range(2)]
    directions = [Direction(*ends, options.redundancy) for ends in zip(says, hears, links)]
    for d, other in zip(directions, directions[::-1]):
        # As if each end sent from the port where it receives.
        d.on_arrival = lambda packet, ports=(other.port, d.port): capture.add(time.time_ns(), *ports, packet)
    hold(directions)
    capture.close()
    for d, name in zip(directions, ("A to B", "B to A")):
        d.counts = d.count()
        d.back = d.recovered()
        back = f", {d.back} of them back by redundancy" if options.redundancy else ""
        print(f"{name}: {d.packets} packets, {d.lost_packets} lost "
              f"({100 * d.lost_packets / max(1, d.packets):.1f} %){back}; {d.rating()}")
    return directions


def main():
    options = parse()
    Gst.init(None)
    try:
        directions = call(options)
    except OSError as error:
        sys.exit(f"call: {error.filename or options.capture}: {error.strerror}")
    finally:
        for pipeline in pipelines:
            pipeline.set_state(Gst.State.NULL)
    picture.draw(directions, options, f"{options.folder}/call.png")
    print(f"What the ends said and heard (.wav), and a picture, call.png, are in {options.folder}/.")


if __name__ == "__main__":
    main()
