// Runs a fuzz target without a fuzzing engine: over every file named on the
// command line (files, or folders searched recursively), and over a fixed
// number of deterministic mutations of each table (.dbf) among them (bit
// flips, byte overwrites with boundary values, truncations, extensions).
// Other files (memo files, code pages) are given as they are: as table bytes
// they fail at the header, which the mutated tables reach as well. Used by
// ctest so that every build, sanitizer builds included, replays the corpus;
// --shard=K/N takes every Nth file from the Kth, so that ctest can run the
// shards side by side.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

uint32_t next(uint32_t& s) {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    return s;
}

void mutate_and_run(const std::vector<uint8_t>& input, int rounds, uint32_t seed) {
    static const uint8_t boundary[] = {0x00, 0x01, 0x0D, 0x1A, 0x20, 0x7F, 0x80, 0xF5, 0xFE, 0xFF};
    for (int r = 0; r < rounds; ++r) {
        std::vector<uint8_t> m = input;
        int edits = 1 + static_cast<int>(next(seed) % 4);
        for (int e = 0; e < edits; ++e) {
            uint32_t what = next(seed) % 5;
            // Edits favour the header and descriptors, where structure lives.
            size_t span = std::min<size_t>(m.size(), (next(seed) % 2) ? 512 : m.size());
            if (what == 0 && span) {
                m[next(seed) % span] ^= static_cast<uint8_t>(1u << (next(seed) % 8));
            } else if (what == 1 && span) {
                m[next(seed) % span] = boundary[next(seed) % sizeof boundary];
            } else if (what == 2 && !m.empty()) {
                m.resize(next(seed) % m.size());
            } else if (what == 3) {
                m.resize(m.size() + 1 + next(seed) % 64, static_cast<uint8_t>(next(seed)));
            } else if (span >= 4) {
                size_t at = next(seed) % (span - 3);
                uint32_t v = (next(seed) % 2) ? 0xFFFFFFFFu : next(seed);
                for (int i = 0; i < 4; ++i) m[at + i] = static_cast<uint8_t>(v >> (8 * i));
            }
        }
        LLVMFuzzerTestOneInput(m.data(), m.size());
    }
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 20;
    unsigned shard = 0, shards = 1;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a.rfind("--rounds=", 0) == 0) {
            rounds = std::atoi(a.c_str() + 9);
            continue;
        }
        if (std::sscanf(a.c_str(), "--shard=%u/%u", &shard, &shards) == 2) {
            if (shards == 0 || shard >= shards) return 2;
            continue;
        }
        std::error_code ec;
        if (fs::is_directory(a, ec)) {
            for (auto it = fs::recursive_directory_iterator(a, ec);
                 !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
                if (it->is_regular_file()) files.push_back(it->path());
        } else {
            files.emplace_back(a);
        }
    }
    std::sort(files.begin(), files.end());
    uint32_t seed = 0x9E3779B9u;
    size_t replayed = 0, mutated = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        seed += 0x6D2B79F5u;  // the same mutations of a file in any shard
        if (i % shards != shard) continue;
        std::vector<uint8_t> data = read_file(files[i]);
        LLVMFuzzerTestOneInput(data.data(), data.size());
        ++replayed;
        std::string ext = files[i].extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        if (ext != ".dbf") continue;
        mutate_and_run(data, rounds, seed);
        ++mutated;
    }
    // Inputs with no file behind them.
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %zu files, %zu tables of them with %d mutations each\n", replayed,
                mutated, rounds);
    return 0;
}
