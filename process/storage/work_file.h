// The work file: the blocks of a data set that do not fit into the frames, and the sorted result.
//
// The server creates it; the process opens it once, on the first message that names it, and moves
// whole blocks. Block b (from 1) lies at byte (b - 1) x blockPages x 4096; positions are 64-bit.
//
// A path is the directory, "1.5" and the slot number. The directory comes from the four-character
// name in the server's message:
//
//     "SY00", "TEMP"              start-up argument 4, verbatim
//     a set environment variable  its value, cut to 258 characters, and "/"
//     any other                   start-up argument 4, verbatim

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Opens the work file in the directory that `directoryName` (kDirectoryNameBytes characters, padded
// with blanks) stands for; sets `workFd` and `workFileOpen`. Raises 1401, a path that does not fit
// its buffer included.
void openWorkFile(SortJob& job, const char* directoryName);

void closeWorkFile(SortJob& job);

// Reads `blockCount` blocks from block `firstBlock` on into `target`. Where the file ends earlier,
// the rest of `target` keeps its content: no failure. Raises 1402 and answers false.
bool readBlocks(SortJob& job, Byte* target, std::int32_t firstBlock, std::int32_t blockCount);

// Tells the system which blocks will be read soon, so that it can bring them while others are
// ordered. Nothing follows from a refusal.
void expectReads(const SortJob& job, std::int32_t firstBlock, std::int32_t blockCount);

// Writes `blockCount` blocks to block `firstBlock` and those behind it. Raises 1403 and answers
// false; what a failed call had moved until then stays written.
bool writeBlocks(SortJob& job, const Byte* source, std::int32_t firstBlock,
                 std::int32_t blockCount);

}  // namespace tvsort
