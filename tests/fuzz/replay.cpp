// SPDX-License-Identifier: Apache-2.0
// Stands in for libFuzzer: feeds every file of the given directories to the target, cut off at
// every length, in memory that ends there.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator{argv[i]}) {
            std::ifstream file{entry.path(), std::ios::binary};
            const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>{file}, {}};
            for (auto end = bytes.begin(); end != bytes.end(); ++replayed) {
                const std::vector<std::uint8_t> part{bytes.begin(), ++end};
                LLVMFuzzerTestOneInput(part.data(), part.size());
            }
        }
    }
    std::printf("%d inputs\n", replayed);
    return replayed == 0 ? 1 : 0;
}
