// Collation files under construction, byte by byte.
//
// Every unit weighs its own value until something else is set; a page is laid where the first of
// its units is set.

#pragma once

#include "process/collation/collation_table.h"
#include "tests/support/served_job.h"

namespace tvsort::test {

class CollationBytes {
  public:
    CollationBytes() {
        file_.resize(kCollationHeaderBytes + kCollationPageOffsetsBytes);
        storeAs(file_.data() + kCollationMagicOffset, kCollationMagic);
        const std::uint16_t page = addPage();
        for (std::uint32_t high = 0; high < kCollationPageCount; ++high)
            setPage(high, page);
    }

    Bytes& file() { return file_; }
    const Byte* table() const { return file_.data() + kCollationHeaderBytes; }

    std::uint16_t addPage() {
        const auto offset = static_cast<std::uint16_t>(file_.size() - kCollationHeaderBytes);
        for (int i = 0; i < 256; ++i) {
            const Byte ownValue[kCollationEntryBytes] = {0x00, 0x0a, 0x00, 0x00, 0xff, 0xff};
            file_.insert(file_.end(), ownValue, ownValue + sizeof ownValue);
        }
        return offset;
    }
    void setPage(std::uint32_t high, std::uint16_t offset) {
        storeAs(file_.data() + kCollationHeaderBytes + 2 * high, offset);
    }
    void setEntry(std::uint16_t unit, std::uint16_t flags, std::uint16_t low,
                  std::uint16_t weight) {
        if (!hasPage_[unit >> 8]) setPage(unit >> 8, addPage());
        hasPage_[unit >> 8] = true;
        Byte* const entry = file_.data() + kCollationHeaderBytes +
                            loadU16(table() + (unit >> 8) * 2) +
                            (unit & 0xff) * kCollationEntryBytes;
        storeAs(entry, flags);
        storeAs(entry + 2, low);
        storeAs(entry + 4, weight);
    }
    void setWeight(std::uint16_t unit, std::uint16_t weight) { setEntry(unit, 0, 0, weight); }

  private:
    Bytes file_;
    bool hasPage_[256] = {};
};

}  // namespace tvsort::test
