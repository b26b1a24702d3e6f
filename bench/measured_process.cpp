#include "bench/measured_process.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace tvsort::bench {

namespace {

host::ServerOptions serverOptions(const std::filesystem::path& program,
                                  const host::Geometry& geometry, std::int32_t memoryPages,
                                  const std::filesystem::path& workDirectory) {
    host::ServerOptions options;
    options.processPath = program;
    options.memoryPages = memoryPages;
    options.pagesPerBlock = geometry.blockPages;
    // Each server makes a folder of its own there: several may run at once.
    options.tempDirectory = workDirectory;
    return options;
}

// Seconds for which a process has been on a processor.
double cpuSecondsOf(pid_t processId) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/schedstat");
    double nanoseconds = 0;
    file >> nanoseconds;
    return nanoseconds / 1e9;
}

host::RecordSource sourceOver(std::span<const Byte> records, std::size_t recordLength) {
    return [records, recordLength](Byte* target, std::size_t recordsMax) mutable -> std::size_t {
        const std::size_t here = std::min(recordsMax * recordLength, records.size());
        std::memcpy(target, records.data(), here);
        records = records.subspan(here);
        return here / recordLength;
    };
}

}  // namespace

MeasuredProcess::MeasuredProcess(const std::filesystem::path& program,
                                 const host::Geometry& geometry, std::int32_t memoryPages,
                                 const std::filesystem::path& workDirectory)
    : geometry_(geometry), server_(serverOptions(program, geometry, memoryPages, workDirectory)) {}

Cost MeasuredProcess::sort(const host::RequestBuilder& request, std::span<const Byte> records,
                           std::span<Byte> result) {
    host::SortSlot& slot = server_.slot(1);
    const host::LoadedData loaded =
        slot.load(geometry_, sourceOver(records, geometry_.recordLength));
    const host::ProcessUsage before = slot.process().usage();
    const double cpuBefore = cpuSecondsOf(slot.process().id());
    const auto start = std::chrono::steady_clock::now();
    const SortReply reply = slot.ask(request, geometry_, loaded.extent);
    const auto end = std::chrono::steady_clock::now();
    const double cpuAfter = cpuSecondsOf(slot.process().id());
    const host::ProcessUsage after = slot.process().usage();
    host::checkAnswer(reply);
    slot.read(geometry_, reply.recordCount, [&](const Byte* bytes, std::size_t count) {
        const std::size_t here = std::min(count * geometry_.recordLength, result.size());
        std::memcpy(result.data(), bytes, here);
        result = result.subspan(here);
    });
    if (!result.empty()) throw std::runtime_error("the process gave back too few records");
    return {std::chrono::duration<double>(end - start).count(),
            cpuAfter - cpuBefore,
            after.readBytes - before.readBytes,
            after.writtenBytes - before.writtenBytes,
            after.readCalls - before.readCalls,
            after.writeCalls - before.writeCalls};
}

}  // namespace tvsort::bench
