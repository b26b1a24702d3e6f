// A program that speaks as the sort process does and lies.
//
// It leaves the records as they came and answers as if they had been sorted, but for what the
// environment variable TVSORT_LIES says: moves with numbers, "word 68 4 -5;record 2 0 2 65535".
//
//     word OFFSET BYTES VALUE             in the reply
//     hello OFFSET BYTES VALUE            in the hello
//     record NUMBER OFFSET BYTES VALUE    in a record that lies in the frames, counted from 0
//     records OFFSET BYTES VALUE          in all of them
//     part COUNT                          so many bytes of the reply, and then the end
//     once                                words are as above in the first reply alone
//     twice                               the reply comes twice
//     file COUNT                          cuts the work file
//     object COUNT                        cuts or stretches the shared object
//     scribble                            writes into the frames until the host hangs up
//     shout                               prints without end while the host waits
//     end STATUS, signal NUMBER           instead of a reply
//     deaf                                never ends at the host's wish
//
// A move that cannot be made is passed over.

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/bytes.h"
#include "protocol/messages.h"
#include "protocol/slot_layout.h"

namespace {

using tvsort::Byte;
using tvsort::SortReply;
using tvsort::SortRequest;

struct Move {
    std::string name;
    std::vector<std::int64_t> numbers;

    std::int64_t number(std::size_t index) const {
        return index < numbers.size() ? numbers[index] : 0;
    }
};

std::vector<Move> movesOf(const char* text) {
    std::vector<Move> moves;
    std::istringstream parts(text == nullptr ? "" : text);
    for (std::string part; std::getline(parts, part, ';');) {
        std::istringstream words(part);
        Move move;
        words >> move.name;
        for (std::int64_t number = 0; words >> number;)
            move.numbers.push_back(number);
        moves.push_back(move);
    }
    return moves;
}

// Numbers `first` to `first` + 2 of a move: offset, bytes, value.
void set(Byte* object, std::size_t objectBytes, const Move& move, std::size_t first) {
    const std::uint64_t offset = static_cast<std::uint64_t>(move.number(first));
    const auto bytes =
        static_cast<std::size_t>(std::clamp<std::int64_t>(move.number(first + 1), 1, 8));
    const std::int64_t value = move.number(first + 2);
    if (offset + bytes <= objectBytes) std::memcpy(object + offset, &value, bytes);
}

class Liar {
  public:
    explicit Liar(char** arguments)
        : moves_(movesOf(std::getenv("TVSORT_LIES"))),
          slotNumber_(std::atoi(arguments[2])),
          object_(std::atoi(arguments[3])),
          layout_{std::atoi(arguments[1]) / std::atoi(arguments[5]), std::atoi(arguments[5])} {
        void* const start =
            mmap(nullptr, static_cast<std::size_t>(layout_.slotBytes()), PROT_READ | PROT_WRITE,
                 MAP_SHARED, object_, layout_.slotOffset(static_cast<std::uint32_t>(slotNumber_)));
        if (start == MAP_FAILED) _exit(3);
        frames_ = static_cast<Byte*>(start) + layout_.frameAreaOffset();
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s/tavrin.internal.%s",
                      std::getenv("TAVRIN_TMP"), std::getenv("TAVRIN_MBX"));
        socket_ = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            _exit(4);
        }
        forEach("deaf", [&](const Move&) { isDeaf_ = true; });
        forEach("once", [&](const Move&) { liesOnce_ = true; });
        signal(SIGPIPE, SIG_IGN);
        signal(SIGXFSZ, SIG_IGN);
    }

    void talk() {
        SortReply hello = {};
        hello.length = sizeof hello;
        hello.processId = getpid();
        forEach("hello", [&](const Move& move) {
            set(reinterpret_cast<Byte*>(&hello), sizeof hello, move, 0);
        });
        send(&hello, sizeof hello);
        receive();  // the answer
        for (;;) {
            receive();
            answer();
        }
    }

  private:
    template <typename Use>
    void forEach(const char* name, Use use) {
        for (const Move& move : moves_) {
            if (move.name == name) use(move);
        }
    }

    void send(const void* bytes, std::size_t byteCount) const {
        if (write(socket_, bytes, byteCount) < 0) end();
    }
    void readAll(Byte* target, std::size_t byteCount) const {
        while (byteCount > 0) {
            const ssize_t moved = read(socket_, target, byteCount);
            if (moved <= 0) end();
            target += moved;
            byteCount -= static_cast<std::size_t>(moved);
        }
    }
    [[noreturn]] void end() const {
        while (isDeaf_)
            pause();
        _exit(0);
    }

    void receive() {
        message_.assign(sizeof(SortRequest), 0);
        readAll(message_.data(), sizeof(std::uint32_t));
        const std::size_t length = tvsort::loadU32(message_.data());
        message_.resize(std::max(length, sizeof(SortRequest)));
        readAll(message_.data() + sizeof(std::uint32_t), length - sizeof(std::uint32_t));
        request_ = tvsort::loadAs<SortRequest>(message_.data());
        if (std::memcmp(request_.workDirName, tvsort::kShutdownName, 4) == 0) end();
    }

    // What a process that left all records would say.
    SortReply possibleReply() const {
        auto reply = tvsort::loadAs<SortReply>(message_.data());
        reply.length = sizeof reply;
        reply.processId = getpid();
        reply.errorCode = 0;
        reply.osError = 0;
        reply.groupCount = std::min(request_.recordCount, 1);
        reply.recordLength = request_.recordLength;
        return reply;
    }

    void answer() {
        SortReply reply = possibleReply();
        lieInRecords();
        lieInWorkFile();
        forEach("object",
                [&](const Move& move) { refuseNothing(ftruncate(object_, move.number(0))); });
        forEach("word", [&](const Move& move) {
            if (answered_ && liesOnce_) return;
            set(reinterpret_cast<Byte*>(&reply), sizeof reply, move, 0);
        });
        forEach("shout", [&](const Move&) { shout(); });
        forEach("end", [&](const Move& move) { _exit(static_cast<int>(move.number(0))); });
        forEach("signal", [&](const Move& move) {
            // A sanitizer would catch it and have a word.
            signal(static_cast<int>(move.number(0)), SIG_DFL);
            raise(static_cast<int>(move.number(0)));
        });
        forEach("part", [&](const Move& move) {
            send(&reply, static_cast<std::size_t>(std::clamp<std::int64_t>(move.number(0), 0, 80)));
            close(socket_);
            end();
        });
        send(&reply, sizeof reply);
        answered_ = true;
        forEach("twice", [&](const Move&) { send(&reply, sizeof reply); });
        forEach("scribble", [&](const Move&) { scribble(); });
    }

    static void refuseNothing(int) {}

    void lieInRecords() {
        forEach("record", [&](const Move& move) { lieInRecord(move, move.number(0), 1); });
        forEach("records", [&](const Move& move) {
            for (std::int32_t i = 0; i < request_.recordCount; ++i)
                lieInRecord(move, i, 0);
        });
    }

    void lieInRecord(const Move& move, std::int64_t index, std::size_t firstNumber) {
        const std::int64_t perBlock = request_.recordsPerBlock;
        if (perBlock == 0 || request_.recordCount < 1) return;
        index = std::abs(index % request_.recordCount);
        const std::int64_t blockBytes = request_.blockPages * tvsort::kPageBytes;
        const std::int64_t offset =
            index / perBlock * blockBytes + index % perBlock * request_.recordLength;
        if (offset + request_.recordLength > layout_.frameAreaBytes()) return;
        set(frames_ + offset, request_.recordLength, move, firstNumber);
    }

    void lieInWorkFile() {
        forEach("file", [&](const Move& move) {
            const char* const directory = std::getenv("TVWK");
            if (directory == nullptr) return;
            const std::string path = std::string(directory) + "/1.5" + std::to_string(slotNumber_);
            refuseNothing(truncate(path.c_str(), move.number(0)));
        });
    }

    void scribble() {
        std::uint32_t state = 1;
        for (pollfd polled = {socket_, POLLIN, 0}; poll(&polled, 1, 0) == 0;) {
            for (int i = 0; i < 100000; ++i) {
                state = state * 1664525 + 1013904223;
                frames_[state % static_cast<std::uint64_t>(layout_.frameAreaBytes())] =
                    static_cast<Byte>(state >> 24);
            }
        }
    }

    [[noreturn]] void shout() {
        for (;;)
            std::printf("\033[2J all is well ");
    }

    std::vector<Move> moves_;
    int slotNumber_;
    int object_;
    tvsort::SlotLayout layout_;
    Byte* frames_ = nullptr;
    int socket_ = -1;
    bool isDeaf_ = false;
    bool liesOnce_ = false;
    bool answered_ = false;
    std::vector<Byte> message_;
    SortRequest request_ = {};
};

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount < 6) return 2;
    Liar(arguments).talk();
}
