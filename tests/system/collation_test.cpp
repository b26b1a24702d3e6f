// The order of real words: the running process with a table made by ICU, beside ICU's collator.

#include <gtest/gtest.h>
#include <unicode/ucol.h>

#include <cstdio>
#include <fstream>

#include "host/collation_directory.h"
#include "host/sort_server.h"
#include "host/values/collation_writer.h"
#include "host/values/ucs2_text.h"

namespace tvsort::host {
namespace {

constexpr std::size_t kUnitsMax = 40;
constexpr std::uint16_t kRecordLength = kLengthPrefixBytes + 2 * kUnitsMax;

// Some thousand words out of a dictionary of alphabetical order, each as a length-prefixed value.
std::vector<std::vector<Byte>> readWords(const std::string& dictionary) {
    std::ifstream file(dictionary);
    std::vector<std::vector<Byte>> words;
    int lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        if (lineNumber++ % 70 != 0) continue;
        std::vector<Byte> word(kLengthPrefixBytes);
        appendUcs2(line, word);
        storeAs(word.data(), static_cast<std::uint16_t>(word.size() - kLengthPrefixBytes));
        if (word.size() <= kRecordLength) words.push_back(word);
        words.back().resize(kRecordLength);
    }
    return words;
}

std::vector<std::u16string> sortWords(const std::vector<std::vector<Byte>>& words,
                                      const CollationDirectory& collation,
                                      std::int32_t memoryPages) {
    ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = memoryPages;
    options.pagesPerBlock = 2;
    options.requestTimeout = Timeout{60000};
    options.directoryPrefix = collation.prefix();
    SortServer server(options);
    RequestBuilder request;
    request.addKey(ascendingKey(DataType::kUnitString, 0, 2 * kUnitsMax));
    std::size_t next = 0;
    const SortResult result = server.slot(1).sort(
        request, chooseGeometry(kRecordLength, 2), [&](Byte* target, std::size_t) -> std::size_t {
            // Not in their dictionary's order: 7919 is prime.
            if (next == words.size()) return 0;
            const std::vector<Byte>& word = words[next * 7919 % words.size()];
            std::copy(word.begin(), word.end(), target);
            next += 1;
            return 1;
        });
    std::vector<std::u16string> sorted;
    result.read([&sorted](const Byte* first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const Byte* const record = first + i * kRecordLength;
            std::u16string word(loadU16(record) / 2U, u' ');
            for (std::size_t unit = 0; unit < word.size(); ++unit) {
                word[unit] = loadU16(record + kLengthPrefixBytes + 2 * unit);
            }
            sorted.push_back(word);
        }
    });
    return sorted;
}

// The share of neighbours that ICU does not put the other way round.
double agreement(const std::vector<std::u16string>& words, const char* locale,
                 CollationStrength strength) {
    UErrorCode status = U_ZERO_ERROR;
    UCollator* const icu = ucol_open(locale, &status);
    ucol_setStrength(icu, static_cast<UCollationStrength>(strength));
    std::size_t agreed = 0;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto order =
            ucol_strcoll(icu, words[i - 1].data(), static_cast<std::int32_t>(words[i - 1].size()),
                         words[i].data(), static_cast<std::int32_t>(words[i].size()));
        agreed += order != UCOL_GREATER ? 1 : 0;
    }
    ucol_close(icu);
    return static_cast<double>(agreed) / static_cast<double>(words.size() - 1);
}

TEST(Collation, OrdersRealWordsNearlyAsIcuDoes) {
    struct Case {
        const char* dictionary;
        const char* locale;
        CollationStrength strength;
        double agreementMin;
    };
    // What is missing are accents and case that count before the letters behind them, and ß, which
    // is one unit to a table and two letters to ICU.
    const Case cases[] = {
        {"/usr/share/dict/french", "fr", CollationStrength::kPrimary, 0.999},
        {"/usr/share/dict/french", "fr", CollationStrength::kTertiary, 0.96},
        {"/usr/share/dict/ngerman", "de", CollationStrength::kPrimary, 0.999},
        {"/usr/share/dict/ngerman", "de", CollationStrength::kTertiary, 0.95},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.dictionary);
        const auto words = readWords(c.dictionary);
        if (words.empty()) GTEST_SKIP() << c.dictionary << " is missing: install wfrench, wngerman";
        ASSERT_GT(words.size(), 4000U);
        const CollationFile file = makeCollationFile(collationOrder(c.locale, c.strength));
        const CollationDirectory collation(defaultTempDirectory(), 20561, file.bytes);
        const double inMemory = agreement(sortWords(words, collation, 1000), c.locale, c.strength);
        const double spilled = agreement(sortWords(words, collation, 10), c.locale, c.strength);
        std::printf(
            "%s, strength %d: %zu words, %.2f %% of the neighbours as ICU has them "
            "(%.2f %% spilled)\n",
            c.locale, int(c.strength) + 1, words.size(), 100 * inMemory, 100 * spilled);
        EXPECT_GE(inMemory, c.agreementMin);
        EXPECT_GE(spilled, c.agreementMin);
    }
}

}  // namespace
}  // namespace tvsort::host
