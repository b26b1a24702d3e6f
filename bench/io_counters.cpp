#include "bench/io_counters.h"

#include <fstream>

namespace tvsort::bench {

Cost ioCountersOf(const std::string& process) {
    std::ifstream file("/proc/" + process + "/io");
    return parseIoCounters(file);
}

Cost parseIoCounters(std::istream& text) {
    Cost cost;
    std::int64_t number = 0;
    for (std::string name; text >> name;) {
        if (name == "rchar:" && text >> number) cost.readBytes = number;
        if (name == "wchar:" && text >> number) cost.writtenBytes = number;
        if (name == "syscr:" && text >> number) cost.readCalls = number;
        if (name == "syscw:" && text >> number) cost.writeCalls = number;
    }
    return cost;
}

Cost difference(const Cost& before, const Cost& after) {
    Cost moved;
    moved.readBytes = after.readBytes - before.readBytes;
    moved.writtenBytes = after.writtenBytes - before.writtenBytes;
    moved.readCalls = after.readCalls - before.readCalls;
    moved.writeCalls = after.writeCalls - before.writeCalls;
    return moved;
}

}  // namespace tvsort::bench
