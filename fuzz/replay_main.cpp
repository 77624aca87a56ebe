// Runs a fuzz target over saved inputs without libFuzzer, so that every
// build (gcc, the arm64 cross build under qemu, valgrind) replays the corpus:
//   <fuzzer>_replay FILE_OR_DIRECTORY...
// Each file is one input; directories are read file by file in name order.
// A failed check inside the target aborts, which fails the run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path p(argv[i]);
        if (std::filesystem::is_directory(p)) {
            for (const auto& e : std::filesystem::directory_iterator(p)) {
                if (e.is_regular_file()) files.push_back(e.path());
            }
        } else if (std::filesystem::exists(p)) {
            files.push_back(p);
        } else {
            std::fprintf(stderr, "replay: %s does not exist\n", argv[i]);
            return 2;
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("replay: %zu inputs passed\n", files.size());
    return files.empty() ? 1 : 0;
}
