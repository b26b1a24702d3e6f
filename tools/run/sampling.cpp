#include "tools/run/sampling.h"

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kSampleBytes = std::size_t{4} << 20;
constexpr std::size_t kSampleRecordsMin = 64;
constexpr std::size_t kSampleRecordsMax = 4096;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

// Every record has the same chance to be in the sample: the n-th takes the place of one of those
// that are in it with the probability size / n (Vitter's algorithm R).
host::KeyRanges sampleKeyRanges(const RecordFlow& flow, std::size_t partCount) {
    const std::size_t recordLength = flow.recordLength;
    const std::size_t sampleMax =
        std::clamp(kSampleBytes / recordLength, kSampleRecordsMin, kSampleRecordsMax);
    std::mt19937_64 random;  // the same records give the same ranges
    std::vector<Byte> sample;
    std::vector<Byte> piece(std::max<std::size_t>(kPieceBytes / recordLength, 1) * recordLength);
    std::uint64_t seen = 0;
    for (const std::shared_ptr<Operand>& operand : flow.operands) {
        while (const std::size_t count = operand->read(piece.data(), piece.size() / recordLength)) {
            throwIfInterrupted();
            for (std::size_t i = 0; i < count; ++i) {
                const Byte* const record = piece.data() + i * recordLength;
                seen += 1;
                if (seen <= sampleMax) {
                    sample.insert(sample.end(), record, record + recordLength);
                } else if (const std::uint64_t place = random() % seen; place < sampleMax) {
                    std::copy_n(record, recordLength, sample.data() + place * recordLength);
                }
            }
        }
    }
    return {flow.request, flow.recordLength, sample, partCount};
}

}  // namespace tvsort::tools
