"""The plugin on real recordings in real hosts and in a ctypes host with chosen run() sizes
and block-size promises, against the library's own output; its Turtle description."""
import ctypes as C
import glob
import os
import shutil
import subprocess

import numpy as np
import pytest

import taviklimiter as tl
from taviklimiter.audio_io import read_audio

URI, BUF = "http://taviklimiter.example/lv2/", "http://lv2plug.in/ns/ext/buf-size#"
BUNDLE = os.environ.get("TAVIKLIMITER_LV2_BUNDLE", "")
ENV = dict(os.environ, LV2_PATH=os.path.dirname(BUNDLE))  # hosts see this bundle alone
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
MUSIC = "/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg"
THRESHOLD = np.float32(1 - 2 ** -15)  # no-reduction threshold 2147418110 / 2^31, as float32
TARGET = np.float32(32730 / 32768)    # where a sample above the threshold is brought
DRIVE = 12                            # dB: both recordings go well above full scale
pytestmark = pytest.mark.skipif(not os.path.isdir(BUNDLE), reason="TAVIKLIMITER_LV2_BUNDLE unset")


def tool(name):
    return shutil.which(name) or pytest.skip(f"{name} is not installed")


@pytest.fixture(scope="module")
def audio(tmp_path_factory):
    """Float WAV files and their samples by channel count: the speech, 6 s of the music."""
    d, out = tmp_path_factory.mktemp("rec"), {}
    for ch, src, cut in ((1, SPEECH, []), (2, MUSIC, ["-ss", "60", "-t", "6"])):
        path = str(d / f"{ch}.wav")
        subprocess.run([tool("ffmpeg"), "-v", "error", "-nostdin", *cut, "-i", src,
                        "-c:a", "pcm_f32le", path], check=True)
        out[ch] = path, read_audio(path)[0].astype(np.float32)
    return out


def expect(y, x, latency, bypass_blocks=()):
    """y is the library's output for x driven, `latency` frames late, bypass toggled before the
    given blocks; until bypass no sample above the threshold, none driven above it the target."""
    x = x * np.float32(10.0 ** (DRIVE / 20))  # the drive, multiplied in float32
    padded = np.pad(x, ((0, -len(x) % 64), (0, 0)))
    lim, ref = tl.Limiter(x.shape[1], "float32"), []
    edges = [0, *(64 * b for b in bypass_blocks), None]
    for i, (a, b) in enumerate(zip(edges, edges[1:])):
        ref.append(lim.process(padded[a:b]).reshape(-1, x.shape[1]))
        lim.limit() if i % 2 else lim.bypass()  # for the next stretch
    assert y.shape == x.shape and not y[:latency - 64].any()
    np.testing.assert_array_equal(y[latency - 64:], np.concatenate(ref)[:len(x) - latency + 64])
    n = 64 * bypass_blocks[0] if bypass_blocks else len(x) - latency
    a, above = np.abs(y[latency:latency + n]), np.abs(x[:n]) >= THRESHOLD
    assert above.any() and a.max() <= THRESHOLD and a[above].max() <= TARGET
    return x


HOSTS = {"lv2apply": lambda p, i, o: ["-i", i, "-o", o, "-c", "drive", str(DRIVE), URI + p],
         "ffmpeg": lambda p, i, o: ["-v", "error", "-nostdin", "-i", i, "-c:a", "pcm_f32le", "-af",
                                    f"lv2=p={URI + p}:c=drive={DRIVE}".replace(":", r"\\:", 1), o]}


@pytest.mark.parametrize("host", sorted(HOSTS))
@pytest.mark.parametrize("ch", [1, 2])
def test_real_host_output_is_the_librarys(audio, tmp_path, host, ch):
    (src, x), dst = audio[ch], str(tmp_path / "out.wav")
    args = HOSTS[host](["mono", "stereo"][ch - 1], src, dst)
    subprocess.run([tool(host), *args], env=ENV, check=True, capture_output=True)
    expect(read_audio(dst)[0].astype(np.float32), x, 127)  # neither host promises block sizes


def struct(name, *fields):
    return type(name, (C.Structure,), {"_fields_": list(fields)})


Feature = struct("Feature", ("uri", C.c_char_p), ("data", C.c_void_p))
Option = struct("Option", *((k, C.c_uint32) for k in ("context", "subject", "key", "size", "type")),
                ("value", C.c_void_p))  # context 0: the instance
MapFn, Call = C.CFUNCTYPE(C.c_uint32, C.c_void_p, C.c_char_p), C.CFUNCTYPE(None, C.c_void_p)
UridMap = struct("UridMap", ("handle", C.c_void_p), ("map", MapFn))
Descriptor = struct("Descriptor", ("uri", C.c_char_p), ("instantiate", C.CFUNCTYPE(
    C.c_void_p, C.c_void_p, C.c_double, C.c_char_p, C.POINTER(C.POINTER(Feature)))),
    ("connect_port", C.CFUNCTYPE(None, C.c_void_p, C.c_uint32, C.c_void_p)), ("activate", Call),
    ("run", C.CFUNCTYPE(None, C.c_void_p, C.c_uint32)), ("deactivate", Call), ("cleanup", Call))


def features(promise, lengths):
    """URID map, min and max block lengths as options, and a buf-size promise if any."""
    ids = {}
    urid = lambda _, uri: ids.setdefault(uri, len(ids) + 1)  # noqa: E731
    umap, ints = UridMap(None, MapFn(urid)), (C.c_int32 * 2)(*lengths)
    kind = urid(0, b"http://lv2plug.in/ns/ext/atom#Int")
    opts = (Option * 3)(*(Option(0, 0, urid(0, f"{BUF}{k}BlockLength".encode()), 4, kind,
                                 C.addressof(ints) + 4 * i) for i, k in enumerate(["min", "max"])))
    fs = [Feature(b"http://lv2plug.in/ns/ext/urid#map", C.addressof(umap)),
          Feature(b"http://lv2plug.in/ns/ext/options#options", C.addressof(opts))]
    fs += [Feature((BUF + promise).encode(), None)] if promise else []
    return (C.POINTER(Feature) * (len(fs) + 1))(*map(C.pointer, fs)), umap, ints, opts  # all kept


def play(x, sizes, promise, lengths, bypass_runs, in_place):
    """x through the plugin after a restart: output, (end, latency, meter) a run, bypass blocks."""
    lib = C.CDLL(os.path.join(BUNDLE, "taviklimiter_lv2.so"))
    lib.lv2_descriptor.restype = C.POINTER(Descriptor)
    dp, ch, host = lib.lv2_descriptor(x.shape[1] - 1), x.shape[1], features(promise, lengths)
    d, ports = dp.contents, np.array([DRIVE, 0, 1, 0], np.float32)  # drive bypass meter latency
    h = d.instantiate(dp, 48000.0, BUNDLE.encode(), host[0])

    def run(block):
        inp = block.T.copy()
        out = inp if in_place else np.full_like(inp, np.nan)
        for port, buf in enumerate([*ports.reshape(4, 1), *inp, *out]):  # controls, ins, outs
            d.connect_port(h, port, buf.ctypes.data)
        d.run(h, len(block))
        return out.T
    d.activate(h)
    run(np.ones((100, ch), np.float32))  # heard before the restart: none of it may leave
    d.activate(h)
    y, runs, flips, pos = np.zeros_like(x), [], [], 0
    while pos < len(x):
        if len(runs) in bypass_runs:
            ports[1] = 1 - ports[1]
            flips.append(pos // 64)
        n = min(sizes[len(runs) % len(sizes)], len(x) - pos)
        y[pos:pos + n], pos = run(x[pos:pos + n]), pos + n
        runs.append((pos, ports[3], ports[2]))
    d.cleanup(h)
    return y, runs, flips


CASES = [  # channels, run() sizes, promise, (min, max) lengths, latency, bypass runs, in place
    (1, [1], None, (0, 0), 127, (), False),
    (1, [7, 100, 0, 64, 333, 4096], None, (0, 0), 127, (), True),
    (2, [5, 1000, 63, 65, 129], None, (0, 0), 127, (90, 400), False),
    (1, [128], None, (128, 128), 127, (), False),
    (2, [64, 256, 128, 512], "powerOf2BlockLength", (64, 1024), 64, (), True),
    (1, [32, 64], "powerOf2BlockLength", (32, 256), 127, (), False),
    (1, [256], "fixedBlockLength", (256, 256), 64, (150, 200), False),
    (2, [100], "fixedBlockLength", (100, 100), 127, (), False),
    (1, [96], "powerOf2BlockLength", (64, 1024), 96, (), False),  # broken: 32 frames of silence
]


@pytest.mark.parametrize("ch,sizes,promise,lengths,latency,bypass_runs,in_place", CASES)
def test_run_sizes_and_promises(audio, ch, sizes, promise, lengths, latency, bypass_runs, in_place):
    x = audio[ch][1][:len(audio[ch][1]) // 256 * 256]  # whole runs: promises kept
    y, runs, flips = play(x, sizes, promise, lengths, bypass_runs, in_place)
    assert {r[1] for r in runs} == {latency}
    x = expect(y, x, latency, flips)
    # The meter: the deepest gain among the frames each run played, as seen in the audio.
    level = np.abs(np.pad(x, ((latency, 0), (0, 0)))[:len(x)])
    gain = np.where(level > 0.05, np.abs(y) / np.maximum(level, 0.05), np.inf).min(axis=1)
    for a, (b, _, meter) in zip([0, *(r[0] for r in runs)], runs):
        least = gain[a:b].min(initial=np.inf)
        assert least == np.inf or -0.5 <= meter - 20 * np.log10(least) <= 1e-4


# The bundles of the LV2 specification (Debian: lv2-dev), not the plugins installed beside them.
SPECS = ("atom buf-size core data-access dynmanifest event instance-access log midi morph options "
         "parameters patch port-groups port-props presets resize-port schemas state time ui units "
         "uri-map urid worker").split()


def test_description_validates_and_names_the_ports(tmp_path):
    specs = [f for s in SPECS for f in sorted(glob.glob(f"/usr/lib/lv2/{s}.lv2/*.ttl"))]
    validate = lambda *ttl: subprocess.run([tool("sord_validate"), *specs, *ttl],  # noqa: E731
                                           capture_output=True, text=True)
    files = [os.path.join(BUNDLE, f) for f in ("manifest.ttl", "taviklimiter.ttl")]
    run = validate(*files)
    assert run.returncode == 0 and "Found 0 errors" in run.stdout, run.stdout + run.stderr
    broken = tmp_path / "broken.ttl"  # the validator must notice a broken description
    broken.write_text(open(files[1]).read().replace("lv2:index 0 ;", 'lv2:index "zero" ;'))
    assert "Found 0 errors" not in validate(files[0], str(broken)).stdout
    for plugin, audio in (("mono", "in out"), ("stereo", "in_l in_r out_l out_r")):
        info = subprocess.check_output([tool("lv2info"), URI + plugin], env=ENV, text=True)
        ports = [s.split()[1] for s in info.splitlines() if s.strip().startswith("Symbol:")]
        assert ports == ["drive", "bypass", "gain_reduction", "latency", *audio.split()]
        assert "Has latency:       yes, reported by port 3" in info
