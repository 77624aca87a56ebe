#include "audio_io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "errors.h"

namespace taviklimit {
namespace {

bool is_floating_subtype(int subtype) {
    switch (subtype) {
        case SF_FORMAT_FLOAT:
        case SF_FORMAT_DOUBLE:
        case SF_FORMAT_VORBIS:
        case SF_FORMAT_OPUS:
        case SF_FORMAT_MPEG_LAYER_I:
        case SF_FORMAT_MPEG_LAYER_II:
        case SF_FORMAT_MPEG_LAYER_III:
            return true;
        default:
            return false;
    }
}

// The bits an integer encoding keeps of the 32-bit word sf_writef_int takes.
// Companded and ADPCM encodings start from 16-bit words.
int integer_bits(int subtype) {
    switch (subtype) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_DPCM_8:
            return 8;
        case SF_FORMAT_DWVW_12:
            return 12;
        case SF_FORMAT_ALAC_20:
            return 20;
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_DWVW_24:
        case SF_FORMAT_ALAC_24:
            return 24;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_ALAC_32:
            return 32;
        default:
            return is_floating_subtype(subtype) ? 0 : 16;
    }
}

// Bytes per sample of the plain encodings; 0 for the others.
int sample_bytes(int subtype) {
    switch (subtype) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return 1;
        case SF_FORMAT_PCM_16: return 2;
        case SF_FORMAT_PCM_24: return 3;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 4;
        case SF_FORMAT_DOUBLE: return 8;
        default: return 0;
    }
}

// What a pipe can take: the containers libsndfile writes without seeking,
// and WAV, whose header this file writes itself, with PCM or float samples.
bool streamable(int major, int subtype) {
    switch (major) {
        case SF_FORMAT_AU:
        case SF_FORMAT_RAW:
        case SF_FORMAT_FLAC:
        case SF_FORMAT_OGG:
            return true;
        case SF_FORMAT_WAV:
            return subtype == SF_FORMAT_PCM_U8 || subtype == SF_FORMAT_PCM_16 ||
                   subtype == SF_FORMAT_PCM_24 || subtype == SF_FORMAT_PCM_32 ||
                   subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
        default:
            return false;
    }
}

// The header of a WAV stream: its lengths from frames when known, else all
// ones, as a live recording writes them. Format tag 1 (PCM) or 3 (IEEE
// float, with the fmt extension size and the fact chunk that tag asks for);
// 8-bit PCM is unsigned in WAV.
std::string wav_stream_header(int subtype, int rate, int channels,
                              std::optional<uint64_t> frames) {
    std::string h;
    auto u16 = [&](uint32_t v) { h += static_cast<char>(v & 0xFF); h += static_cast<char>(v >> 8); };
    auto u32 = [&](uint32_t v) { u16(v & 0xFFFF); u16(v >> 16); };
    constexpr uint32_t kOpen = 0xFFFFFFFFu;
    const uint32_t frame_bytes = static_cast<uint32_t>(sample_bytes(subtype) * channels);
    const bool floating = subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
    const uint32_t header = floating ? 58 : 44;
    const uint64_t data = frames ? *frames * frame_bytes : kOpen;
    const uint32_t data_size = data < kOpen - header ? static_cast<uint32_t>(data) : kOpen;
    h += "RIFF";
    u32(data_size == kOpen ? kOpen : data_size + data_size % 2 + header - 8);
    h += "WAVEfmt ";
    u32(floating ? 18 : 16);
    u16(floating ? 3 : 1);
    u16(static_cast<uint32_t>(channels));
    u32(static_cast<uint32_t>(rate));
    u32(static_cast<uint32_t>(rate) * frame_bytes);
    u16(frame_bytes);
    u16(frame_bytes / static_cast<uint32_t>(channels) * 8);
    if (floating) {
        u16(0);
        h += "fact";
        u32(4);
        u32(data_size == kOpen ? kOpen : static_cast<uint32_t>(*frames));
    }
    h += "data";
    u32(data_size);
    return h;
}

struct Container {
    const char* extension;
    int major;
    int fixed_subtype;  // 0: chosen by the rules; else the only one offered
};

constexpr Container kContainers[] = {
    {"wav", SF_FORMAT_WAV, 0},   {"wave", SF_FORMAT_WAV, 0},  {"w64", SF_FORMAT_W64, 0},
    {"rf64", SF_FORMAT_RF64, 0}, {"aif", SF_FORMAT_AIFF, 0},  {"aiff", SF_FORMAT_AIFF, 0},
    {"aifc", SF_FORMAT_AIFF, 0}, {"au", SF_FORMAT_AU, 0},     {"snd", SF_FORMAT_AU, 0},
    {"caf", SF_FORMAT_CAF, 0},   {"flac", SF_FORMAT_FLAC, 0}, {"ogg", SF_FORMAT_OGG, 0},
    {"oga", SF_FORMAT_OGG, 0},   {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
    {"raw", SF_FORMAT_RAW, 0},
};

std::string lower_extension(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

int subtype_of(Subtype s) {
    switch (s) {
        case Subtype::Pcm16: return SF_FORMAT_PCM_16;
        case Subtype::Pcm24: return SF_FORMAT_PCM_24;
        case Subtype::Pcm32: return SF_FORMAT_PCM_32;
        case Subtype::Float: return SF_FORMAT_FLOAT;
        case Subtype::Double: return SF_FORMAT_DOUBLE;
        case Subtype::Auto: break;
    }
    return 0;
}

const char* subtype_option_name(Subtype s) {
    switch (s) {
        case Subtype::Pcm16: return "pcm16";
        case Subtype::Pcm24: return "pcm24";
        case Subtype::Pcm32: return "pcm32";
        case Subtype::Float: return "float";
        case Subtype::Double: return "double";
        case Subtype::Auto: break;
    }
    return "auto";
}

std::string major_name(int major) {
    SF_FORMAT_INFO info{};
    info.format = major;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) != 0 || !info.name) return "?";
    std::string name = info.name;
    return name.substr(0, name.find(' '));
}

bool holds(int major, int subtype, const InputInfo& input) {
    SF_INFO info{};
    info.format = major | subtype;
    info.channels = input.channels;
    info.samplerate = input.rate;
    return sf_format_check(&info) != 0;
}

}  // namespace

std::string describe_format(int sf_format) {
    const int subtype = sf_format & SF_FORMAT_SUBMASK;
    std::string sub;
    switch (subtype) {
        case SF_FORMAT_PCM_S8: sub = "8-bit PCM"; break;
        case SF_FORMAT_PCM_U8: sub = "unsigned 8-bit PCM"; break;
        case SF_FORMAT_PCM_16: sub = "16-bit PCM"; break;
        case SF_FORMAT_PCM_24: sub = "24-bit PCM"; break;
        case SF_FORMAT_PCM_32: sub = "32-bit PCM"; break;
        case SF_FORMAT_FLOAT: sub = "32-bit float"; break;
        case SF_FORMAT_DOUBLE: sub = "64-bit float"; break;
        default: {
            SF_FORMAT_INFO info{};
            info.format = subtype;
            sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info);
            sub = info.name ? info.name : "?";
        }
    }
    return sub + " " + major_name(sf_format & SF_FORMAT_TYPEMASK);
}

std::string display_name(const std::string& path) {
    return path == kStdio ? std::string("standard input") : "'" + path + "'";
}

SndReader::SndReader(const std::string& path, const std::optional<RawInput>& raw)
    : name_(display_name(path)) {
    SF_INFO sf_info{};
    if (raw) {
        sf_info.format = SF_FORMAT_RAW | subtype_of(raw->subtype) | SF_ENDIAN_LITTLE;
        sf_info.samplerate = raw->rate;
        sf_info.channels = raw->channels;
    }
    if (path == kStdio) {
        if (isatty(STDIN_FILENO) == 1) throw UsageError("standard input is a terminal");
        file_ = sf_open_fd(STDIN_FILENO, SFM_READ, &sf_info, SF_FALSE);
    } else {
        struct stat st {};
        if (stat(path.c_str(), &st) != 0) {
            throw FileError("cannot open " + name_ + ": " + std::strerror(errno));
        }
        if (S_ISDIR(st.st_mode)) throw FileError("cannot read " + name_ + ": it is a directory");
        file_ = sf_open(path.c_str(), SFM_READ, &sf_info);
    }
    if (!file_) {
        std::string why = sf_strerror(nullptr);
        while (!why.empty() && (why.back() == '.' || why.back() == '\n')) why.pop_back();
        if (why.starts_with("Error : ")) why.erase(0, 8);
        throw FileError("cannot read " + name_ + " as audio: " + why);
    }
    info_.rate = sf_info.samplerate;
    info_.channels = sf_info.channels;
    info_.sf_format = sf_info.format;
    info_.floating = is_floating_subtype(sf_info.format & SF_FORMAT_SUBMASK);
    // A stream whose header leaves its length open (all ones, as written
    // live) announces 2^32 - 1 bytes or more: no length at all.
    const uint64_t frame_bytes = static_cast<uint64_t>(
        std::max(1, sample_bytes(sf_info.format & SF_FORMAT_SUBMASK)) * sf_info.channels);
    // libsndfile gives SF_COUNT_MAX where the header has no length at all.
    if (sf_info.frames >= 0 && sf_info.frames != SF_COUNT_MAX &&
        (sf_info.seekable || static_cast<uint64_t>(sf_info.frames) < 0xFFFFFFFFu / frame_bytes)) {
        info_.frames = static_cast<uint64_t>(sf_info.frames);
    }
    // libsndfile shortens a length that runs past the end of the file to
    // what is there, and notes "(should be N)" in its log.
    std::string log(16384, '\0');
    sf_command(file_, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    header_longer_ = log.find("(should be ") != std::string::npos;
    // Normalised doubles: integer words scaled by 1 / 2^(b-1), floats as stored.
    sf_command(file_, SFC_SET_NORM_DOUBLE, nullptr, SF_TRUE);
}

SndReader::~SndReader() {
    if (file_) sf_close(file_);
}

size_t SndReader::read(double* out, size_t frames) {
    if (ended_) return 0;
    const sf_count_t n = sf_readf_double(file_, out, static_cast<sf_count_t>(frames));
    // Without a length to reach, an error in place of more frames is where
    // the stream ends (libsndfile's FLAC reader reports one there).
    const bool open_end = !info_.frames && n <= 0 && frames_read_ > 0;
    if (sf_error(file_) != SF_ERR_NO_ERROR && !open_end) {
        read_error_ = sf_strerror(file_);
        while (!read_error_.empty() && read_error_.back() == '.') read_error_.pop_back();
        if (read_error_.starts_with("Error : ")) read_error_.erase(0, 8);
        if (frames_read_ + static_cast<uint64_t>(std::max<sf_count_t>(n, 0)) == 0) {
            throw FileError("cannot read " + name_ + ": " + read_error_);
        }
        ended_ = true;
    }
    if (n <= 0) {
        ended_ = true;
        return 0;
    }
    frames_read_ += static_cast<uint64_t>(n);
    return static_cast<size_t>(n);
}

std::string SndReader::shortfall() const {
    const std::string read = std::to_string(frames_read_) +
                             (info_.frames ? " of " + std::to_string(*info_.frames) : "") +
                             " frames read";
    if (!read_error_.empty()) return name_ + " ends early (" + read_error_ + "): " + read;
    if (info_.frames && frames_read_ < *info_.frames) return name_ + " ends early: " + read;
    if (header_longer_) {
        return name_ + " is truncated: its header announces more audio than it holds; " +
               std::to_string(frames_read_) + " frames read";
    }
    return "";
}

bool stdout_is_stream() {
    return lseek(STDOUT_FILENO, 0, SEEK_CUR) < 0;
}

OutputEncoding choose_output_encoding(const std::string& output_path, const std::string& type,
                                      bool stream, const InputInfo& input, Subtype requested) {
    const std::string name = !type.empty()              ? type
                             : output_path == kStdio ? std::string("wav")
                                                     : lower_extension(output_path);
    const Container* container = nullptr;
    for (const Container& c : kContainers) {
        if (name == c.extension) container = &c;
    }
    if (!container && !type.empty()) {
        throw UsageError("--output-type: expected wav, flac, aiff, ogg, caf, w64, rf64, au, opus, "
                         "mp3 or raw, got '" + type + "'");
    }
    if (!container) {
        throw UsageError("cannot tell the output format from '" + output_path +
                         "' (use .wav, .flac, .aiff, .ogg, .caf, .w64, .rf64, .au, .opus, .mp3 "
                         "or .raw, or --output-type)");
    }
    const int major = container->major;
    if (stream && !streamable(major, 0) && major != SF_FORMAT_WAV) {
        throw UsageError(major_name(major) +
                         " cannot be written to a pipe (wav, au, raw, flac and ogg can)");
    }
    auto fits = [&](int subtype) {
        return holds(major, subtype, input) && (!stream || streamable(major, subtype));
    };
    int subtype = 0;
    if (requested != Subtype::Auto) {
        subtype = subtype_of(requested);
        if (container->fixed_subtype != 0 || !fits(subtype)) {
            throw UsageError(std::string("--subtype ") + subtype_option_name(requested) + ": " +
                             major_name(major) + " output cannot hold it");
        }
    } else if (container->fixed_subtype != 0) {
        subtype = container->fixed_subtype;
    } else {
        const int input_subtype = input.sf_format & SF_FORMAT_SUBMASK;
        const int fallback = input.floating ? SF_FORMAT_FLOAT : SF_FORMAT_PCM_16;
        const int candidates[] = {input_subtype, fallback, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16,
                                  SF_FORMAT_VORBIS};
        for (const int candidate : candidates) {
            if (fits(candidate)) {
                subtype = candidate;
                break;
            }
        }
    }
    if (subtype == 0 || !fits(subtype)) {
        throw UsageError(major_name(major) + " output cannot hold " +
                         std::to_string(input.channels) + " channel(s) at " +
                         std::to_string(input.rate) + " Hz");
    }
    // Raw samples are little-endian whatever the machine.
    const int endian = major == SF_FORMAT_RAW ? SF_ENDIAN_LITTLE : 0;
    return {major | subtype | endian, integer_bits(subtype), stream};
}

SndWriter::SndWriter(const std::string& path, const OutputEncoding& encoding, int rate,
                     int channels, std::optional<uint64_t> frames)
    : name_(path == kStdio ? std::string("standard output") : "'" + path + "'") {
    SF_INFO info{};
    info.format = encoding.sf_format;
    info.samplerate = rate;
    info.channels = channels;
    int fd = STDOUT_FILENO;
    if (path != kStdio) {
        temp_.emplace(path);
        fd = temp_->fd();
    } else if (encoding.stream && (encoding.sf_format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV) {
        // libsndfile writes WAV only where it can seek back to the header.
        const int subtype = encoding.sf_format & SF_FORMAT_SUBMASK;
        const std::string header = wav_stream_header(subtype, rate, channels, frames);
        if (::write(fd, header.data(), header.size()) != static_cast<ssize_t>(header.size())) {
            throw FileError("cannot write " + name_ + ": " + std::strerror(errno));
        }
        info.format = SF_FORMAT_RAW | subtype | SF_ENDIAN_LITTLE;
    }
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE);
    if (!file_) {
        throw FileError("cannot write " + name_ + ": " + sf_strerror(nullptr));
    }
}

SndWriter::~SndWriter() {
    if (file_) sf_close(file_);
}

void SndWriter::check(sf_count_t written, size_t count) {
    if (written != static_cast<sf_count_t>(count)) {
        throw FileError("cannot write " + name_ + ": " + sf_strerror(file_));
    }
}

void SndWriter::write(const double* frames, size_t count) {
    check(sf_writef_double(file_, frames, static_cast<sf_count_t>(count)), count);
}

void SndWriter::write(const int32_t* frames, size_t count) {
    check(sf_writef_int(file_, frames, static_cast<sf_count_t>(count)), count);
}

void SndWriter::commit() {
    const int rc = sf_close(file_);
    file_ = nullptr;
    if (rc != 0) {
        throw FileError("cannot write " + name_ + ": " + sf_error_number(rc));
    }
    if (temp_) temp_->commit();
}

}  // namespace taviklimit
