// Two records and one key: what both comparators say of them.

#pragma once

#include <initializer_list>

#include "process/keys/key_meaning.h"
#include "process/keys/record_precedes.h"
#include "process/keys/records_differ.h"
#include "tests/support/served_job.h"

namespace tvsort::test {

// Which record comes first, by the ordering comparator in both argument orders.
enum class Verdict { kLeftFirst, kTie, kRightFirst };

class KeyCases {
  public:
    static constexpr std::uint32_t kLeftPlace = 0;
    static constexpr std::uint32_t kRightPlace = 2048;

    SortJob& job() { return served_.job(); }

    // The keys in force, in comparison order. Byte-weight tables come from `job().items`.
    void setKeys(std::initializer_list<KeyDescriptor> keys) {
        SortJob& job = served_.job();
        job.keyCount = 0;
        job.recordLength = kRightPlace;
        for (const KeyDescriptor& key : keys) {
            job.keys[job.keyCount] = key;
            job.keyOrder[job.keyCount] = &job.keys[job.keyCount];
            job.keyPositions[job.keyCount] = static_cast<std::uint8_t>(job.keyCount + 1);
            job.keyCount += 1;
        }
        resolveKeyRules(job);
    }

    void setRecords(const Bytes& left, const Bytes& right) {
        put(kLeftPlace, left);
        put(kRightPlace, right);
    }

    // `errorCode` stays for the caller to look at.
    Verdict order() {
        SortJob& job = served_.job();
        job.errorCode = ErrorCode::kSuccess;
        job.compareState = 0;
        const bool leftFirst = recordPrecedes(job, kLeftPlace, kRightPlace);
        const bool rightFirst = recordPrecedes(job, kRightPlace, kLeftPlace);
        EXPECT_FALSE(leftFirst && rightFirst);
        if (leftFirst) return Verdict::kLeftFirst;
        return rightFirst ? Verdict::kRightFirst : Verdict::kTie;
    }

    Verdict order(const Bytes& left, const Bytes& right) {
        setRecords(left, right);
        return order();
    }

    Difference difference() {
        served_.job().errorCode = ErrorCode::kSuccess;
        return recordsDiffer(served_.job(), kLeftPlace, kRightPlace);
    }

  private:
    void put(std::uint32_t place, const Bytes& record) {
        Byte* const target = recordAt(served_.job(), place);
        std::fill_n(target, kRightPlace, Byte{0xee});
        std::copy(record.begin(), record.end(), target);
    }

    ServedJob served_;
};

template <typename Value>
Bytes bytesOf(const Value& value) {
    const auto* const start = reinterpret_cast<const Byte*>(&value);
    return Bytes(start, start + sizeof value);
}

// A length-prefixed value; `length` states another length than the content's.
inline Bytes prefixed(const std::string& content) {
    Bytes bytes(sizeof(std::int16_t) + content.size());
    storeAs(bytes.data(), static_cast<std::int16_t>(content.size()));
    std::copy(content.begin(), content.end(), bytes.begin() + sizeof(std::int16_t));
    return bytes;
}
inline Bytes prefixed(std::int16_t length, const std::string& content) {
    Bytes bytes = prefixed(content);
    storeAs(bytes.data(), length);
    return bytes;
}

}  // namespace tvsort::test
