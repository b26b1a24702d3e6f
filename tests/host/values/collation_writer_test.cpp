// Collation files made from ICU's collations: the weights of single units beside ICU's order.

#include "host/values/collation_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>

#include "host/collation_directory.h"
#include "host/host_error.h"
#include "process/collation/collation_table.h"

namespace tvsort::host {
namespace {

constexpr auto kPrimary = CollationStrength::kPrimary;
constexpr auto kSecondary = CollationStrength::kSecondary;
constexpr auto kTertiary = CollationStrength::kTertiary;

class Weights {
  public:
    Weights(const std::string& locale, CollationStrength strength)
        : file_(makeCollationFile(collationOrder(locale, strength))) {}

    std::uint16_t of(char16_t unit) const {
        return unitWeight({file_.bytes.data() + kCollationHeaderBytes}, unit);
    }
    int compare(char16_t left, char16_t right) const {
        return of(left) < of(right) ? -1 : int{of(left) > of(right)};
    }
    const CollationFile& file() const { return file_; }

  private:
    CollationFile file_;
};

TEST(CollationWriter, UnitsStandAsTheirLanguagesWantThem) {
    struct Case {
        std::string locale;
        CollationStrength strength;
        char16_t left, right;
        int order;
    };
    const Case cases[] = {
        {"root", kPrimary, u'a', u'A', 0},      {"root", kPrimary, u'á', u'a', 0},
        {"root", kPrimary, u'a', u'ａ', 0},     {"root", kPrimary, u'á', u'b', -1},
        {"root", kPrimary, u'9', u'a', -1},     {"root", kPrimary, u'²', u'2', 0},
        {"root", kPrimary, u' ', u'!', -1},     {"root", kPrimary, u'z', u'α', -1},
        {"root", kPrimary, u'я', u'あ', -1},    {"root", kPrimary, u'あ', u'一', -1},
        {"root", kPrimary, u'一', u'㊀', 0},    {"root", kPrimary, u'一', u'丁', -1},
        {"root", kPrimary, 0xf900, 0x8c48, 0},  {"root", kPrimary, u'가', u'각', -1},
        {"root", kSecondary, u'a', u'A', 0},    {"root", kSecondary, u'A', u'á', -1},
        {"root", kTertiary, u'a', u'A', -1},    {"root", kTertiary, u'A', u'á', -1},
        {"root", kTertiary, u'á', u'Á', -1},    {"root", kTertiary, u'Á', u'b', -1},
        {"root", kTertiary, 0x0301, u'\t', -1}, {"root", kTertiary, 0x0001, 0x0002, 0},
        {"root", kTertiary, 0x212b, 0x00c5, 0}, {"de", kPrimary, u'ä', u'a', 0},
        {"sv", kPrimary, u'z', u'å', -1},       {"sv", kPrimary, u'å', u'ä', -1},
        {"sv", kPrimary, u'ä', u'ö', -1},       {"th", kPrimary, u'ก', u'ข', -1},
        {"th", kPrimary, u'z', u'ก', -1},       {"es", kPrimary, u'n', u'ñ', -1},
        {"et", kPrimary, u'z', u't', -1},       {"de_AT", kPrimary, u'ö', u'o', 0},
    };
    std::optional<Weights> weights;
    const Case* previous = nullptr;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.locale << ", case " << (&c - cases));
        const bool another =
            previous == nullptr || c.locale != previous->locale || c.strength != previous->strength;
        if (another) weights.emplace(c.locale, c.strength);
        previous = &c;
        EXPECT_EQ(weights->compare(c.left, c.right), c.order);
        EXPECT_EQ(weights->compare(c.right, c.left), -c.order);
    }
}

// For units in ICU's order it is enough to look at neighbours.
TEST(CollationWriter, LettersOfEuropeAndJapanHaveExactlyIcusOrder) {
    for (const char* locale : {"fr", "da", "cs", "ja", "th"}) {
        for (const CollationStrength strength : {kPrimary, kSecondary, kTertiary}) {
            const Weights weights(locale, strength);
            UErrorCode status = U_ZERO_ERROR;
            UCollator* const icu = ucol_open(locale, &status);
            ucol_setStrength(icu, static_cast<UCollationStrength>(strength));
            const std::int32_t rootOrder = UCOL_REORDER_CODE_NONE;  // of scripts
            ucol_setReorderCodes(icu, &rootOrder, 1, &status);
            std::vector<UChar> units;
            for (std::uint32_t unit = 0; unit < 65536; ++unit) {
                const std::uint32_t page = unit >> 8;
                const bool wanted =
                    page <= 5 || (page >= 0x1e && page <= 0x20) || page == 0x30 || page == 0xff;
                const bool likeIdeograph = unit == 0x3007 || (unit >= 0x3038 && unit <= 0x303a);
                if (wanted && u_isdefined(static_cast<UChar32>(unit)) != 0 && !likeIdeograph) {
                    units.push_back(static_cast<UChar>(unit));
                }
            }
            const auto compare = [icu](UChar left, UChar right) {
                return static_cast<int>(ucol_strcoll(icu, &left, 1, &right, 1));
            };
            std::stable_sort(units.begin(), units.end(), [&compare](UChar left, UChar right) {
                return compare(left, right) < 0;
            });
            for (std::size_t i = 1; i < units.size(); ++i) {
                EXPECT_EQ(weights.compare(units[i - 1], units[i]), compare(units[i - 1], units[i]))
                    << locale << ", strength " << int(strength) << std::hex << ", units "
                    << int(units[i - 1]) << " and " << int(units[i]);
            }
            ucol_close(icu);
        }
    }
}

TEST(CollationWriter, FilesHoldAllPagesTheyCanAndAreTrusted) {
    const Weights weights("root", kTertiary);
    const CollationFile& file = weights.file();
    EXPECT_EQ(file.bytes.size(), 8U + 512 + 43 * 1536);
    EXPECT_TRUE(isCollationFile(file.bytes.data(), file.bytes.size()));
    EXPECT_EQ(file.exactUnits(), 42U * 256);
    EXPECT_EQ(file.displacedUnits, 0U);
    EXPECT_EQ(file.unmappedUnits, 0U);
    for (const int own : {0x3400, 0x4e00, 0x9fff, 0xa000, 0xac00, 0xd7a3, 0xd800, 0xf8ff}) {
        EXPECT_EQ(weights.of(static_cast<char16_t>(own)), own);
    }
}

// A unit that weighs its own value occupies the number; others may weigh it only where ICU tells
// them from an ideograph or syllable by their form alone.
TEST(CollationWriter, UnitsThatIcuTellsApartAreNotMadeEqual) {
    for (const CollationStrength strength : {kPrimary, kTertiary}) {
        const CollationOrder order = collationOrder("root", strength);
        const Weights weights("root", strength);
        std::map<std::uint16_t, std::uint32_t> unitOfWeight;
        std::uint32_t merged = 0;
        for (const bool exact : {false, true}) {
            for (std::uint32_t unit = 0; unit < 65536; ++unit) {
                if (weights.file().exactPages[unit >> 8] != exact) continue;
                const std::uint16_t weight = weights.of(static_cast<char16_t>(unit));
                const std::uint32_t other = unitOfWeight.emplace(weight, unit).first->second;
                if (order.places[unit] == order.places[other]) continue;
                EXPECT_EQ(order.primaryPlaces[unit], order.primaryPlaces[other]);
                EXPECT_NE(order.kinds[other], UnitKind::kOther) << std::hex << unit;
                merged += 1;
            }
        }
        EXPECT_EQ(merged, weights.file().mergedUnits);
        EXPECT_EQ(merged, strength == kPrimary ? 0U : 414U);
    }
}

TEST(CollationWriter, LocalesThatIcuDoesNotKnowAreRefused) {
    for (const char* locale : {"", "zz", "french", "qq-DE", "../etc/passwd"}) {
        EXPECT_THROW(collationOrder(locale, kPrimary), HostError) << locale;
    }
    EXPECT_EQ(collationOrder("de-AT", kPrimary).places, collationOrder("de_AT", kPrimary).places);
}

TEST(CollationDirectory, TakesCollationFilesOnly) {
    const std::vector<Byte> good = makeCollationFile(collationOrder("root", kPrimary)).bytes;
    std::vector<Byte> cut = good;
    cut.pop_back();
    std::vector<Byte> other = good;
    other[5] ^= 1;
    const auto temp = std::filesystem::temp_directory_path();
    EXPECT_EQ(std::filesystem::file_size(CollationDirectory(temp, 7, good).prefix() + "tavucs7"),
              good.size());
    EXPECT_THROW(CollationDirectory(temp, 7, {}), HostError);
    EXPECT_THAT(collationFileFault({}), testing::HasSubstr("0 bytes"));
    EXPECT_THAT(collationFileFault(cut), testing::HasSubstr("does not lie inside"));
    EXPECT_THAT(collationFileFault(other), testing::HasSubstr("magic number"));
}

}  // namespace
}  // namespace tvsort::host
