// Output files that appear only when complete: written to a temporary file in
// the destination's directory and renamed into place on commit. Uncommitted
// temporaries are removed on destruction and on SIGINT, SIGTERM and SIGHUP.
#pragma once

#include <string>

namespace taviklimit {

class TempFile {
public:
    // Creates the temporary beside final_path; throws FileError.
    explicit TempFile(std::string final_path);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    // The open descriptor; -1 after release_fd().
    int fd() const { return fd_; }
    // Hands the descriptor to someone who will close it.
    int release_fd();
    // Closes the descriptor if still held and renames the temporary into
    // place; throws FileError.
    void commit();

    const std::string& final_path() const { return final_path_; }

private:
    std::string final_path_;
    std::string temp_path_;
    int fd_ = -1;
    int slot_ = -1;
    bool committed_ = false;
};

// Writes text to path through a TempFile; throws FileError.
void write_text_file(const std::string& path, const std::string& text);

// Installs the handlers that remove uncommitted temporaries when the process
// is interrupted.
void install_cleanup_handlers();

}  // namespace taviklimit
