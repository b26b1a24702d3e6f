// The quicksort word for word, as the plainest process would have it: every record is asked for by
// its number, and every comparison is the ordering comparator's. What the process makes of records,
// codes, pivots and blocks has to be what this makes of them, wherever no entries fit.

#pragma once

namespace tvsort::test {

// As long as one of these lives, requests are sorted by it: the linker sends `sortRecords` past it.
class PlainSort {
  public:
    PlainSort();
    ~PlainSort();
    PlainSort(const PlainSort&) = delete;
    PlainSort& operator=(const PlainSort&) = delete;
};

}  // namespace tvsort::test
