#include "audio_io.h"

#include <sys/stat.h>

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

SndReader::SndReader(const std::string& path) : path_(path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        throw FileError("cannot open '" + path + "': " + std::strerror(errno));
    }
    if (S_ISDIR(st.st_mode)) throw FileError("cannot read '" + path + "': it is a directory");
    SF_INFO sf_info{};
    file_ = sf_open(path.c_str(), SFM_READ, &sf_info);
    if (!file_) {
        std::string why = sf_strerror(nullptr);
        while (!why.empty() && (why.back() == '.' || why.back() == '\n')) why.pop_back();
        throw FileError("cannot read '" + path + "' as audio: " + why);
    }
    info_.rate = sf_info.samplerate;
    info_.channels = sf_info.channels;
    info_.frames = sf_info.frames;
    info_.sf_format = sf_info.format;
    info_.floating = is_floating_subtype(sf_info.format & SF_FORMAT_SUBMASK);
    // Normalised doubles: integer words scaled by 1 / 2^(b-1), floats as stored.
    sf_command(file_, SFC_SET_NORM_DOUBLE, nullptr, SF_TRUE);
}

SndReader::~SndReader() {
    if (file_) sf_close(file_);
}

size_t SndReader::read(double* out, size_t frames) {
    const sf_count_t n = sf_readf_double(file_, out, static_cast<sf_count_t>(frames));
    if (n < 0 || (n == 0 && sf_error(file_) != SF_ERR_NO_ERROR)) {
        throw FileError("cannot read '" + path_ + "': " + sf_strerror(file_));
    }
    return static_cast<size_t>(n);
}

OutputEncoding choose_output_encoding(const std::string& output_path, const InputInfo& input,
                                      Subtype requested) {
    const std::string ext = lower_extension(output_path);
    const Container* container = nullptr;
    for (const Container& c : kContainers) {
        if (ext == c.extension) container = &c;
    }
    if (!container) {
        throw UsageError("cannot tell the output format from '" + output_path +
                         "' (use .wav, .flac, .aiff, .ogg, .caf, .w64, .rf64, .au, .opus or .mp3)");
    }
    const int major = container->major;
    int subtype = 0;
    if (requested != Subtype::Auto) {
        subtype = subtype_of(requested);
        if (container->fixed_subtype != 0 || !holds(major, subtype, input)) {
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
            if (holds(major, candidate, input)) {
                subtype = candidate;
                break;
            }
        }
    }
    if (subtype == 0 || !holds(major, subtype, input)) {
        throw UsageError(major_name(major) + " output cannot hold " +
                         std::to_string(input.channels) + " channel(s) at " +
                         std::to_string(input.rate) + " Hz");
    }
    return {major | subtype, integer_bits(subtype)};
}

SndWriter::SndWriter(const std::string& path, const OutputEncoding& encoding, int rate,
                     int channels)
    : temp_(path) {
    SF_INFO info{};
    info.format = encoding.sf_format;
    info.samplerate = rate;
    info.channels = channels;
    file_ = sf_open_fd(temp_.fd(), SFM_WRITE, &info, SF_FALSE);
    if (!file_) {
        throw FileError("cannot write '" + path + "': " + sf_strerror(nullptr));
    }
}

SndWriter::~SndWriter() {
    if (file_) sf_close(file_);
}

void SndWriter::check(sf_count_t written, size_t count) {
    if (written != static_cast<sf_count_t>(count)) {
        throw FileError("cannot write '" + temp_.final_path() + "': " + sf_strerror(file_));
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
        throw FileError("cannot write '" + temp_.final_path() + "': " + sf_error_number(rc));
    }
    temp_.commit();
}

}  // namespace taviklimit
