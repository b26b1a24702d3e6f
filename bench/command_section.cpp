#include <fmt/core.h>

#include <fstream>
#include <functional>
#include <random>

#include "bench/child_process.h"
#include "bench/other_programs.h"
#include "bench/sections.h"
#include "bench/table.h"

namespace tvsort::bench {

namespace {

namespace fs = std::filesystem;

// So many times the records of the run.
constexpr std::size_t kCityShare = 4;
constexpr std::size_t kLineShare = 10;
constexpr std::size_t kWideColumns = 41;
constexpr std::size_t kFlushBytes = std::size_t{1} << 20;

class TextFile {
  public:
    explicit TextFile(const fs::path& path) : file_(path, std::ios::binary) {}
    ~TextFile() { file_ << text_; }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    template <typename... Values>
    void add(fmt::format_string<const Values&...> form, const Values&... values) {
        fmt::format_to(std::back_inserter(text_), form, values...);
        if (text_.size() < kFlushBytes) return;
        file_ << text_;
        text_.clear();
    }

  private:
    std::ofstream file_;
    std::string text_;
};

// Rows as a list of the world's towns has them: some 54 bytes, names that recur, few populations.
void writeCities(const fs::path& path, std::size_t count) {
    constexpr const char* kSyllables[] = {"ba", "ko", "li",  "mar", "ne", "san", "ta",   "vil",
                                          "ur", "el", "ber", "dor", "in", "gra", "land", "os"};
    std::mt19937 random(1);
    TextFile file(path);
    file.add("Country,City,AccentCity,Region,Population,Latitude,Longitude\n");
    std::vector<std::string> names(100'000);
    for (std::string& name : names) {
        for (std::uint_fast32_t i = 2 + random() % 4; i > 0; --i)
            name += kSyllables[random() % std::size(kSyllables)];
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& name = names[random() % names.size()];
        // A few countries have most of the towns.
        const std::uint_fast32_t country = random() % (1 + random() % 234);
        const bool isCounted = random() % 7 == 0;
        file.add("{}{},{},{}{},{:02},{},{}.{:07},{}.{:06}\n", static_cast<char>('a' + country / 26),
                 static_cast<char>('a' + country % 26), name,
                 static_cast<char>(name[0] - 'a' + 'A'), name.substr(1), random() % 100,
                 isCounted ? std::to_string(random() % 10'000'000 / (1 + random() % 1000)) : "",
                 static_cast<int>(random() % 180) - 90, random() % 10'000'000,
                 static_cast<int>(random() % 360) - 180, random() % 1'000'000);
    }
}

void writeWideRows(const fs::path& path, std::size_t count) {
    std::mt19937_64 random(2);
    TextFile file(path);
    for (std::size_t column = 0; column < kWideColumns; ++column)
        file.add("{}c{}", column == 0 ? "" : ",", column);
    file.add("\n");
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t column = 0; column < kWideColumns; ++column)
            file.add("{}{}", column == 0 ? "" : ",", random() % 1'000'000'000'000);
        file.add("\n");
    }
}

struct Contender {
    std::string name;
    std::vector<std::string> words;
    fs::path output;
    bool isOwn;
};

struct DataSet {
    std::string name;
    std::string input;
    std::size_t rows;
    std::function<void(const fs::path&)> write;
    std::vector<std::string> keys;         // words of the command
    std::string duckOrder;                 // empty: not for it
    std::vector<std::string> millerOrder;  // likewise
    bool isOfLines;
};

std::vector<DataSet> dataSets(std::size_t count) {
    const auto writeRecords = [](const fs::path& path, std::size_t lines) {
        writeFile(path, makeRecords(textLines(), lines));
    };
    return {{"towns by country, population descending, name",
             "towns.csv",
             kCityShare * count,
             [=](const fs::path& path) { writeCities(path, kCityShare * count); },
             {"--key", "Country", "--key", "Population:int:desc", "--key", "City"},
             "Country, Population DESC NULLS FIRST, City",
             {"-f", "Country", "-nr", "Population", "-f", "City"},
             false},
            {"rows of 41 columns by one",
             "wide.csv",
             count,
             [=](const fs::path& path) { writeWideRows(path, count); },
             {"--key", "c7:int"},
             "c7",
             {"-nf", "c7"},
             false},
            {"lines of 100 bytes",
             "lines",
             kLineShare * count,
             [=](const fs::path& path) { writeRecords(path, kLineShare * count); },
             {"--lines"},
             "",
             {},
             true},
            {"records of 100 bytes by ten",
             "records",
             kLineShare * count,
             [=](const fs::path& path) { writeRecords(path, kLineShare * count); },
             {"--record-length", "100", "--key", "bytes:0:10"},
             "",
             {},
             false}};
}

std::vector<std::string> commandOf(const Options& options, const DataSet& data,
                                   const std::string& memory, int processes,
                                   const fs::path& output) {
    const fs::path program = options.builds[0].program;
    std::vector<std::string> words = {(program.parent_path() / "tvsort-host").string(),
                                      "sort",
                                      "--process",
                                      program.string(),
                                      "--memory",
                                      memory,
                                      "--processes",
                                      std::to_string(processes),
                                      "--temp-dir",
                                      options.workDirectory.string(),
                                      "--output",
                                      output.string()};
    words.insert(words.end(), data.keys.begin(), data.keys.end());
    words.push_back((options.workDirectory / data.input).string());
    return words;
}

// Every contender with one thread or process and with two.
std::vector<Contender> contenders(const Options& options, const DataSet& data) {
    const fs::path& folder = options.workDirectory;
    std::vector<Contender> found;
    for (const char* memory : {"1G", "64M"}) {
        for (const int count : {1, 2}) {
            const fs::path output = folder / fmt::format("own-{}-{}", memory, count);
            found.push_back({fmt::format("tvsort-host, {}, {}", memory, count),
                             commandOf(options, data, memory, count, output), output, true});
        }
    }
    const std::string input = (folder / data.input).string();
    for (const int threads : {1, 2}) {
        const fs::path output = folder / fmt::format("other-{}", threads);
        for (const char* memory : {"1G", "64M"}) {
            if (!data.isOfLines) continue;
            found.push_back(
                {fmt::format("GNU sort, {}, {}", memory, threads),
                 {"env", "LC_ALL=C", "sort", fmt::format("--buffer-size={}", memory),
                  fmt::format("--parallel={}", threads), "--temporary-directory=" + folder.string(),
                  "--output=" + output.string(), input},
                 output,
                 false});
        }
        if (data.duckOrder.empty() || options.nodeModules.empty()) continue;
        for (const char* engine : {"duckdb", "polars"}) {
            if (!fs::exists(options.nodeModules / (engine == std::string("duckdb")
                                                       ? "@duckdb/node-api"
                                                       : "nodejs-polars"))) {
                continue;
            }
            found.push_back({fmt::format("{}, {}", engine, threads),
                             {"env", fmt::format("POLARS_MAX_THREADS={}", threads), "node",
                              (fs::path(TVSORT_BENCH_FOLDER) / "peers.mjs").string(), engine,
                              options.nodeModules.string(), std::to_string(threads), input,
                              output.string(), data.duckOrder},
                             output,
                             false});
        }
    }
    if (!data.millerOrder.empty() && isInstalled("mlr")) {
        const fs::path output = folder / "other-miller";
        found.push_back({"Miller", {"mlr", "--csv", "sort"}, output, false});
        std::vector<std::string>& words = found.back().words;
        words.insert(words.end(), data.millerOrder.begin(), data.millerOrder.end());
        words.push_back(input);
    }
    if (!data.duckOrder.empty() && isInstalled("sqlite3")) {
        const std::string output = (folder / "other-sqlite").string();
        found.push_back(
            {"sqlite3",
             {"sqlite3", ":memory:", ".mode csv", ".import '" + input + "' t", ".headers on",
              ".output '" + output + "'", "SELECT * FROM t ORDER BY " + data.duckOrder},
             output,
             false});
    }
    return found;
}

// Whatever the others do with rows that are alike: the result is in order and has all rows.
void check(const DataSet& data, const Contender& contender, const fs::path& first) {
    if (contender.isOwn || data.isOfLines) {
        run({{"cmp", contender.output.string(), first.string()}, {}});
        return;
    }
    const auto expected = fs::file_size(first);
    const auto found = fs::file_size(contender.output);
    // Numbers and line ends may be written otherwise.
    if (found < expected / 2 || found > expected * 2)
        throw std::runtime_error(contender.name + " wrote another number of bytes");
}

}  // namespace

void showCommand(const Options& options) {
    const auto rounds = static_cast<std::size_t>(options.rounds);
    for (const DataSet& data : dataSets(options.recordCount)) {
        data.write(options.workDirectory / data.input);
        const auto bytes = static_cast<double>(fs::file_size(options.workDirectory / data.input));
        Table table = {
            "command-" + data.input,
            fmt::format("{}: {} rows, {:.0f} MB, from file to file (medians of {} "
                        "rounds, and the first one)",
                        data.name, data.rows, bytes / 1e6, rounds),
            {"program", "seconds", "first", "processor", "multiple", "moved/byte", "peak MB"},
            {}};
        std::vector<Contender> all = contenders(options, data);
        std::vector<Series> contest;
        for (const Contender& contender : all)
            contest.push_back(
                {contender.name, contender.isOwn ? Role::kBuild : Role::kSort, {}, {}});
        for (std::size_t round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < all.size(); ++i) {
                contest[i].costs.push_back(
                    run({all[i].words,
                         {},
                         all[i].name == "Miller" ? all[i].output.string() : "/dev/null"}));
                check(data, all[i], all[0].output);
                if (i > 0) fs::remove(all[i].output);
            }
        }
        for (const Series& series : contest) {
            table.rows.push_back(
                {series.name, fmt::format("{:.2f}", medianSeconds(series, Clock::kWall)),
                 fmt::format("{:.2f}", series.costs[0].wallSeconds),
                 fmt::format("{:.2f}", medianSeconds(series, Clock::kCpu)),
                 describe(ratioOf(series, contest[0], Clock::kWall)),
                 fmt::format("{:.2f}", static_cast<double>(series.costs[0].movedBytes()) / bytes),
                 fmt::format("{:.0f}", static_cast<double>(series.costs[0].peakBytes) / 1e6)});
        }
        print(table);
        writeValues(table, options.resultDirectory);
        fs::remove(options.workDirectory / data.input);
        fs::remove(all[0].output);
    }
}

}  // namespace tvsort::bench
