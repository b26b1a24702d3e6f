// Runs a fuzz target without a fuzzing engine and with any compiler: over stored inputs, the corpus
// and all past findings, or over inputs at random. Usage: PROGRAM FILE-OR-FOLDER...
//                                                         PROGRAM --random INPUTS [SEED]
//
// An input that takes longer than the watchdog waits ends the program by SIGALRM. One at random
// that fails is kept as ./failed-input.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr unsigned kSecondsMax = 20;

constexpr std::size_t kRandomBytesMax = 256;
constexpr int kDeadlySignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM};

std::vector<std::uint8_t> input;
struct sigaction oldActions[NSIG];

void run() {
    alarm(kSecondsMax);
    LLVMFuzzerTestOneInput(input.data(), input.size());
    alarm(0);
}

void replay(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    input.assign(std::istreambuf_iterator<char>(stream), {});
    std::fprintf(stderr, "%s\n", path.c_str());
    run();
}

int replayAll(int count, char** paths) {
    int inputs = 0;
    for (int i = 0; i < count; ++i) {
        if (!std::filesystem::is_directory(paths[i])) {
            replay(paths[i]);
            ++inputs;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(paths[i])) {
            replay(entry.path());
            ++inputs;
        }
    }
    return inputs;
}

// Keeps the input; the signal is then somebody else's again.
void keepInput(int signalNumber) {
    const int file = open("failed-input", O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (write(file, input.data(), input.size()) < 0) std::perror("failed-input");
    close(file);
    sigaction(signalNumber, &oldActions[signalNumber], nullptr);
    raise(signalNumber);
}

int runAtRandom(int inputs, std::uint32_t seed) {
    struct sigaction action = {};
    action.sa_handler = keepInput;
    for (const int signalNumber : kDeadlySignals)
        sigaction(signalNumber, &action, &oldActions[signalNumber]);
    std::mt19937 random(seed);
    for (int i = 0; i < inputs; ++i) {
        input.resize(1 + random() % kRandomBytesMax);
        for (std::uint8_t& byte : input)
            byte = static_cast<std::uint8_t>(random() >> 24);
        run();
    }
    return inputs;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const bool atRandom = argumentCount > 2 && std::string_view(arguments[1]) == "--random";
    const int inputs =
        atRandom ? runAtRandom(
                       std::atoi(arguments[2]),
                       static_cast<std::uint32_t>(argumentCount > 3 ? std::atoi(arguments[3]) : 1))
                 : replayAll(argumentCount - 1, arguments + 1);
    std::printf("%d inputs replayed\n", inputs);
    return inputs > 0 ? 0 : 1;
}
