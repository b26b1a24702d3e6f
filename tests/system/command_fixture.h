// The built command, run by a shell in a folder of its own, which goes away with the test.

#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace tvsort::test {

// Ample, the smallest pool there is, and several pages per block.
inline constexpr const char* kMemories[] = {"--memory 64M", "--memory 20K --block-pages 1",
                                            "--memory 100K --block-pages 4"};

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

class CommandTest : public testing::Test {
  protected:
    CommandTest() {
        std::string pattern = testing::TempDir() + "tvsort-test-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = pattern;
    }
    ~CommandTest() override { std::filesystem::remove_all(folder_); }

    const std::filesystem::path& folder() const { return folder_; }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(folder_ / name, std::ios::binary) << content;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // `tvsort-host` with these shell words; redirections among them hold.
    Outcome run(const std::string& words) const {
        const std::string command = "cd '" + folder_.string() +
                                    "' && '" TVSORT_HOST_PROGRAM "' >.output 2>.errors " + words;
        const int status = std::system(command.c_str());
        return {WEXITSTATUS(status), read(".output"), read(".errors")};
    }

  private:
    std::filesystem::path folder_;
};

}  // namespace tvsort::test
