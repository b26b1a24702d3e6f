#include <fmt/core.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "bench/child_process.h"
#include "bench/io_counters.h"
#include "bench/other_programs.h"

namespace tvsort::bench {

namespace {

// Debian keeps each version's programs in a folder of its own. Empty when there is none.
std::filesystem::path programFolder() {
    std::filesystem::path found;
    std::error_code absent;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", absent)) {
        const std::filesystem::path folder = version.path() / "bin";
        if (std::filesystem::exists(folder / "initdb") && folder > found) found = folder;
    }
    return found;
}

// A database cluster of its own, which nobody else can reach. It does not run as root, so root
// hands its folder to the user that Debian's package made.
class Postgres : public OtherProgram {
  public:
    Postgres(const std::filesystem::path& folder, const std::filesystem::path& programs)
        : folder_(folder / "postgres"), programs_(programs) {
        std::filesystem::create_directory(folder_);
        if (geteuid() == 0) {
            userWords_ = {"runuser", "-u", "postgres", "--"};
            run({{"chown", "postgres", folder_.string()}, {}});
        }
        runAsUser("initdb", {"--no-sync", "--auth=trust", "--username=bench", "--encoding=UTF8",
                             "--locale=C", "--pgdata=" + clusterPath()});
        // Nothing is to survive, and the table is not to be kept in memory beside work_mem.
        const std::string settings = fmt::format(
            "-c listen_addresses= -c unix_socket_directories={} -c fsync=off -c autovacuum=off "
            "-c shared_buffers=1MB -c max_parallel_workers_per_gather=0 -c jit=off",
            folder_.string());
        runAsUser("pg_ctl", {"start", "--wait", "--silent", "--pgdata=" + clusterPath(),
                             "--log=" + (folder_ / "log").string(), "--options=" + settings});
    }

    ~Postgres() override {
        try {
            runAsUser("pg_ctl", {"stop", "--mode=immediate", "--pgdata=" + clusterPath()});
        } catch (const std::runtime_error& error) {
            fmt::print(stderr, "{}; stop it by hand\n", error.what());
        }
    }

    std::string name() const override { return "PostgreSQL"; }

    void load(std::span<const Byte> lines) override {
        const std::filesystem::path path = folder_ / "lines";
        writeFile(path, lines);
        ask(
            fmt::format("SET client_min_messages = warning; DROP TABLE IF EXISTS lines; CREATE "
                        "UNLOGGED TABLE lines (key text, rest "
                        "text); COPY lines FROM '{}' (DELIMITER ' '); ANALYZE lines;",
                        path.string()));
    }

    // The server process counts for itself.
    Cost sort(std::int64_t memoryBytes, std::span<Byte> result) override {
        const std::filesystem::path path = folder_ / "sorted-lines";
        const std::string counters =
            "SELECT 'seconds: ' || extract(epoch FROM clock_timestamp()); "
            "SELECT pg_read_file('/proc/self/io'); ";
        std::istringstream answers(ask(
            fmt::format("SET work_mem = '{}kB'; {} COPY (SELECT key, rest FROM lines ORDER BY key) "
                        "TO '{}' (DELIMITER ' '); SELECT 'after'; {}",
                        memoryBytes / 1024, counters, path.string(), counters)));
        const Reading before = takeReading(answers);
        const Reading after = takeReading(answers);
        readFile(path, result);
        Cost cost = difference(before.counters, after.counters);
        cost.wallSeconds = after.seconds - before.seconds;
        return cost;
    }

  private:
    struct Reading {
        double seconds = 0;
        Cost counters;
    };

    // Reads to the mark between the two readings, or to the end.
    static Reading takeReading(std::istream& answers) {
        Reading reading;
        std::ostringstream counters;
        for (std::string line; std::getline(answers, line) && line != "after";) {
            if (line.starts_with("seconds: ")) {
                reading.seconds = std::stod(line.substr(9));
            } else {
                counters << line << '\n';
            }
        }
        std::istringstream text(counters.str());
        reading.counters = parseIoCounters(text);
        return reading;
    }

    std::string clusterPath() const { return (folder_ / "cluster").string(); }

    void runAsUser(const std::string& program, const std::vector<std::string>& arguments) const {
        std::vector<std::string> words = userWords_;
        words.push_back((programs_ / program).string());
        words.insert(words.end(), arguments.begin(), arguments.end());
        run({words, {}});
    }

    // What the statements print, bare.
    std::string ask(const std::string& statements) const {
        const std::filesystem::path script = folder_ / "script.sql";
        const std::filesystem::path output = folder_ / "answers";
        writeFile(script, {reinterpret_cast<const Byte*>(statements.data()), statements.size()});
        run({{(programs_ / "psql").string(), "--no-psqlrc", "--quiet", "--tuples-only",
              "--no-align", "--set=ON_ERROR_STOP=1", "--host=" + folder_.string(),
              "--username=bench", "--dbname=postgres", "--file=" + script.string()},
             {},
             output.string()});
        std::ostringstream text;
        text << std::ifstream(output).rdbuf();
        return text.str();
    }

    std::filesystem::path folder_;
    std::filesystem::path programs_;
    std::vector<std::string> userWords_;
};

}  // namespace

std::unique_ptr<OtherProgram> makePostgres(const std::filesystem::path& folder) {
    const std::filesystem::path programs = programFolder();
    if (programs.empty()) return nullptr;
    return std::make_unique<Postgres>(folder, programs);
}

}  // namespace tvsort::bench
