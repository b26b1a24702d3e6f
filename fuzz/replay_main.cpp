// Runs a fuzz target over stored inputs, without a fuzzing engine and with any compiler: the corpus
// and all past findings. Usage: PROGRAM FILE-OR-FOLDER...
//
// An input that takes longer than the watchdog waits ends the program by SIGALRM.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr unsigned kSecondsMax = 20;

int inputCount = 0;

void replay(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
    std::fprintf(stderr, "%s\n", path.c_str());
    alarm(kSecondsMax);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    alarm(0);
    ++inputCount;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    for (int i = 1; i < argumentCount; ++i) {
        if (!std::filesystem::is_directory(arguments[i])) {
            replay(arguments[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i]))
            replay(entry.path());
    }
    std::printf("%d inputs replayed\n", inputCount);
    return inputCount > 0 ? 0 : 1;
}
