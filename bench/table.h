// A table of results: printed as text that documents can take over, and written as
// tab-separated values that plots are made from.

#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tvsort::bench {

struct Table {
    std::string fileName;  // without its ending
    std::string title;
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
};

// Prints the table to the standard output, the first column to the left, the others to the right.
void print(const Table& table);

// Writes "<directory>/<fileName>.tsv", its first line the column names.
void writeValues(const Table& table, const std::filesystem::path& directory);

}  // namespace tvsort::bench
