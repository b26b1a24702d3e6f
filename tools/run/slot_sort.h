// A request to the processes of a running server: records in, result out, and what it cost.
//
//     one process       records -> slot 1 -> result
//
//     several           records -> by key range -> slot 1 -> its part of the result, in order
//                                               -> slot 2 -> the next part
//                                               -> ...
//
// Parts are sorted side by side. Records with equal keys come into one part, so that each process
// can do for its part what one would do for all: order it, drop duplicates, mark groups, refuse
// what is not unique, end with ties. A row limit is met by the parts one after the other.

#pragma once

#include <vector>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "host/sort_server.h"
#include "tools/files/progress.h"
#include "tools/run/sort_once.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

class SlotSort {
  public:
    // A slot for each of `partCount` parts, the slots from `firstSlot` (from 0) on. Requests that
    // do not say which part a record belongs to have the first one.
    SlotSort(host::SortServer& server, std::size_t firstSlot, std::size_t partCount,
             Progress& progress);

    // The source's records through the processes to the sink. Throws a process's code as
    // host::HostError.
    SortStats sort(const SortRequest& request, const host::RecordSource& source,
                   const host::RecordSink& sink);

  private:
    // What one slot is to do, and has done.
    struct Part {
        host::LoadedData loaded;
        host::RequestBuilder request;
        bool isWanted = true;  // in the result
        bool isAsked = true;
        SortReply reply = {};
        host::ProcessUsage before;
        host::ProcessUsage after;
    };

    // Both lay the source's records into the slots: into the one, or into that of their part.
    void load(const host::RecordSource& source);
    void route(const SortRequest& request, const host::RecordSource& source);
    // The source's next records.
    std::size_t pull(const host::RecordSource& source, Byte* target, std::size_t recordsMax);
    void planRequests(const host::RequestBuilder& request);
    void ask();
    void askPart(std::size_t partIndex);
    void readPart(std::size_t partIndex, const host::RecordSink& sink);
    void addPart(const Part& part, SortStats& stats) const;
    host::SortSlot& slotOf(std::size_t partIndex);

    host::SortServer& server_;
    std::size_t firstSlot_;
    std::size_t partCount_;
    Progress& progress_;
    host::Geometry geometry_;  // of the request
    std::vector<Part> parts_;
};

}  // namespace tvsort::tools
