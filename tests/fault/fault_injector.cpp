#include "tests/fault/fault_injector.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "host/file_descriptor.h"
#include "host/private_directory.h"

namespace tvsort::test {

const std::vector<Fault> kFailures = {{"EIO", Deed::kFail, EIO},
                                      {"ENOSPC", Deed::kFail, ENOSPC},
                                      {"EINTR", Deed::kFail, EINTR},
                                      {"EAGAIN", Deed::kFail, EAGAIN}};

const std::vector<Fault> kFailuresAndShortMoves = {
    {"EIO", Deed::kFail, EIO},          {"ENOSPC", Deed::kFail, ENOSPC},
    {"EINTR", Deed::kFail, EINTR},      {"EAGAIN", Deed::kFail, EAGAIN},
    {"a short count", Deed::kShort, 0}, {"a count of 0", Deed::kNothing, 0}};

FaultInjector::FaultInjector()
    : path_(host::defaultTempDirectory().string() + "/tvsort-fault-plan-XXXXXX") {
    void* start = MAP_FAILED;
    const host::FileDescriptor file(mkostemp(path_.data(), O_CLOEXEC));
    if (file.isOpen() && ftruncate(file.number(), sizeof(FaultPlan)) == 0) {
        start =
            mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0);
    }
    if (start == MAP_FAILED) throw std::runtime_error("no memory for a fault plan");
    plan_ = static_cast<FaultPlan*>(start);
}

FaultInjector::~FaultInjector() {
    munmap(plan_, sizeof(FaultPlan));
    unlink(path_.c_str());
}

std::vector<std::string> FaultInjector::environment() const {
    return {"LD_PRELOAD=" TVSORT_FAULT_SHIM, std::string(kPlanVariable) + "=" + path_};
}

void FaultInjector::arm(Call call, std::int32_t first, std::int32_t times, const Fault& fault) {
    disarm();
    plan_->first = first;
    plan_->last = times > kForEver - first ? kForEver : first + times - 1;
    plan_->deed = fault.deed;
    plan_->systemError = fault.systemError;
    plan_->call = call;
}

void FaultInjector::disarm() {
    plan_->call = Call::kNone;
    plan_->seen = 0;
    plan_->injected = 0;
    plan_->logCount = 0;
    plan_->randomState = 1;
}

}  // namespace tvsort::test
