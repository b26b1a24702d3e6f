// Nanoseconds per comparison of two records, for each key type, beside memcmp on 16 bytes, ICU's
// collator and GEOS's envelopes on the same values.
//
// The rows of the process call the ordering comparator itself, with one ascending key. Neighbours
// of 1024 records in random order are compared, so that branches and caches see what a sort shows
// them.

#include <benchmark/benchmark.h>
#include <geos_c.h>
#include <unicode/ucol.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/values/collation_writer.h"
#include "host/values/value_text.h"
#include "process/collation/collation_table.h"
#include "process/keys/key_meaning.h"
#include "process/keys/record_precedes.h"

namespace {

using namespace tvsort;

constexpr std::size_t kRecordCount = 1024;
constexpr std::uint32_t kStride = 1024;  // bytes from record to record
constexpr std::uint16_t kTextBytes = 32;

std::mt19937_64 randomBits(20561);

using Texts = std::vector<std::string>;

template <typename Make>
Texts makeTexts(Make make) {
    Texts texts;
    for (std::size_t i = 0; i < kRecordCount; ++i)
        texts.push_back(make());
    return texts;
}

std::string number(std::uint64_t below) {
    return std::to_string(randomBits() % below);
}

std::string coordinates() {
    return number(1000) + "." + number(1000) + " " + number(1000) + "." + number(1000);
}

std::string signedAmount() {
    std::string text = randomBits() % 2 == 0 ? "-" : "+";
    text += number(1000000) + "." + number(100);
    return text;
}

// Sixteen letters, of which the first four are always the same.
std::string word() {
    constexpr const char* kLetters[] = {"a", "b", "c", "d", "e", "é", "è", "z"};
    std::string text = "tvso";
    for (int i = 0; i < 12; ++i)
        text += kLetters[randomBits() % 8];
    return text;
}

std::string asciiWord() {
    std::string text = "tvso";
    for (int i = 0; i < 12; ++i)
        text += static_cast<char>('a' + randomBits() % 8);
    return text;
}

std::string polygonOf16Points() {
    const std::string first = coordinates();
    std::string text = "POLYGON ((" + first;
    for (int i = 0; i < 14; ++i)
        text += ", " + coordinates();
    return text + ", " + first + "))";
}

// A job with one key and records that consist of its field.
class KeyBed {
  public:
    KeyBed(const KeyDescriptor& key, const Texts& texts, const host::ValueFormat& format)
        : frames_(kRecordCount * kStride), job_(std::make_unique<SortJob>()) {
        job_->frameArea = frames_.data();
        job_->recordLength = kStride;
        host::ValueEncoder encoder(format);
        for (std::size_t i = 0; i < kRecordCount; ++i)
            lay(key, encoder.encode(texts[i]), frames_.data() + i * kStride);
        job_->keys[0] = key;
        job_->keyOrder[0] = &job_->keys[0];
        job_->keyPositions[0] = 1;
        job_->keyCount = 1;
        job_->itemCount = 1;
        job_->items[0].identifier = key.weightTableId;
        job_->items[0].applies = 1;
        for (int i = 0; i < 256; ++i)
            job_->items[0].weights[i] = static_cast<std::uint8_t>(255 - i);
        resolveKeyRules(*job_);
    }

    void compareNeighbours(benchmark::State& state) {
        std::uint32_t i = 0;
        for (auto _ : state) {
            const std::uint32_t next = (i + 1) % kRecordCount;
            benchmark::DoNotOptimize(recordPrecedes(*job_, i * kStride, next * kStride));
            i = next;
        }
        if (job_->errorCode != ErrorCode::kSuccess) state.SkipWithError("a value was refused");
    }

  private:
    static void lay(const KeyDescriptor& key, const std::vector<Byte>& value, Byte* field) {
        const auto type = static_cast<DataType>(key.dataType);
        const bool isPrefixed = type == DataType::kString || type == DataType::kWeightedString ||
                                type == DataType::kUnitString;
        if (isPrefixed) storeAs(field, static_cast<std::uint16_t>(value.size()));
        std::memcpy(field + (isPrefixed ? kLengthPrefixBytes : 0), value.data(), value.size());
    }

    std::vector<Byte> frames_;
    std::unique_ptr<SortJob> job_;
};

// A row of the process: values of `format`, compared as `dataType`.
void addKeyRow(const std::string& name, const std::string& format, DataType dataType,
               const Texts& texts, std::uint16_t fieldLength = 1000) {
    const host::ValueFormat values = host::valueFormat(format);
    KeyDescriptor key = values.key(0, fieldLength);
    key.dataType = static_cast<std::uint8_t>(dataType);
    key.weightTableId = 1;
    const auto bed = std::make_shared<KeyBed>(key, texts, values);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [bed](benchmark::State& state) { bed->compareNeighbours(state); });
}

void addMemcmpRow(const Texts& texts) {
    benchmark::RegisterBenchmark("memcmp/16 bytes", [texts](benchmark::State& state) {
        std::vector<char> values;
        for (const std::string& text : texts)
            values.insert(values.end(), text.begin(), text.begin() + 16);
        std::size_t i = 0;
        for (auto _ : state) {
            const std::size_t next = (i + 1) % kRecordCount;
            benchmark::DoNotOptimize(std::memcmp(&values[16 * i], &values[16 * next], 16) < 0);
            i = next;
        }
    });
}

void addIcuRow(const std::string& name, const Texts& texts, UCollationStrength strength) {
    host::ValueEncoder encoder(host::valueFormat("ucs2"));
    std::vector<std::u16string> strings;
    for (const std::string& text : texts) {
        const std::vector<Byte>& bytes = encoder.encode(text);
        strings.emplace_back(bytes.size() / 2, u' ');
        std::memcpy(strings.back().data(), bytes.data(), bytes.size());
    }
    benchmark::RegisterBenchmark(name.c_str(), [strings, strength](benchmark::State& state) {
        UErrorCode status = U_ZERO_ERROR;
        UCollator* const icu = ucol_open("", &status);
        ucol_setStrength(icu, strength);
        std::size_t i = 0;
        for (auto _ : state) {
            const std::u16string& left = strings[i];
            i = (i + 1) % kRecordCount;
            const std::u16string& right = strings[i];
            benchmark::DoNotOptimize(
                ucol_strcoll(icu, left.data(), static_cast<std::int32_t>(left.size()), right.data(),
                             static_cast<std::int32_t>(right.size())));
        }
        ucol_close(icu);
    });
}

// Both values from their bytes, as the process does it.
void addGeosRow(const std::string& name, const Texts& texts) {
    host::ValueEncoder encoder(host::valueFormat("wkt"));
    std::vector<std::vector<Byte>> values;
    for (const std::string& text : texts)
        values.push_back(encoder.encode(text));
    benchmark::RegisterBenchmark(name.c_str(), [values](benchmark::State& state) {
        const GEOSContextHandle_t context = GEOS_init_r();
        GEOSWKBReader* const reader = GEOSWKBReader_create_r(context);
        const auto lowerLeft = [&](const std::vector<Byte>& value) {
            GEOSGeometry* const geometry =
                GEOSWKBReader_read_r(context, reader, value.data(), value.size());
            double x = 0;
            double y = 0;
            GEOSGeom_getXMin_r(context, geometry, &x);
            GEOSGeom_getYMin_r(context, geometry, &y);
            GEOSGeom_destroy_r(context, geometry);
            return std::pair(x, y);
        };
        std::size_t i = 0;
        for (auto _ : state) {
            const std::size_t next = (i + 1) % kRecordCount;
            benchmark::DoNotOptimize(lowerLeft(values[i]) < lowerLeft(values[next]));
            i = next;
        }
        GEOSWKBReader_destroy_r(context, reader);
        GEOS_finish_r(context);
    });
}

void addNumberRows() {
    const Texts integers = makeTexts([] { return number(30000); });
    addKeyRow("int16", "int16", DataType::kInteger, integers);
    addKeyRow("int32", "int32", DataType::kInteger, integers);
    addKeyRow("int64", "int64", DataType::kInteger, integers);
    addKeyRow("float", "float", DataType::kFloat, integers);
    addKeyRow("double", "double", DataType::kFloat, integers);
    addKeyRow("byte", "byte", DataType::kSingleByte, makeTexts([] { return number(256); }));
    addKeyRow("decimal", "decimal:2", DataType::kDecimal, makeTexts(signedAmount));
}

void addTextRows(const Texts& words, const Texts& asciiWords) {
    addKeyRow("bytes/16", "string", DataType::kBytes, asciiWords, 16);
    addKeyRow("weighted bytes/16", "string", DataType::kWeightedBytes, asciiWords, 16);
    addKeyRow("string/16", "string", DataType::kString, asciiWords);
    addKeyRow("weighted string/16", "string", DataType::kWeightedString, asciiWords);
    addKeyRow("fixed field/512", "string", DataType::kFixedField, asciiWords);
    addKeyRow("ucs2/16 units", "ucs2", DataType::kUnits, words, kTextBytes);
    addKeyRow("ucs2 string/16 units", "ucs2", DataType::kUnitString, words);
}

void addCollatedRows(const Texts& words) {
    static const host::CollationFile file =
        host::makeCollationFile(host::collationOrder("root", host::CollationStrength::kTertiary));
    static const CollationTable table = {file.bytes.data() + kCollationHeaderBytes};
    collationTable = &table;
    addKeyRow("collated ucs2/16 units", "ucs2", DataType::kUnits, words, kTextBytes);
    addKeyRow("collated ucs2 string/16 units", "ucs2", DataType::kUnitString, words);
    addIcuRow("icu tertiary/16 units", words, UCOL_TERTIARY);
    addIcuRow("icu primary/16 units", words, UCOL_PRIMARY);
}

void addGeometryRows() {
    const Texts points = makeTexts([] { return "POINT (" + coordinates() + ")"; });
    const Texts polygons = makeTexts(polygonOf16Points);
    addKeyRow("point", "wkt", DataType::kString, points);
    addKeyRow("polygon/16 points", "wkt", DataType::kString, polygons);
    addKeyRow("stored envelope", "wkt-envelope", DataType::kString, polygons);
    addGeosRow("geos point", points);
    addGeosRow("geos polygon/16 points", polygons);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return 1;
    const Texts words = makeTexts(word);
    const Texts asciiWords = makeTexts(asciiWord);
    addMemcmpRow(asciiWords);
    addNumberRows();
    addTextRows(words, asciiWords);
    addCollatedRows(words);
    addGeometryRows();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
