// Runs a fuzz target once over inputs, without libFuzzer: every file named on the command
// line and every file in every folder named. Linked with each fuzz target in the ordinary
// builds, it lets the committed corpora run as tests under every compiler and sanitizer.
// Exits 1 when no input was found (a corpus that went missing is a mistake, not a pass).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path p(argv[i]);
        if (fs::is_directory(p)) {
            for (const fs::directory_entry& e : fs::directory_iterator(p))
                if (e.is_regular_file())
                    inputs.push_back(e.path());
        } else {
            inputs.push_back(p);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& p : inputs) {
        std::ifstream f(p, std::ios::binary);
        if (!f) {
            std::fprintf(stderr, "cannot read %s\n", p.string().c_str());
            return 1;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        std::printf("%s (%zu bytes)\n", p.filename().string().c_str(), bytes.size());
        std::fflush(stdout);
        static const uint8_t none = 0;
        LLVMFuzzerTestOneInput(bytes.empty() ? &none : reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
