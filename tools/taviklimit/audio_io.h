// Sound files through libsndfile: reading the input as double-precision
// samples, choosing the output's container and encoding, and writing it
// through a TempFile.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>

#include "atomic_file.h"
#include "options.h"

namespace taviklimit {

struct InputInfo {
    int rate = 0;
    int channels = 0;
    int64_t frames = 0;
    int sf_format = 0;  // libsndfile's major | subtype
    bool floating = false;  // float, double or a lossy codec
};

// "16-bit PCM WAV", "32-bit float FLAC"...
std::string describe_format(int sf_format);

class SndReader {
public:
    // Opens path; throws FileError for a missing, unreadable or non-audio file.
    explicit SndReader(const std::string& path);
    ~SndReader();
    SndReader(const SndReader&) = delete;
    SndReader& operator=(const SndReader&) = delete;

    const InputInfo& info() const { return info_; }

    // Reads up to frames interleaved frames with full scale 1.0: integer PCM
    // words of b bits as word / 2^(b-1), float files as stored. Returns the
    // frames read, 0 at the end; throws FileError.
    size_t read(double* out, size_t frames);

private:
    std::string path_;
    SNDFILE* file_ = nullptr;
    InputInfo info_;
};

struct OutputEncoding {
    int sf_format = 0;  // major | subtype
    int int_bits = 0;   // bits of an integer encoding; 0 for floating point
};

// The container from the output's extension and the encoding from the
// request or, by default, from the input. Throws UsageError.
OutputEncoding choose_output_encoding(const std::string& output_path, const InputInfo& input,
                                      Subtype requested);

class SndWriter {
public:
    // Opens a temporary file beside path; throws FileError.
    SndWriter(const std::string& path, const OutputEncoding& encoding, int rate, int channels);
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

    TempFile temp_;
    SNDFILE* file_ = nullptr;
};

}  // namespace taviklimit
