#include "atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "errors.h"

namespace taviklimit {
namespace {

// Paths the signal handler removes: fixed storage, written before the slot is
// marked in use, read by the handler with async-signal-safe calls only.
constexpr size_t kSlots = 4;
constexpr size_t kPathMax = 4096;
std::array<std::array<char, kPathMax>, kSlots> g_paths{};
volatile std::sig_atomic_t g_in_use[kSlots] = {};

int claim_slot(const std::string& path) {
    if (path.size() >= kPathMax) return -1;
    for (size_t i = 0; i < kSlots; ++i) {
        if (!g_in_use[i]) {
            std::memcpy(g_paths[i].data(), path.c_str(), path.size() + 1);
            g_in_use[i] = 1;
            return static_cast<int>(i);
        }
    }
    return -1;
}

void release_slot(int slot) {
    if (slot >= 0) g_in_use[slot] = 0;
}

extern "C" void remove_temporaries(int sig) {
    for (size_t i = 0; i < kSlots; ++i) {
        if (g_in_use[i]) unlink(g_paths[i].data());
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string base_name_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

TempFile::TempFile(std::string final_path) : final_path_(std::move(final_path)) {
    const std::string dir = directory_of(final_path_);
    std::string name = dir + "/." + base_name_of(final_path_) + ".XXXXXX";
    fd_ = mkstemp(name.data());
    if (fd_ < 0) {
        throw FileError("cannot create a file in '" + dir + "': " + std::strerror(errno));
    }
    temp_path_ = name;
    slot_ = claim_slot(temp_path_);
    // mkstemp makes the file private; give it the mode a new file would get.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_, 0666 & ~mask);
}

TempFile::~TempFile() {
    if (fd_ >= 0) close(fd_);
    if (!committed_) unlink(temp_path_.c_str());
    release_slot(slot_);
}

int TempFile::release_fd() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void TempFile::commit() {
    if (fd_ >= 0) {
        const int rc = close(fd_);
        fd_ = -1;
        if (rc != 0) {
            throw FileError("cannot write '" + final_path_ + "': " + std::strerror(errno));
        }
    }
    if (rename(temp_path_.c_str(), final_path_.c_str()) != 0) {
        throw FileError("cannot create '" + final_path_ + "': " + std::strerror(errno));
    }
    committed_ = true;
    release_slot(slot_);
    slot_ = -1;
}

void write_text_file(const std::string& path, const std::string& text) {
    TempFile file(path);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(file.fd(), text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw FileError("cannot write '" + path + "': " + std::strerror(errno));
        done += static_cast<size_t>(n);
    }
    file.commit();
}

void install_cleanup_handlers() {
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) std::signal(sig, remove_temporaries);
}

}  // namespace taviklimit
