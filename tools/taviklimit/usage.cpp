#include "usage.h"

namespace taviklimit {

const char* usage_text() {
    return R"(NAME
    taviklimit - run an audio file through the taviklimiter peak limiter

SYNOPSIS
    taviklimit INPUT OUTPUT [--format float32|q5.27|q33.31] [--drive DB]
               [--period FRAMES] [--keep-latency] [--bypass START-END[,...]]
               [--subtype pcm16|pcm24|pcm32|float|double] [--output-type TYPE]
               [--raw-input RATE,CHANNELS,ENCODING] [--strict] [--json FILE]
               [--gain-log FILE.csv] [-q]
    taviklimit --help | --version

DESCRIPTION
    Reads INPUT (WAV, FLAC, AIFF, Ogg and whatever else libsndfile reads;
    mono or stereo, any sample rate), applies the drive gain, feeds the
    audio to one limiter instance period by period exactly as a host
    program does, and writes OUTPUT, whose container follows its extension
    (.wav .w64 .rf64 .aif .aiff .au .caf .flac .ogg .oga .opus .mp3 .raw)
    or --output-type.

    Levels. Peaks above the no-reduction threshold, 2147418110/2^31 of full
    scale (-0.0003 dBFS), are brought down to the target, 32730/32768
    (-0.0101 dBFS); samples up to the threshold pass unreduced, so limited
    output peaks anywhere between the two. While limiting, the output
    stays at or below the threshold, except for the 64 frames that were
    held in the delay line at a switch from bypass back to limiting. The
    summary reports the output's real peak.

    Summary. At the end it prints the input's format and sample peak, the
    largest gain reduction, the share of 64-frame blocks limited, and for
    the driven input and for the output the sample peak (dBFS), the true
    peak (dBTP, 4 times oversampled below 96 kHz), the integrated loudness
    (LUFS) and the loudness range (LU) of EBU R128, measured with
    libebur128 on the samples as they pass (the output as stored, before
    any lossy encoder), with how far the output's true peak stands above
    its sample peak. Then the frames, the calls and the speed: the whole
    run, the limiter alone, and the time spent measuring loudness and true
    peak.

    Pipes. "-" as INPUT reads standard input: WAV, AIFF, AU and Ogg
    streams (libsndfile cannot read FLAC unseekable), or raw samples with
    --raw-input. "-" as OUTPUT writes standard
    output, WAV unless --output-type says otherwise; the summary then goes
    to standard error. libsndfile writes AU, raw, FLAC and Ogg to a pipe
    but not WAV (nor W64, RF64, AIFF or CAF), so on a pipe the tool writes
    the WAV header itself, with PCM (8, 16, 24, 32-bit) or float (32,
    64-bit) samples after it: the lengths follow from INPUT's announced
    length, or are all ones (open, as for a live recording) when a stream
    announces none. Redirected to a file, standard output is written by
    libsndfile as any file.

    Damaged input. NaN and infinite samples are counted and reported with
    the time of the first. The peaks leave them out and the loudness counts
    them as silence. The tool hands them to the library as float NaN and
    infinity in float32; as 0 (NaN) and the format's largest words
    (infinities: +-16.0 in q5.27; the Q33.31 ends in q33.31, the Q1.31 ends
    in q33.31 bypass) in the other formats. The library takes a NaN as 0
    and brings an infinity down with the rest of its 64-frame block (to
    silence in float32 and q33.31, about -24 dB in q5.27). In bypass the
    float32 output passes them on. An input that ends before the length
    its header announces, or that stops with a read error, is processed as
    far as it goes, with a warning naming the frames read.

    Gain: a second limiter instance, fed the same peaks beside a constant
    probe of half full scale, reports through the probe the exact gain the
    engine applies to each frame. The gain figures, the JSON file and the
    gain log come from it.

    Sample conversion. Every file is read as double-precision samples with
    full scale 1.0: integer PCM words of b bits become word / 2^(b-1)
    exactly; float files come as stored (beyond 1.0 included); Vorbis, Opus
    and MP3 decode to float. The drive multiplies in double precision
    (0 dB changes nothing). Then, to the library format:
      float32  the nearest float (ties to even): exact for 8, 16 and 24-bit
               PCM and for float files.
      q5.27    round(x * 2^27), to nearest, ties to even, saturated to
               +-16.0: exact for 8, 16 and 24-bit PCM.
      q33.31   round(x * 2^31), to nearest, ties to even: exact for all
               integer PCM. The limiter answers in Q1.31; in bypass it
               passes the low 32 bits of each word, so while bypassed the
               tool saturates its input words to [-1.0, 1.0) instead of
               letting them wrap.
    Back from the library, float32, Q5.27 (word / 2^27) and Q1.31
    (word / 2^31) convert to double exactly. Float and double output store
    that value (a float file rounds Q5.27 and Q1.31 to the nearest float).
    Integer output of b bits stores round(y * 2^(b-1)), to nearest, ties to
    even, saturated to the b-bit range; there is no dither. Limited audio
    stays at or below the threshold, which 16 and 24-bit PCM and float
    store as 1 - 2^-15, so it never saturates. Samples that had to be
    saturated (bypass with drive, for instance) are counted and reported;
    nothing ever wraps.

    Audio the limiter leaves alone comes back bit for bit from 16 and
    24-bit PCM in every format and from 32-bit PCM in q33.31, when the
    output keeps the input's subtype. Float files through float32 come
    back bit for bit from 2^-6 (-36 dBFS) up: the library widens a float
    as x * 2^31 + 0.5 truncated toward zero, which puts a negative sample
    one Q1.31 step high, so quieter samples move by at most 2^-30
    (-181 dBFS).

OPTIONS
    --format float32|q5.27|q33.31
        The sample format the library works in (default float32).

    --drive DB
        Gain in dB applied before the limiter, -120 to 60 (default 0).

    --period FRAMES
        Frames read and offered per Limiter_Process call, 1 to 1048576
        (default 480). The library takes whole 64-frame blocks; the
        leftover partial block is kept and offered again at the front of
        the next call, and the last one is completed with silence.

    --keep-latency
        Keep the limiter's 64-frame delay: OUTPUT starts with 64 frames of
        silence and is 64 frames longer than INPUT. By default the delay is
        compensated: the first 64 frames out are dropped and 64 frames of
        silence are fed after the end, so OUTPUT lines up with INPUT sample
        for sample and has its length.

    --bypass START-END[,START-END...]
        Switch the instance into bypass at START and back to limiting at
        END (seconds of INPUT; ranges in order, not overlapping). The switch
        is requested with Limiter_SetParameters between two calls. It acts
        on block boundaries, so each time is moved to the nearest multiple
        of 64 frames (1.3 ms at 48 kHz) and the period that would cross it
        is cut short there; the next call starts exactly on it. Ranges that
        meet after rounding merge; a range shorter than one block is
        widened to one. With the delay compensated, the block before START
        ends at the gain it needed, the block from START fades from the
        limiter's gain back to unity, and from there to END the output is
        the driven input unchanged (the block just before END already
        follows the limiter's attack towards what comes after END).

    --subtype pcm16|pcm24|pcm32|float|double
        The output's sample encoding. By default the input's, when the
        output container holds it; otherwise float for floating-point and
        lossy input (24-bit PCM where floats cannot be stored), 16-bit PCM
        for the rest.

    --output-type TYPE
        OUTPUT's container, named as an extension: wav, flac, aiff, ogg,
        caf, w64, rf64, au, opus, mp3 or raw (headerless little-endian
        samples). By default it follows OUTPUT's extension, and is wav for
        "-". On a pipe: wav, au, raw, flac or ogg.

    --raw-input RATE,CHANNELS,ENCODING
        INPUT is headerless little-endian samples: RATE in Hz, 1 or 2
        CHANNELS interleaved, ENCODING pcm16, pcm24, pcm32, float or
        double.

    --strict
        Make a truncated input (one that ends before the length its header
        announces, or stops with a read error) and an input holding NaN or
        infinite samples an error (status 1, no OUTPUT written) instead of
        a warning.

    --json FILE
        Also write the summary figures to FILE as JSON.

    --gain-log FILE.csv
        Write the gain in force per 64-frame block of OUTPUT: the columns
        time_s (the block's start) and gain_db (the lowest gain the engine
        applied within the block, 0 for none).

    -q, --quiet
        Print nothing but errors and warnings (a truncated input, damaged
        samples, clipping). Without it a progress bar goes to standard
        error while the input is longer than 5 seconds and standard error
        is a terminal, and the summary, warnings included, to standard
        output (standard error when OUTPUT is "-").

    -h, --help
        Print this text.

    --version
        Print the tool's and the library's version.

    Output files are written to a temporary file beside them and renamed
    into place only on success; an OUTPUT that is INPUT (by any path to the
    same file) is refused, and so is "-" as OUTPUT on a terminal.

EXIT STATUS
    0    success (saturated or damaged samples and a truncated input, if
         any, are reported but not an error)
    1    a file cannot be read, written or processed: INPUT missing or not
         audio, more than two channels, OUTPUT's directory not writable; a
         truncated or damaged input with --strict
    2    the command line is wrong: an unknown option, a bad value, a
         missing operand, OUTPUT the same file as INPUT, a subtype the
         output container cannot hold, a container a pipe cannot take
    130  interrupted; no output is left behind

EXAMPLES
    Limit a recording driven 12 dB into the limiter:
        taviklimit take.wav take-limited.wav --drive 12

    Q5.27 in 10 ms periods at 44.1 kHz, a 24-bit FLAC out, figures as JSON:
        taviklimit mix.flac out.flac --format q5.27 --period 441 \
            --subtype pcm24 --json out.json

    Compare limiting and bypass in one file, and log the gain:
        taviklimit loop.wav ab.wav --drive 9 --bypass 2-4,6-8 \
            --gain-log gain.csv

    Between two other programs, through pipes:
        ffmpeg -i in.mp3 -f wav - | taviklimit - out.flac --drive 6
        taviklimit in.wav - | sox -t wav - -n stat
)";
}

}  // namespace taviklimit
