"""The plugin in real hosts (lv2apply, ffmpeg's lv2 filter) on real recordings,
against the library's own output; its description through lv2info and the
Turtle validator."""
import glob
import os
import shutil
import subprocess

import numpy as np
import pytest

import taviklimiter as tl
from taviklimiter.audio_io import read_audio

URI = "http://taviklimiter.example/lv2/"
SOUNDS = "/usr/share/sounds/alsa/"
BUNDLE = os.environ.get("TAVIKLIMITER_LV2_BUNDLE", "")
FIFO_FRAMES = 63  # latency beyond the library's 64 frames for hosts without block promises
CEILING = 32730 / 32768

pytestmark = pytest.mark.skipif(
    not os.path.isdir(BUNDLE) or not os.environ.get("LV2_PATH"),
    reason="set TAVIKLIMITER_LV2_BUNDLE and LV2_PATH to the built bundle (ctest does)")


def need(tool):
    if not shutil.which(tool):
        pytest.skip(f"{tool} is not installed")


@pytest.fixture(scope="module")
def recordings(tmp_path_factory):
    """Float WAV copies of the ALSA voice prompts: mono, and left/right as stereo."""
    need("ffmpeg")
    if not os.path.exists(SOUNDS + "Front_Center.wav"):
        pytest.skip("the ALSA sample sounds are missing (Debian package alsa-utils)")
    d = tmp_path_factory.mktemp("rec")
    mono, stereo = str(d / "mono.wav"), str(d / "stereo.wav")
    ff = ["ffmpeg", "-v", "error", "-nostdin", "-y"]
    subprocess.run(ff + ["-i", SOUNDS + "Front_Center.wav", "-c:a", "pcm_f32le", mono], check=True)
    subprocess.run(ff + ["-i", SOUNDS + "Front_Left.wav", "-i", SOUNDS + "Front_Right.wav",
                         "-filter_complex", "[0][1]amerge=inputs=2", "-c:a", "pcm_f32le", stereo],
                   check=True)
    return {"mono": mono, "stereo": stereo}


def run_lv2apply(plugin, src, dst, drive):
    need("lv2apply")
    subprocess.run(["lv2apply", "-i", src, "-o", dst, "-c", "drive", str(drive), URI + plugin],
                   check=True, capture_output=True)


def run_ffmpeg(plugin, src, dst, drive):
    need("ffmpeg")
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", src, "-af",
                    rf"lv2=p=http\\://taviklimiter.example/lv2/{plugin}:c=drive={drive}",
                    "-c:a", "pcm_f32le", dst], check=True)


HOSTS = {"lv2apply": run_lv2apply, "ffmpeg": run_ffmpeg}
_read_cache = {}


def read_source(path):
    if path not in _read_cache:
        _read_cache[path] = read_audio(path)[0].astype(np.float32)
    return _read_cache[path]


@pytest.mark.parametrize("host", sorted(HOSTS))
@pytest.mark.parametrize("plugin,drive", [("mono", 0), ("mono", 9), ("stereo", 12)])
def test_host_output_is_the_librarys(recordings, tmp_path, host, plugin, drive):
    src, dst = recordings[plugin], str(tmp_path / "out.wav")
    HOSTS[host](plugin, src, dst, drive)
    x, y = read_source(src), read_audio(dst)[0].astype(np.float32)
    assert y.shape == x.shape
    # The plugin multiplies by the drive in float32, then the library limits.
    gain = np.float32(10.0 ** (drive / 20.0))
    ref = tl.Limiter(x.shape[1], "float32").process_all(x * gain, compensate_latency=False)
    ref = ref.reshape(len(ref), -1)
    n = len(x) - FIFO_FRAMES
    assert not y[:FIFO_FRAMES].any()
    np.testing.assert_array_equal(y[FIFO_FRAMES:], ref[:n])
    peak = np.abs(y).max()
    assert peak <= CEILING
    if drive:
        assert peak > 0.99 and np.abs(x * gain).max() > 1.2  # it really had to limit


def lv2info(plugin):
    need("lv2info")
    return subprocess.run(["lv2info", URI + plugin], check=True, capture_output=True,
                          text=True).stdout


@pytest.mark.parametrize("plugin,audio", [("mono", ["in", "out"]),
                                          ("stereo", ["in_l", "in_r", "out_l", "out_r"])])
def test_lv2info_describes_the_ports(plugin, audio):
    info = lv2info(plugin)
    assert "Has latency:       yes, reported by port 3" in info
    assert "lv2core#reportsLatency" in info and "lv2core#toggled" in info
    ports = [line.split(":", 1)[1].strip() for line in info.splitlines()
             if line.strip().startswith("Symbol:")]
    assert ports == ["drive", "bypass", "gain_reduction", "latency"] + audio
    assert f"Binary:            file://{BUNDLE}/taviklimiter_lv2.so" in info


def test_lv2ls_lists_both_plugins():
    need("lv2ls")
    listed = subprocess.run(["lv2ls"], check=True, capture_output=True, text=True).stdout.split()
    assert URI + "mono" in listed and URI + "stereo" in listed


# The bundles of the LV2 specification (Debian: lv2-dev), not the plugins installed beside them.
SPECS = ("atom buf-size core data-access dynmanifest event instance-access log midi morph options "
         "parameters patch port-groups port-props presets resize-port schemas state time ui units "
         "uri-map urid worker").split()


def validate(*files):
    schemas = [f for s in SPECS for f in sorted(glob.glob(f"/usr/lib/lv2/{s}.lv2/*.ttl"))]
    run = subprocess.run(["sord_validate", *schemas, *files], capture_output=True, text=True)
    return run.returncode, run.stdout + run.stderr


def test_turtle_validates_against_the_lv2_specification(tmp_path):
    need("sord_validate")
    files = [os.path.join(BUNDLE, f) for f in ("manifest.ttl", "taviklimiter.ttl")]
    rc, out = validate(*files)
    assert rc == 0 and "Found 0 errors" in out, out
    # The validator is worth running only if it notices a broken description.
    broken = tmp_path / "broken.ttl"
    broken.write_text(open(files[1]).read().replace("lv2:index 0 ;", 'lv2:index "zero" ;'))
    rc, out = validate(files[0], str(broken))
    assert rc != 0 or "Found 0 errors" not in out
