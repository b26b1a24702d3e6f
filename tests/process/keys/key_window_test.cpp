#include "process/keys/key_window.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/process/keys/key_worlds.h"

namespace tvsort::test {
namespace {

constexpr int kRecords = 60;

int signOf(int order) {
    return (order > 0) - (order < 0);
}

// Calls `look` with the first `count` records, which are one group.
auto oneGroup(KeyWorld& world, int count) {
    return [&world, count](auto look) {
        for (int i = 0; i < count; ++i)
            look(world.record(i), i == 0);
    };
}

class FittedWindow {
  public:
    // Fits a window from `place` on to what `visit` calls its argument with.
    template <typename Visit>
    FittedWindow(KeyWorld& world, const NormalizedKey& key, const KeyPlace& place,
                 const WindowFit& fit, Visit visit)
        : world_(world) {
        fitWindow(key, place, fit, visit, window);
    }
    std::uint64_t readFitted(int index) const {
        std::uint64_t digits = 0;
        withReader(window, [&](auto reader) { digits = reader.readFitted(world_.record(index)); });
        return digits;
    }
    std::uint64_t read(int index, std::uint32_t& misfits) const {
        std::uint64_t digits = 0;
        withReader(window,
                   [&](auto reader) { digits = reader.read(world_.record(index), misfits); });
        return digits;
    }

    KeyWindow window;

  private:
    KeyWorld& world_;
};

WindowFit randomFit(KeyWorld& world, std::uint32_t widest) {
    const std::uint32_t widthMax = world.below(3) == 0 ? widest : 1 + world.below(20);
    return {widthMax, 1 + world.below(widthMax), world.below(2) == 0};
}

using Digits = std::vector<std::uint64_t>;

// Calls `look` with all records, in groups of those with the same digits.
auto groupsOf(KeyWorld& world, const std::vector<Digits>& digits) {
    std::map<Digits, std::vector<int>> groups;
    for (std::size_t i = 0; i < digits.size(); ++i)
        groups[digits[i]].push_back(static_cast<int>(i));
    return [&world, groups](auto look) {
        for (const auto& [shared, group] : groups) {
            for (const int index : group)
                look(world.record(index), index == group.front());
        }
    };
}

// One window behind the other, until the key ends: each orders what those before it left equal. It
// is fitted to all records, or to the groups of those that are still equal.
TEST(KeyWindow, WindowsInARowOrderAsTheKeyDoes) {
    for (std::uint32_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        KeyWorld world(seed, kRecords);
        NormalizedKey key;
        describeKey(world.job(), key);
        std::vector<Digits> digits(kRecords);
        KeyPlace place = kKeyStart;
        for (bool endsKey = key.segmentCount == 0; !endsKey;) {
            WindowFit fit = randomFit(world, kWindowBits);
            const bool inGroups = seed % 2 == 0 && !digits[0].empty();
            if (inGroups) fit.findFollowers = false;
            const FittedWindow fitted =
                inGroups ? FittedWindow(world, key, place, fit, groupsOf(world, digits))
                         : FittedWindow(world, key, place, fit, oneGroup(world, kRecords));
            ASSERT_LE(fitted.window.width, fit.widthMax);
            ASSERT_LT(digits[0].size(), kWindowBits * kSegmentsMax);  // each window moves on
            for (int i = 0; i < kRecords; ++i) {
                std::uint32_t misfits = 0;
                const std::uint64_t found = fitted.readFitted(i);
                digits[static_cast<std::size_t>(i)].push_back(found);
                ASSERT_EQ(fitted.window.width == kWindowBits ? 0 : found >> fitted.window.width,
                          0U);
                if (inGroups) continue;
                ASSERT_EQ(fitted.read(i, misfits), found);
                ASSERT_EQ(misfits, 0U);
            }
            place = fitted.window.next;
            endsKey = fitted.window.endsKey;
        }
        for (std::size_t i = 0; i < kRecords; ++i) {
            for (std::size_t j = 0; j < kRecords; ++j) {
                const int order = compareKeys(key, kKeyStart, world.record(static_cast<int>(i)),
                                              world.record(static_cast<int>(j)))
                                      .order;
                ASSERT_EQ(signOf(order), (digits[i] > digits[j]) - (digits[i] < digits[j]));
            }
        }
    }
}

// What a sample's window shows of other records never contradicts the key, and says of each whether
// it can be trusted to tell it from those that fit.
TEST(KeyWindow, OfASampleOrdersOtherRecordsLooselyAndKnowsThem) {
    std::uint32_t misfitsAtAll = 0;
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        KeyWorld world(seed, kRecords);
        NormalizedKey key;
        describeKey(world.job(), key);
        const int sampled = 2 + static_cast<int>(world.below(6));
        const FittedWindow fitted(world, key, kKeyStart, randomFit(world, kWindowBits - 1),
                                  oneGroup(world, sampled));
        std::uint64_t digits[kRecords];
        std::uint32_t misfits[kRecords] = {};
        for (int i = 0; i < kRecords; ++i) {
            digits[i] = fitted.read(i, misfits[i]);
            if (i < sampled) {
                ASSERT_EQ(misfits[i], 0U);
            }
            misfitsAtAll += misfits[i];
        }
        for (int i = 0; i < kRecords; ++i) {
            for (int j = 0; j < kRecords; ++j) {
                const int order =
                    compareKeys(key, kKeyStart, world.record(i), world.record(j)).order;
                if (order < 0) {
                    ASSERT_LE(digits[i], digits[j]);
                }
                if (misfits[i] + misfits[j] > 0 || digits[i] != digits[j]) continue;
                ASSERT_EQ(signOf(order), signOf(compareKeys(key, fitted.window.next,
                                                            world.record(i), world.record(j))
                                                    .order));
            }
        }
    }
    EXPECT_GT(misfitsAtAll, 1000U);
}

}  // namespace
}  // namespace tvsort::test
