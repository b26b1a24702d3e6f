// Ways to sort beside a process that lies, one for each reader of what comes back.

#pragma once

#include <map>
#include <string>

namespace tvsort::test {

struct Way {
    const char* name;
    const char* words;  // of a shell, behind `tvsort-host sort`
};

inline constexpr Way kWays[] = {
    {"lines", "--lines lines"},
    {"lines spilled", "--lines many --memory 20K --block-pages 1"},
    {"long lines", "--lines long"},
    {"rounds", "--lines alike"},
    {"values", "--lines --as int32 numbers"},
    {"values that the process compares", "--lines --as ucs2 numbers"},
    {"distinct", "--record-length 8 --key int32:0 --distinct records"},
    {"groups of lines", "--lines --groups lines"},
    {"groups", "--record-length 8 --key int32:0 --groups records"},
    {"counts", "--record-length 8 --key int32:0 --groups=count records"},
    {"limited", "--lines --limit 5 many"},
    {"intersection", "--record-length 8 --key int32:0 --intersect records records records"},
    {"difference", "--lines --except --all lines numbers"},
    {"unique", "--record-length 8 --key int32:0 --unique records"},
    {"hierarchy", "--lines --hierarchy outline"},
    {"records", "--record-length 8 --key int32:0 records"},
    {"rows", "--key number:int rows.csv"},
    {"rows that the process compares", "--key number:ucs2 wide.csv"},
    {"rows left behind", "--key number:int wide.csv wide.csv"},
    {"rows in groups", "--key number:int --groups wide.csv"},
    {"two processes", "--lines --processes 2 many"},
};

// By name, what the words above read.
inline std::map<std::string, std::string> inputFiles() {
    std::string lines;
    std::string many;
    std::string alike;
    std::string rows = "number,text\n";
    std::string wide = rows;
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i * 7 % 40);
        lines += number + "\n";
        alike += std::string(80, 'a') + number + "\n";
        rows += number + ",x\n";
        wide += number + "," + std::string(static_cast<std::size_t>(i) * 30, 'w') + "\n";
    }
    for (int i = 0; i < 4000; ++i)
        many += std::to_string(i * 7919 % 4000) + "\n";
    return {{"lines", lines},
            {"numbers", lines},
            {"many", many},
            {"alike", alike},
            {"long", lines + std::string(40000, 'l') + "\n"},
            {"outline", "a\n\tb\n\t\tc\n\td\ne\n"},
            {"records", lines.substr(0, 104)},
            {"rows.csv", rows},
            {"wide.csv", wide}};
}

}  // namespace tvsort::test
