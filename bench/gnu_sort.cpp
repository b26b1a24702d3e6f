#include <fmt/core.h>

#include <fstream>
#include <stdexcept>

#include "bench/child_process.h"
#include "bench/other_programs.h"

namespace tvsort::bench {

namespace {

class GnuSort : public OtherProgram {
  public:
    GnuSort(const std::filesystem::path& folder, int threads)
        : folder_(folder), threads_(threads) {}

    std::string name() const override {
        return threads_ == 1 ? "GNU sort" : fmt::format("GNU sort, {} threads", threads_);
    }

    void load(std::span<const Byte> lines) override { writeFile(folder_ / "lines", lines); }

    Cost sort(std::int64_t memoryBytes, std::span<Byte> result) override {
        const std::filesystem::path output = folder_ / "sorted-lines";
        const Cost cost = run(
            {{"sort", fmt::format("--buffer-size={}b", memoryBytes),
              fmt::format("--parallel={}", threads_), "--temporary-directory=" + folder_.string(),
              "--output=" + output.string(), (folder_ / "lines").string()},
             {"LC_ALL=C"}});
        readFile(output, result);
        return cost;
    }

  private:
    std::filesystem::path folder_;
    int threads_;
};

}  // namespace

std::unique_ptr<OtherProgram> makeGnuSort(const std::filesystem::path& folder, int threads) {
    if (!isInstalled("sort")) return nullptr;
    return std::make_unique<GnuSort>(folder, threads);
}

void writeFile(const std::filesystem::path& path, std::span<const Byte> bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.flush();
    if (!file) throw std::runtime_error("cannot write " + path.string());
}

void readFile(const std::filesystem::path& path, std::span<Byte> target) {
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(target.data()), static_cast<std::streamsize>(target.size()));
    if (!file || file.peek() != std::ifstream::traits_type::eof()) {
        throw std::runtime_error(path.string() + " does not have the size of the lines");
    }
}

}  // namespace tvsort::bench
