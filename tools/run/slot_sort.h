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

#include <optional>
#include <vector>

#include "host/data_set.h"
#include "host/key_ranges.h"
#include "host/request_builder.h"
#include "host/sort_server.h"
#include "tools/files/progress.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

class SlotSort {
  public:
    // With `ranges`, a slot for each of its parts; it judges the last `rangeRecordLength` bytes of
    // a record. Without, slot 1.
    SlotSort(host::SortServer& server, const host::Geometry& geometry,
             std::optional<host::KeyRanges> ranges, std::uint16_t rangeRecordLength,
             Progress& progress);

    // The source's records through the processes to the sink. Throws a process's code as
    // host::HostError.
    SortStats sort(const host::RequestBuilder& request, const host::RecordSource& source,
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
    void route(const host::RecordSource& source);
    // The source's next records.
    std::size_t pull(const host::RecordSource& source, Byte* target, std::size_t recordsMax);
    void planRequests(const host::RequestBuilder& request);
    void ask();
    void askPart(std::size_t partIndex);
    void readPart(std::size_t partIndex, const host::RecordSink& sink);
    void addPart(const Part& part, SortStats& stats) const;
    host::SortSlot& slotOf(std::size_t partIndex);

    host::SortServer& server_;
    host::Geometry geometry_;
    std::optional<host::KeyRanges> ranges_;
    std::uint16_t rangeRecordLength_;
    Progress& progress_;
    std::vector<Part> parts_;
};

}  // namespace tvsort::tools
