// Runs a fuzz target over every file of the given folders, without a fuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        for (std::filesystem::directory_iterator entry(argv[i], error), end; !error && entry != end; ++entry) {
            std::ifstream file(entry->path(), std::ios::binary);
            const std::vector<char> seed{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            // A copy of exactly this size, so that a sanitizer sees any read behind the end.
            const std::vector<std::uint8_t> bytes(seed.begin(), seed.end());
            std::printf("%s (%zu bytes)\n", entry->path().filename().string().c_str(), bytes.size());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++count;
        }
    }
    std::printf("%zu seeds replayed\n", count);
    return count > 0 ? 0 : 1;
}
