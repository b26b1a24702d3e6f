#include "process/service/key_list.h"

#include "process/service/channel.h"

namespace tvsort {

namespace {

KeyKind kindOf(const KeyDescriptor& key) {
    return static_cast<KeyKind>(key.kindFlags & kKeyKindMask);
}

bool isSortKey(KeyKind kind) {
    return kind == KeyKind::kDescending || kind == KeyKind::kAscending ||
           kind == KeyKind::kAlsoDescending;
}

void splitKeys(SortJob& job) {
    for (int i = 0; i < job.keyCount; ++i) {
        job.keys[i].position = static_cast<std::uint8_t>(i + 1);
        const KeyKind kind = kindOf(job.keys[i]);
        if (isSortKey(kind)) {
            job.keys[job.primaryKeyCount++] = job.keys[i];
            continue;
        }
        if (kind == KeyKind::kNullIndicators) {
            job.kind4Key = job.keys[i];
            job.hasKind4Key = 1;
        }
        job.extraKeyCount += 1;
    }
    job.keyCount = job.primaryKeyCount;
}

// The sort key with the smallest order number above `orderNumber`, the first of several; null when
// there is none.
const KeyDescriptor* nextInOrder(const SortJob& job, int orderNumber) {
    const KeyDescriptor* next = nullptr;
    for (int i = 0; i < job.keyCount; ++i) {
        const KeyDescriptor& key = job.keys[i];
        if (key.orderNumber <= orderNumber) continue;
        if (next == nullptr || key.orderNumber < next->orderNumber) next = &key;
    }
    return next;
}

void orderKeys(SortJob& job) {
    int orderNumber = 0;
    for (int place = 0; place < job.keyCount; ++place) {
        const KeyDescriptor* const key = nextInOrder(job, orderNumber);
        job.keyOrder[place] = key;
        if (key == nullptr) {
            raise(job, ErrorCode::kKeyOrder);
            return;
        }
        job.keyPositions[place] = key->position;
        orderNumber = key->orderNumber;
    }
}

}  // namespace

void takeKeyList(SortJob& job) {
    if (job.keyCount > kKeysMax) {
        raise(job, ErrorCode::kTooManyKeys);
        return;
    }
    if (job.keyCount == 0) {
        raise(job, ErrorCode::kNoKeys);
        return;
    }
    // What stands in the buffer behind a message is an earlier one's.
    if (messageBytes() < itemCountOffset(job.keyCount)) {
        raise(job, ErrorCode::kRequestContradictory);
        return;
    }
    copyFromMessage(sizeof(SortRequest), job.keys, job.keyCount * sizeof(KeyDescriptor));
    job.hasKind4Key = 0;
    job.extraKeyCount = 0;
    job.primaryKeyCount = 0;
    if (job.sortMode == SortMode::kHierarchy) {
        job.keys[0].kindFlags = static_cast<std::uint8_t>(KeyKind::kIgnored);
    }
    splitKeys(job);
    orderKeys(job);
}

void takeItems(SortJob& job) {
    const std::size_t countOffset =
        itemCountOffset(std::size_t{job.primaryKeyCount} + job.extraKeyCount);
    const std::size_t itemsOffset = countOffset + sizeof job.itemCount;
    const std::size_t length = messageBytes();
    job.itemCount = 0;
    if (length == countOffset) return;
    std::uint16_t itemCount = kItemsMax + 1;
    if (length >= itemsOffset) copyFromMessage(countOffset, &itemCount, sizeof itemCount);
    if (itemCount > kItemsMax || length < itemsOffset + itemCount * sizeof(ByteWeightTable)) {
        raise(job, ErrorCode::kRequestContradictory);
        return;
    }
    copyFromMessage(itemsOffset, job.items, itemCount * sizeof(ByteWeightTable));
    job.itemCount = itemCount;
}

}  // namespace tvsort
