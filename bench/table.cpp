#include "bench/table.h"

#include <fmt/core.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace tvsort::bench {

namespace {

std::vector<std::size_t> columnWidths(const Table& table) {
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
        std::size_t width = table.columns[column].size();
        for (const auto& row : table.rows)
            width = std::max(width, row[column].size());
        widths.push_back(width);
    }
    return widths;
}

void printRow(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) {
    fmt::print("| {:<{}} |", cells[0], widths[0]);
    for (std::size_t column = 1; column < cells.size(); ++column)
        fmt::print(" {:>{}} |", cells[column], widths[column]);
    fmt::print("\n");
}

void printRule(const std::vector<std::size_t>& widths) {
    fmt::print("|{:-<{}}|", "", widths[0] + 2);
    for (std::size_t column = 1; column < widths.size(); ++column)
        fmt::print("{:->{}}:|", "", widths[column] + 1);
    fmt::print("\n");
}

}  // namespace

void print(const Table& table) {
    const std::vector<std::size_t> widths = columnWidths(table);
    fmt::print("\n{}\n\n", table.title);
    printRow(table.columns, widths);
    printRule(widths);
    for (const auto& row : table.rows)
        printRow(row, widths);
    std::fflush(stdout);
}

void writeValues(const Table& table, const std::filesystem::path& directory) {
    const std::filesystem::path path = directory / (table.fileName + ".tsv");
    std::ofstream file(path);
    fmt::print(file, "{}\n", fmt::join(table.columns, "\t"));
    for (const auto& row : table.rows)
        fmt::print(file, "{}\n", fmt::join(row, "\t"));
    file.flush();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string() +
                                 "; check the folder and its free space");
    }
}

}  // namespace tvsort::bench
