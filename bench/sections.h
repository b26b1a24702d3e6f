// The tables of the benchmark, each printed and written when its part of the run is over.

#pragma once

#include "bench/contest.h"

namespace tvsort::bench {

// Every workload with room for a copy, with room for entries and just fitting, used before and as
// first requests, beside other builds and peers.
void showInMemory(const Options& options);

// The same for data of 2, 8 and 20 times the memory, beside std::sort with all the memory it wants:
// time and transfers.
void showSpilling(const Options& options);

// N, 2N, 4N, 8N records in every situation.
void showGrowth(const Options& options);

// Data from a tenth of the memory to twenty times it.
void showCurve(const Options& options);

// Requests of 10 to 1000 records, where the conversation is most of the time.
void showSmallRequests(const Options& options);

// Data of 2 and 8 times the memory beside programs that sort more than their memory holds.
void showOtherPrograms(const Options& options);

// The command beside GNU sort, from file to file, in a memory control group that cannot hold the
// files: of twice what they are granted and 200 MB. Wants 10,000,000 records and more.
void showUncached(const Options& options);

// The whole command, from file to file: rows, lines and records, with two grants of memory, with
// one process and with two, beside programs that do the same.
void showCommand(const Options& options);

}  // namespace tvsort::bench
