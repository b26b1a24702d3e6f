// Programs that sort more data than their memory holds, on lines of text: GNU sort, SQLite and
// PostgreSQL. All of them are given the memory that the process has, in their own terms.
//
//     GNU sort     -S, whole lines in the C locale; from file to file
//     SQLite       cache_size, which also limits its sorter; from a table to its cursor
//     PostgreSQL   work_mem, without helpers in parallel; from a table to a file

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bench/cost.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

class OtherProgram {
  public:
    OtherProgram() = default;
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;
    virtual ~OtherProgram() = default;

    virtual std::string name() const = 0;
    // Makes the lines the program's own: a file, a table. Outside the clock.
    virtual void load(std::span<const Byte> lines) = 0;
    // Sorts them with `memoryBytes`; the lines in order end up in `result`, which is as large.
    virtual Cost sort(std::int64_t memoryBytes, std::span<Byte> result) = 0;
};

// Null where the program is not installed or was not built in.
std::unique_ptr<OtherProgram> makeGnuSort(const std::filesystem::path& folder, int threads);
std::unique_ptr<OtherProgram> makeSqlite(const std::filesystem::path& folder);
std::unique_ptr<OtherProgram> makePostgres(const std::filesystem::path& folder);

// Files that are one array of bytes.
void writeFile(const std::filesystem::path& path, std::span<const Byte> bytes);
// Throws std::runtime_error unless the file has exactly the size of `target`.
void readFile(const std::filesystem::path& path, std::span<Byte> target);

}  // namespace tvsort::bench
