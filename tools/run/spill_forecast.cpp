#include "tools/run/spill_forecast.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "protocol/slot_layout.h"

namespace tvsort::tools {

SpillForecast forecastSpill(const MemoryPlan& plan, int processCount, std::uint16_t recordLength,
                            std::int64_t recordCount) {
    SpillForecast forecast = {};
    forecast.geometry = host::chooseGeometry(recordLength, plan.blockPages);
    const std::int64_t perBlock = forecast.geometry.recordsPerBlock;
    const auto countMax = std::int64_t{std::numeric_limits<std::int32_t>::max()};
    forecast.extent = {
        static_cast<std::int32_t>(std::min(recordCount, countMax)),
        static_cast<std::int32_t>(std::min((recordCount + perBlock - 1) / perBlock, countMax))};
    forecast.frameCount = plan.pages / plan.blockPages;
    forecast.fits = forecast.extent.fileBlocks <= std::int64_t{forecast.frameCount} * processCount;
    forecast.slotBytes = SlotLayout{forecast.frameCount, plan.blockPages}.slotBytes();
    return forecast;
}

std::string spillWarning(std::int64_t workFileBytes, std::int64_t inputBytes) {
    constexpr std::int64_t kOften = 4;
    // Nobody has to wait for less.
    constexpr std::int64_t kLittle = std::int64_t{16} << 20;
    if (inputBytes == 0 || workFileBytes < std::max(kLittle, kOften * inputBytes)) return "";
    return fmt::format("{} times the inputs; order by less, or give more --memory",
                       workFileBytes / inputBytes);
}

}  // namespace tvsort::tools
