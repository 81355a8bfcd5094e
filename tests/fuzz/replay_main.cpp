// Runs a fuzz target over every file of the given folders (a committed
// corpus), without the fuzzing engine: the test suite's regression run.
#include <cstdint>
#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            std::ifstream stream(file, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    std::printf("replayed %zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
