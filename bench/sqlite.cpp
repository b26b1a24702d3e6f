#include "bench/other_programs.h"

#ifdef TVSORT_BENCH_SQLITE

#include <fmt/core.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "bench/io_counters.h"
#include "bench/record_rules.h"

namespace tvsort::bench {

namespace {

class Sqlite : public OtherProgram {
  public:
    explicit Sqlite(const std::filesystem::path& folder) : path_(folder / "lines.sqlite") {
        setenv("SQLITE_TMPDIR", folder.c_str(), 1);
        check(sqlite3_open(path_.c_str(), &connection_));
        execute("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA temp_store = FILE");
    }
    ~Sqlite() override { sqlite3_close(connection_); }

    std::string name() const override { return "SQLite"; }

    void load(std::span<const Byte> lines) override {
        execute("DROP TABLE IF EXISTS lines; CREATE TABLE lines (key BLOB, rest BLOB); BEGIN");
        const Statement insert(*this, "INSERT INTO lines VALUES (?, ?)");
        for (std::size_t at = 0; at < lines.size(); at += TextLine::kRecordLength) {
            const Byte* const line = lines.data() + at;
            sqlite3_bind_blob(insert.get(), 1, line, kKeyBytes, SQLITE_STATIC);
            sqlite3_bind_blob(insert.get(), 2, line + kKeyBytes, kRestBytes, SQLITE_STATIC);
            sqlite3_step(insert.get());
            check(sqlite3_reset(insert.get()));
        }
        execute("COMMIT");
    }

    Cost sort(std::int64_t memoryBytes, std::span<Byte> result) override {
        execute(fmt::format("PRAGMA cache_size = -{}", memoryBytes / 1024));
        const Cost before = ioCountersOf("self");
        const auto start = std::chrono::steady_clock::now();
        const Statement select(*this, "SELECT key, rest FROM lines ORDER BY key");
        Byte* target = result.data();
        Byte* const resultEnd = target + result.size();
        while (sqlite3_step(select.get()) == SQLITE_ROW && target != resultEnd) {
            std::memcpy(target, sqlite3_column_blob(select.get(), 0), kKeyBytes);
            std::memcpy(target + kKeyBytes, sqlite3_column_blob(select.get(), 1), kRestBytes);
            target += TextLine::kRecordLength;
        }
        const auto end = std::chrono::steady_clock::now();
        Cost cost = difference(before, ioCountersOf("self"));
        check(sqlite3_reset(select.get()));
        cost.wallSeconds = std::chrono::duration<double>(end - start).count();
        if (target != resultEnd) throw std::runtime_error("SQLite gave back too few lines");
        return cost;
    }

  private:
    static constexpr int kKeyBytes = TextLine::kKeyBytes;
    static constexpr int kRestBytes = TextLine::kRecordLength - TextLine::kKeyBytes;

    // A prepared statement for as long as it is needed.
    class Statement {
      public:
        Statement(Sqlite& sqlite, const char* text) {
            sqlite.check(sqlite3_prepare_v2(sqlite.connection_, text, -1, &statement_, nullptr));
        }
        ~Statement() { sqlite3_finalize(statement_); }
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;
        sqlite3_stmt* get() const { return statement_; }

      private:
        sqlite3_stmt* statement_ = nullptr;
    };

    void check(int result) const {
        if (result == SQLITE_OK) return;
        throw std::runtime_error(
            fmt::format("SQLite on {}: {}", path_.string(), sqlite3_errmsg(connection_)));
    }

    void execute(const std::string& text) const {
        check(sqlite3_exec(connection_, text.c_str(), nullptr, nullptr, nullptr));
    }

    std::filesystem::path path_;
    sqlite3* connection_ = nullptr;
};

}  // namespace

std::unique_ptr<OtherProgram> makeSqlite(const std::filesystem::path& folder) {
    return std::make_unique<Sqlite>(folder);
}

}  // namespace tvsort::bench

#else

namespace tvsort::bench {

std::unique_ptr<OtherProgram> makeSqlite(const std::filesystem::path&) {
    return nullptr;
}

}  // namespace tvsort::bench

#endif
