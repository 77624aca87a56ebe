// Error kinds of taviklimit and the exit status each one ends with.
#pragma once

#include <stdexcept>

namespace taviklimit {

enum ExitStatus : int {
    kExitOk = 0,
    kExitFile = 1,   // an input or output file cannot be read, written or handled
    kExitUsage = 2,  // the command line is wrong
    kExitInterrupted = 130,
};

// The command line asks for something impossible: a bad option or value, a
// missing operand, an output that is the input.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A file cannot be opened, read, written or processed.
struct FileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace taviklimit
