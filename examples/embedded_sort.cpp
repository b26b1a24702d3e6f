// Sorts accounts by falling balance and then by owner, as a database engine would: the records go
// into shared memory, the sort process puts them in order there, and they are read back in place.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

#include <tvsort/host/sort_server.h>

struct Account {
    std::int64_t balance;
    char owner[24];
};

int main() try {
    using namespace tvsort;
    const std::vector<Account> accounts = {{50, "Noether"}, {-7, "Gauss"}, {120, "Hopper"},
                                           {50, "Curie"},   {0, "Turing"}, {120, "Ada"}};

    host::ServerOptions options;
    options.processPath = SORT_PROCESS;
    options.memoryPages = 1024;  // 4 MiB; what does not fit goes through a work file
    host::SortServer server(options);

    host::RequestBuilder request;
    request.addKey(host::descendingKey(DataType::kInteger, offsetof(Account, balance), 8))
        .addKey(host::ascendingKey(DataType::kBytes, offsetof(Account, owner), 24));

    std::size_t next = 0;  // records are asked for piece by piece, until there are no more
    const auto source = [&](Byte* target, std::size_t recordsMax) {
        const std::size_t count = std::min(recordsMax, accounts.size() - next);
        std::memcpy(target, accounts.data() + next, count * sizeof(Account));
        next += count;
        return count;
    };
    const host::Geometry geometry = host::chooseGeometry(sizeof(Account), options.pagesPerBlock);
    server.slot(1).sort(request, geometry, source).read([](const Byte* records, std::size_t count) {
        for (const Byte* record = records; count > 0; --count, record += sizeof(Account)) {
            Account account;
            std::memcpy(&account, record, sizeof account);
            std::printf("%4lld %s\n", static_cast<long long>(account.balance), account.owner);
        }
    });
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "embedded_sort: %s\n", error.what());
    return 1;
}
