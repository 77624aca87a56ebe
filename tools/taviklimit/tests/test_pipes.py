""""-" as INPUT and OUTPUT: streams in and out carry what files carry, the
summary moves to standard error, and bad or short streams are named."""

import io

import numpy as np
import pytest
import soundfile as sf

from conftest import music_like, read, run_ok, run_tool, write

RAW = dict(samplerate=44100, channels=2, subtype="PCM_16", format="RAW", endian="LITTLE")


@pytest.fixture
def loud(tmp_path):
    write(tmp_path / "in.wav", music_like(0.4, 44100, 2, peak=0.9), 44100, "pcm16")
    return tmp_path


# options, container, how to read it back (AU on a pipe has no length: read as long as the file)
@pytest.mark.parametrize("args,container,raw", [
    ([], "wav", {}), (["--subtype", "float"], "wav", {}), (["--output-type", "au"], "au", {}),
    (["--output-type", "raw"], "raw", RAW)])
def test_stream_out_is_the_file_output(loud, args, container, raw):
    result = run_ok(loud / "in.wav", "-", "--drive", 9, *args, text=False)
    assert b"in.wav -> standard output\n" in result.stderr
    run_ok(loud / "in.wav", loud / f"file.{container}", "--drive", 9, *args, "-q")
    (loud / f"pipe.{container}").write_bytes(result.stdout)
    reference = sf.read(str(loud / f"file.{container}"), always_2d=True, **raw)[0]
    with sf.SoundFile(str(loud / f"pipe.{container}"), **raw) as stream:
        assert np.array_equal(stream.read(len(reference), always_2d=True), reference)


@pytest.mark.parametrize("container,args", [("wav", []), ("au", []),
                                            ("raw", ["--raw-input", "44100,2,pcm16"])])
def test_stream_in_is_the_file_input(loud, container, args):
    stream = io.BytesIO()
    sf.write(stream, read(loud / "in.wav", "int16"), 44100, format=container, subtype="PCM_16")
    result = run_ok("-", loud / "o.wav", *args, input=stream.getvalue(), text=False)
    assert b"taviklimit: standard input -> " in result.stdout
    assert np.array_equal(read(loud / "o.wav"), read(loud / "in.wav"))  # below the threshold


def test_bad_and_short_streams(loud):
    whole = (loud / "in.wav").read_bytes()
    for stream, args, status, words in [
            (b"not audio\n", ["o.wav"], 1, "cannot read standard input as audio"),
            (whole[:5000], ["o.wav"], 0, "warning: standard input ends early: 1239 of 17640"),
            (whole[:5000], ["o.wav", "--strict"], 1, "standard input ends early: 1239 of 17640"),
            (whole, ["-", "--output-type", "aiff"], 2, "AIFF cannot be written to a pipe")]:
        result = run_tool("-", *args, "-q", input=stream, text=False, cwd=loud)
        assert result.returncode == status and words in result.stderr.decode(), result.stderr
        assert (loud / "o.wav").exists() == (status == 0)  # nothing half-written
        (loud / "o.wav").unlink(missing_ok=True)
