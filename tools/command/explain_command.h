// `tvsort-host explain`: what a sort would ask of the process, without asking.
//
// Takes the options of `sort`, reads the inputs as `sort` does and prints
//
//     the layout of a record, field by field, with the keys and their null bytes
//     how many blocks there are, how many frames, and whether they fit
//     which method the process will use, and at how much memory that changes
//     with --hex, the bytes of the request
//
// An operation that takes several requests is explained by its first one: what the later ones have
// to do follows from its result.

#pragma once

#include "tools/command/sort_setup.h"

namespace tvsort::tools {

struct ExplainOptions {
    SortOptions sort;
    bool hex = false;
};

// Prints the explanation to standard output.
void explainSort(const ExplainOptions& options);

}  // namespace tvsort::tools
