// Sound files through libsndfile: reading the input as double-precision
// samples, choosing the output's container and encoding, and writing it
// through a TempFile. "-" reads standard input and writes standard output.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "atomic_file.h"
#include "options.h"

namespace taviklimit {

struct InputInfo {
    int rate = 0;
    int channels = 0;
    std::optional<uint64_t> frames;  // as announced; unknown for some streams
    int sf_format = 0;  // libsndfile's major | subtype
    bool floating = false;  // float, double or a lossy codec
};

// "16-bit PCM WAV", "32-bit float FLAC"...
std::string describe_format(int sf_format);

// 'path', or "standard input" for "-": how messages name a file.
std::string display_name(const std::string& path);

class SndReader {
public:
    // Opens path ("-": standard input), headerless when raw is given; throws
    // FileError for a missing, unreadable or non-audio file.
    SndReader(const std::string& path, const std::optional<RawInput>& raw);
    ~SndReader();
    SndReader(const SndReader&) = delete;
    SndReader& operator=(const SndReader&) = delete;

    const InputInfo& info() const { return info_; }

    // Reads up to frames interleaved frames with full scale 1.0: integer PCM
    // words of b bits as word / 2^(b-1), float files as stored. Returns the
    // frames read, 0 at the end. A read error ends the input (see
    // shortfall()), or throws FileError when not one frame could be read.
    size_t read(double* out, size_t frames);

    // Once read to the end: why the input held less than it announced
    // ("'x.wav' is truncated: ..."), or "" when it did not.
    std::string shortfall() const;

private:
    std::string name_;
    SNDFILE* file_ = nullptr;
    InputInfo info_;
    uint64_t frames_read_ = 0;
    bool ended_ = false;
    bool header_longer_ = false;  // libsndfile found less data than the header gave
    std::string read_error_;
};

struct OutputEncoding {
    int sf_format = 0;  // major | subtype
    int int_bits = 0;   // bits of an integer encoding; 0 for floating point
    bool stream = false;  // written to a pipe
};

// Whether "-" as OUTPUT is a pipe (or anything else that cannot seek).
bool stdout_is_stream();

// The container from type (a name such as "wav") or else from the output's
// extension, and the encoding from the request or, by default, from the
// input. On a stream only the containers libsndfile writes without seeking
// (AU, raw, FLAC, Ogg) and WAV with PCM or float samples are offered.
// Throws UsageError.
OutputEncoding choose_output_encoding(const std::string& output_path, const std::string& type,
                                      bool stream, const InputInfo& input, Subtype requested);

class SndWriter {
public:
    // Opens a temporary file beside path, or standard output for "-". A WAV
    // stream gets a header with the lengths of frames, when known, else left
    // open as for a live recording, then raw little-endian samples. Throws
    // FileError.
    SndWriter(const std::string& path, const OutputEncoding& encoding, int rate, int channels,
              std::optional<uint64_t> frames);
    ~SndWriter();
    SndWriter(const SndWriter&) = delete;
    SndWriter& operator=(const SndWriter&) = delete;

    // Interleaved frames of doubles (floating encodings) or of 32-bit words
    // holding the sample in their top int_bits bits (integer encodings).
    void write(const double* frames, size_t count);
    void write(const int32_t* frames, size_t count);

    // Finishes the file and renames it into place; throws FileError.
    void commit();

private:
    void check(sf_count_t written, size_t count);

    std::string name_;
    std::optional<TempFile> temp_;
    SNDFILE* file_ = nullptr;
};

}  // namespace taviklimit
