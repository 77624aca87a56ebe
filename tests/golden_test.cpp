// Golden vectors: replays every case of tests/golden/vectors.txt through
// Limiter_Process, apart and in place, and compares the SHA-256 of the output
// with the manifest. With TVL_GOLDEN_PRINT=1 in the environment it prints the
// manifest lines with the hashes it computed instead of comparing them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/sha256.h"
#include "support/stream_model.h"

using namespace tvl_test;

namespace {

const std::string kGoldenDir = std::string(TVL_TEST_DATA_DIR) + "/golden/";

struct GoldenCase {
    std::string name;
    uint32_t pcm_format = 0, channels = 0;
    std::string input_file, schedule, sha256;
};

std::vector<GoldenCase> read_manifest() {
    std::ifstream f(kGoldenDir + "vectors.txt");
    EXPECT_TRUE(f.good()) << "cannot open " << kGoldenDir << "vectors.txt";
    std::vector<GoldenCase> cases;
    for (std::string line; std::getline(f, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        GoldenCase c;
        words >> c.name >> c.pcm_format >> c.channels >> c.input_file >> c.schedule >> c.sha256;
        EXPECT_TRUE(words && c.pcm_format <= 2 && (c.channels == 1 || c.channels == 2)) << "bad line: " << line;
        cases.push_back(c);
    }
    return cases;
}

std::string replay(const GoldenCase& c, const std::vector<unsigned char>& input, bool in_place) {
    const bool stereo = c.channels == 2;
    const size_t frame_bytes = c.channels * in_sample_bytes(c.pcm_format);
    Driver d(c.pcm_format, stereo, bytes_encoder(input, stereo), input.size() / frame_bytes);
    d.run(c.schedule, in_place);
    return sha256_hex(d.output);
}

TEST(Golden, OutputHashesMatchTheManifest) {
    const char* env = std::getenv("TVL_GOLDEN_PRINT");
    const bool print = env && std::string(env) == "1";
    const auto cases = read_manifest();
    EXPECT_GE(cases.size(), 24u);
    for (const GoldenCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::ifstream f(kGoldenDir + c.input_file, std::ios::binary);
        ASSERT_TRUE(f.good()) << "cannot open " << c.input_file;
        const std::vector<unsigned char> input((std::istreambuf_iterator<char>(f)), {});
        ASSERT_EQ(input.size() % (c.channels * in_sample_bytes(c.pcm_format)), 0u);
        const std::string apart = replay(c, input, false), in_place = replay(c, input, true);
        EXPECT_EQ(apart, in_place) << "in place differs from apart";
        if (print) {
            std::printf("%s %u %u %s %s %s\n", c.name.c_str(), c.pcm_format, c.channels, c.input_file.c_str(),
                        c.schedule.c_str(), apart.c_str());
        } else {
            EXPECT_EQ(apart, c.sha256);
        }
    }
}

TEST(Sha256, KnownDigests) {
    auto bytes = [](const std::string& s) { return std::vector<unsigned char>(s.begin(), s.end()); };
    EXPECT_EQ(sha256_hex(bytes("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256_hex(bytes("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256_hex(bytes("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");  // two blocks
}

}  // namespace
