#include "host/process_start.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "host/file_descriptor.h"
#include "host/host_error.h"

namespace tvsort::host {

namespace {

constexpr int kStatusNotStarted = 127;

std::string_view variableName(std::string_view assignment) {
    return assignment.substr(0, assignment.find('='));
}

// This process's environment with the given assignments in it.
std::vector<std::string> mergedEnvironment(const std::vector<std::string>& assignments) {
    std::vector<std::string> merged(assignments);
    for (char** own = environ; *own != nullptr; ++own) {
        bool replaced = false;
        for (const std::string& assignment : assignments) {
            replaced = replaced || variableName(assignment) == variableName(*own);
        }
        if (!replaced) merged.emplace_back(*own);
    }
    return merged;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The program's path; the name itself where PATH has none of this name.
std::string lookedUp(const std::string& program) {
    const char* const searchPath = std::getenv("PATH");
    if (program.find('/') != std::string::npos || searchPath == nullptr) return program;
    std::istringstream searched(searchPath);
    for (std::string directory; std::getline(searched, directory, ':');) {
        std::string path = (directory.empty() ? "." : directory) + "/" + program;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return program;
}

// All that the child needs, made before it is split off: it may not take memory.
struct ChildPlan {
    const char* program;
    char* const* arguments;
    char* const* environment;
    int output;
    int sharedDescriptor;
    ProcessLimits limits;
    pid_t parent;
};

// `source` under the number `target`, open behind exec(2).
bool place(int source, int target) {
    return source == target ? fcntl(target, F_SETFD, 0) == 0 : dup2(source, target) == target;
}

bool limit(__rlimit_resource_t resource, std::int64_t bytes) {
    rlimit limits = {};
    if (bytes == kNoLimit) return true;
    if (getrlimit(resource, &limits) != 0) return false;
    limits.rlim_max = std::min(limits.rlim_max, static_cast<rlim_t>(bytes));
    limits.rlim_cur = std::min(limits.rlim_cur, limits.rlim_max);
    return setrlimit(resource, &limits) == 0;
}

bool arrangeSignals() {
    for (int number = 1; number < NSIG; ++number)
        signal(number, SIG_DFL);  // fails for those that nobody may change
    sigset_t none;
    sigemptyset(&none);
    return sigprocmask(SIG_SETMASK, &none, nullptr) == 0;
}

bool followParent(const ChildPlan& plan) {
    if (!plan.limits.endsWithStarter) return true;
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return false;
    // One that died before the call gives no signal any more.
    if (getppid() != plan.parent) _exit(kStatusNotStarted);
    return true;
}

// In the child, where only calls that are safe in a signal handler may be made: another thread of
// the parent may have held any lock. Comes back, with errno set, only when something failed.
void becomeProgram(const ChildPlan& plan) {
    if (!followParent(plan) || setpgid(0, 0) != 0 || !place(plan.output, STDOUT_FILENO)) return;
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing < 0 || !place(nothing, STDIN_FILENO)) return;
    if (plan.sharedDescriptor >= 0 && !place(plan.sharedDescriptor, plan.sharedDescriptor)) return;
    if (!limit(RLIMIT_CORE, 0) || !limit(RLIMIT_FSIZE, plan.limits.fileBytes) ||
        !limit(RLIMIT_AS, plan.limits.addressBytes) || !arrangeSignals()) {
        return;
    }
    execve(plan.program, plan.arguments, plan.environment);
}

[[noreturn]] void runChild(const ChildPlan& plan, int failureDescriptor) {
    becomeProgram(plan);
    const int error = errno;
    // Whoever waits for the number sees the end of the pipe instead.
    if (write(failureDescriptor, &error, sizeof error) < 0) _exit(kStatusNotStarted);
    _exit(kStatusNotStarted);
}

// The error number that a child could not go on with; 0 when its program runs, which closes the
// pipe.
int failureOf(int failureDescriptor, pid_t id, const ProcessStart& start) {
    const Deadline deadline(start.timeout);
    for (;;) {
        pollfd polled = {failureDescriptor, POLLIN, 0};
        int error = 0;
        if (poll(&polled, 1, deadline.sliceMilliseconds()) > 0 &&
            read(failureDescriptor, &error, sizeof error) >= 0) {
            return error;
        }
        if (start.whileWaiting) start.whileWaiting();
        if (deadline.hasPassed()) {
            throw HostError(FailureKind::kTimedOut,
                            "the sort process " + start.program.string() + " (process " +
                                std::to_string(id) +
                                ") let the time run out while it was to start; start it again");
        }
    }
}

void reap(pid_t id) {
    while (waitpid(id, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

// No signal comes to a child that still has its parent's handlers.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before_ = {};
};

}  // namespace

pid_t startProcess(const ProcessStart& start, int output) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw systemFailure("cannot make a pipe for the sort process", errno,
                            "close other files or raise the limit of open files");
    }
    const FileDescriptor failure(ends[0]);
    FileDescriptor childsFailure = aboveStreams(FileDescriptor(ends[1]));
    if (!childsFailure.isOpen())
        throw systemFailure("cannot make a pipe for the sort process", errno);
    const std::string program = lookedUp(start.program.string());
    std::vector<std::string> arguments = {start.program.string()};
    arguments.insert(arguments.end(), start.arguments.begin(), start.arguments.end());
    std::vector<std::string> environment = mergedEnvironment(start.environment);
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);
    const ChildPlan plan = {program.c_str(), argumentPointers.data(), environmentPointers.data(),
                            output,          start.sharedDescriptor,  start.limits,
                            getpid()};
    pid_t id = -1;
    int error = 0;
    {
        const SignalsHeld held;
        id = fork();
        if (id == 0) runChild(plan, childsFailure.number());
        error = errno;
    }
    childsFailure.close();
    if (id > 0) {
        try {
            error = failureOf(failure.number(), id, start);
        } catch (...) {
            kill(id, SIGKILL);
            reap(id);
            throw;
        }
        if (error == 0) return id;
        reap(id);
    }
    throw systemFailure(
        "cannot start the sort process " + start.program.string(), error,
        error == EAGAIN ? "raise the limit of processes" : "name the built tvsort program");
}

}  // namespace tvsort::host
