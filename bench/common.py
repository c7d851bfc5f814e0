"""What the measuring scripts share: processes and their CPU time, packages, material, results."""
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import wave
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ.get("KELG729F_BUILD", ROOT / "build"))
RESULTS = BUILD / "bench-results"
SOUNDS = Path("/usr/share/asterisk/sounds/en_US_f_Allison")

# Packages that implement G.729 or exist to wrap one that does. Nothing here may be installed, not
# even as a dependency.
FORBIDDEN = re.compile(
    r"^(ffmpeg|lib(av(codec|format|filter|device|util|resample)|sw(scale|resample)|postproc)\b.*"
    r"|lib(av(codec|format|filter|device|util)|sw(scale|resample)|postproc)\d.*"
    r"|gstreamer1\.0-libav|.*g729.*|.*g\.729.*)$"
)


def run(command, **options):
    """Output of a command, which must succeed."""
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{Path(str(command[0])).name} failed:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def cpu_seconds(command, env=None):
    """User and system seconds of a command."""
    with open(os.devnull, "wb") as null:
        child = subprocess.Popen([str(c) for c in command], stdout=null, stderr=subprocess.PIPE, env=env)
        errors = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nfailed: {errors.decode(errors='replace')[-2000:]}")
    return usage.ru_utime + usage.ru_stime


class Meanwhile:
    """What else ran on the machine: busy cores less those of this script and its children."""

    def __init__(self):
        self.start = self._now()

    @staticmethod
    def _now():
        ticks = [int(t) for t in Path("/proc/stat").read_text().split("\n")[0].split()[1:9]]
        own = os.times()
        busy = (sum(ticks) - ticks[3] - ticks[4]) / os.sysconf("SC_CLK_TCK")
        return busy - (own.user + own.system + own.children_user + own.children_system), own.elapsed

    def cores(self):
        (busy, time), (busy0, time0) = self._now(), self.start
        return max(0.0, (busy - busy0) / (time - time0))


def save(name, data, meanwhile):
    data = {"cpu": cpu_model(), "others": meanwhile.cores(), **data}
    RESULTS.mkdir(parents=True, exist_ok=True)
    (RESULTS / f"{name}.json").write_text(json.dumps(data, indent=1))


def load(name):
    path = RESULTS / f"{name}.json"
    return json.loads(path.read_text()) if path.exists() else None


def program(name):
    path = BUILD / "bench" / name
    if not path.exists():
        sys.exit(f"{name} is not built. Run ./check, or meson setup build && ninja -C build.")
    return path


def pipeline_env(extra_plugins=""):
    """An environment in which GStreamer finds our elements, with a registry of its own."""
    RESULTS.mkdir(parents=True, exist_ok=True)
    env = dict(os.environ)
    env["GST_PLUGIN_PATH"] = f"{BUILD / 'src/audio/g729f'}:{extra_plugins}"
    env["GST_REGISTRY"] = str(RESULTS / "registry.bin")
    return env


def cpu_model():
    text = Path("/proc/cpuinfo").read_text()
    field = lambda name: re.search(rf"^{name}\s*: (.*)$", text, re.M).group(1)
    return f"{field('model name')}, family {field('cpu family')} model {field('model')}"


def installed(package):
    status = subprocess.run(["dpkg-query", "-W", "-f=${Status}", package], capture_output=True, text=True)
    return "ok installed" in status.stdout


def would_install(package):
    """The packages that apt would install with this one."""
    done = subprocess.run(
        ["apt-get", "install", "-s", "--no-install-recommends", package], capture_output=True, text=True)
    if done.returncode != 0:
        return None
    return re.findall(r"^Inst (\S+)", done.stdout, re.M)


def need(package):
    """Installs a package unless a G.729 implementation would come along; says whether it is there."""
    if installed(package):
        return True
    coming = would_install(package)
    if coming is None:
        print(f"{package}: not to be had", file=sys.stderr)
        return False
    refused = [name for name in coming if FORBIDDEN.match(name)]
    if refused:
        print(f"{package}: refused, it brings {', '.join(refused)}", file=sys.stderr)
        return False
    command = ["apt-get", "install", "-y", "--no-install-recommends", package]
    if os.geteuid() != 0:
        command.insert(0, "sudo")
    print(f"{package}: installing {', '.join(coming)}", file=sys.stderr)
    return subprocess.run(command, capture_output=True, env={**os.environ, "DEBIAN_FRONTEND": "noninteractive"}
                          ).returncode == 0


def joined_speech():
    """All recordings joined: path of a WAV file, seconds of speech."""
    path = RESULTS / "speech.wav"
    if not path.exists():
        if not SOUNDS.is_dir() and not need("asterisk-core-sounds-en-wav"):
            sys.exit("The recordings of asterisk-core-sounds-en-wav are needed.")
        RESULTS.mkdir(parents=True, exist_ok=True)
        with wave.open(str(path), "wb") as out:
            out.setparams((1, 2, 8000, 0, "NONE", ""))
            for name in sorted(SOUNDS.rglob("*.wav")):
                with wave.open(str(name)) as part:
                    if part.getframerate() == 8000 and part.getnchannels() == 1:
                        out.writeframes(part.readframes(part.getnframes()))
    with wave.open(str(path)) as file:
        return path, file.getnframes() / 8000


def codec_run(direction, *options):
    return json.loads(run([program("codec-run"), direction, *options]))


median = statistics.median
which = shutil.which
