// The start of the process: its five arguments, the descriptors it inherited, its signals.
//
//     1   memory pages granted, 4096 bytes each (decimal)
//     2   slot number, 1 to 65535 (decimal)
//     3   descriptor of the shared-memory object (decimal)
//     4   directory prefix of the work file, taken as it is
//     5   pages per memory block (decimal, 0x... hexadecimal or 0... octal)

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Takes the arguments into the job, closes the inherited descriptors but the shared object's, and
// loads the collation table. False when the process is to end at once: with fewer than five
// arguments silently, else after the bad-arguments line, which is for a number that does not
// convert whole or fit, a slot number outside 1 to 65535, a block of no pages, memory of fewer than
// five blocks, and memory whose record positions need over 32 bits.
bool startUp(SortJob& job, int argumentCount, char** arguments);

}  // namespace tvsort
