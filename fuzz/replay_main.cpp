// The fuzz target as a plain program, for builds without libFuzzer: runs
// LLVMFuzzerTestOneInput on every file of the folders (and files) it is
// given, in name order, so that the sanitizer builds replay the corpus. A
// failed check aborts; otherwise it prints how many inputs it ran.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int a = 1; a < argc; ++a) {
        const fs::path given(argv[a]);
        if (fs::is_directory(given)) {
            for (const auto& entry : fs::recursive_directory_iterator(given))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else {
            inputs.push_back(given);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    for (const fs::path& p : inputs) {
        std::ifstream in(p, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", p.c_str());
            return 1;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "%s\n", p.c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs\n", inputs.size());
    return 0;
}
