// A server that does not keep to its turns: a thread that writes over all of a slot, message
// buffer, frames, descriptors and hash table, for as long as the object lives.
//
// It writes in bursts, each into one region and of one kind of value, and rests between them now
// and then, so that requests get on as far as they can.

#pragma once

#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "protocol/bytes.h"
#include "protocol/slot_layout.h"

namespace tvsort::test {

class Scribbler {
  public:
    // Returns when the first burst has been written.
    Scribbler(Byte* slot, const SlotLayout& layout, std::uint32_t seed)
        : slot_(slot), layout_(layout), random_(seed), thread_([this] { run(); }) {
        begun_.wait(false);
    }
    ~Scribbler() {
        ended_ = true;
        thread_.join();
    }
    Scribbler(const Scribbler&) = delete;
    Scribbler& operator=(const Scribbler&) = delete;

  private:
    static constexpr std::uint32_t kBurstWordsMax = 2048;
    static constexpr std::uint32_t kRestMicrosecondsMax = 100;

    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(random_()) % bound;
    }

    void run() {
        while (!ended_) {
            writeBurst();
            if (!begun_.exchange(true)) begun_.notify_all();
            if (below(2) == 0) usleep(below(kRestMicrosecondsMax));
        }
    }

    void writeBurst() {
        const std::int64_t ends[] = {0, layout_.frameAreaOffset(), layout_.pageDescriptorsOffset(),
                                     layout_.slotBytes()};
        const std::uint32_t region = below(4);
        const std::int64_t from = region < 3 ? ends[region] : 0;
        const std::int64_t to = region < 3 ? ends[region + 1] : layout_.slotBytes();
        const auto words = static_cast<std::uint32_t>((to - from) / 4);
        const std::uint32_t kind = below(4);
        for (std::uint32_t left = below(kBurstWordsMax); left > 0; --left)
            storeWord(slot_ + from + std::int64_t{4} * below(words), anyValue(kind));
    }

    // Numbers that could be frames, blocks and lengths; borders; anything.
    std::uint32_t anyValue(std::uint32_t kind) {
        constexpr std::uint32_t kBorders[] = {0, 1, 0x7fffffff, 0x80000000, 0xffffffff, 0x10001};
        switch (kind) {
            case 0:
                return below(64);
            case 1:
                return kBorders[below(6)];
            case 2:
                return below(0x10000) << 16 | below(0x10000);
            default:
                return below(256) * 0x01010101U;
        }
    }

    // The other thread reads and writes the same words; the sanitizer may watch some of them.
    __attribute__((no_sanitize("address"))) static void storeWord(Byte* target,
                                                                  std::uint32_t value) {
        *reinterpret_cast<volatile std::uint32_t*>(target) = value;
    }

    Byte* slot_;
    SlotLayout layout_;
    std::minstd_rand random_;
    std::atomic<bool> begun_ = false;
    std::atomic<bool> ended_ = false;
    std::thread thread_;  // the last member: what it uses is there
};

}  // namespace tvsort::test
