#include "process/sort/key_window.h"

#include <gtest/gtest.h>

#include "tests/process/sort/key_worlds.h"

namespace tvsort::test {
namespace {

constexpr int kRecords = 60;

int signOf(int order) {
    return (order > 0) - (order < 0);
}

class FittedWindow {
  public:
    // Fits a window from `place` on to the first `sampled` records.
    FittedWindow(KeyWorld& world, const NormalizedKey& key, const KeyPlace& place,
                 const WindowFit& fit, int sampled)
        : world_(world) {
        fitWindow(
            key, place, fit,
            [&](auto visit) {
                for (int i = 0; i < sampled && visit(world.record(i)); ++i)
                    continue;
            },
            window);
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

// One window behind the other, until the key ends: each orders what those before it left equal.
TEST(KeyWindow, WindowsInARowOrderAsTheKeyDoes) {
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        KeyWorld world(seed, kRecords);
        NormalizedKey key;
        describeKey(world.job(), key);
        std::vector<std::vector<std::uint64_t>> digits(kRecords);
        KeyPlace place = kKeyStart;
        for (bool endsKey = false; !endsKey;) {
            const WindowFit fit = randomFit(world, kWindowBits);
            const FittedWindow fitted(world, key, place, fit, kRecords);
            ASSERT_LE(fitted.window.width, fit.widthMax);
            ASSERT_LT(digits[0].size(), kWindowBits * kSegmentsMax);  // each window moves on
            for (int i = 0; i < kRecords; ++i) {
                std::uint32_t misfits = 0;
                digits[static_cast<std::size_t>(i)].push_back(fitted.readFitted(i));
                ASSERT_EQ(std::uint64_t{0}, fitted.window.width == kWindowBits
                                                ? 0
                                                : fitted.readFitted(i) >> fitted.window.width);
                ASSERT_EQ(fitted.read(i, misfits), fitted.readFitted(i));
                ASSERT_EQ(misfits, 0U);
            }
            place = fitted.window.next;
            endsKey = fitted.window.endsKey;
        }
        for (std::size_t i = 0; i < kRecords; ++i) {
            for (std::size_t j = 0; j < kRecords; ++j) {
                const int order = compareKeys(key, kKeyStart, world.record(static_cast<int>(i)),
                                              world.record(static_cast<int>(j))).order;
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
                                  sampled);
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
