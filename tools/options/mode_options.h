// What `tvsort-host sort` is to make of the records that it has ordered, in a database user's
// words.
//
//     option        inputs  also takes               what comes out
//     (none)        1..     --limit                  every record
//     --distinct    1..     --limit                  the first record of each key: SELECT DISTINCT,
//                                                    or UNION of several inputs
//     --groups      1..     --limit                  every record, group ends marked; or one of
//                                                    each group with its count: GROUP BY
//     --intersect   2..     --all                    the first input's records whose key is in
//                                                    every other input too
//     --except      2..     --all                    the first input's records whose key is in no
//                                                    other input
//     --unique      1..     --limit                  every record, if no two have one key
//     --hierarchy   1..     --limit --level --indent every record, siblings in order
//
// --limit takes --with-ties. One row of a table in mode_options.cpp holds what an operation takes;
// what it does not take is refused in a sentence that this table makes.

#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "protocol/messages.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

enum class Operation : std::uint8_t {
    kOrder,
    kDistinct,
    kGroups,
    kIntersect,
    kExcept,
    kUnique,
    kHierarchy,
};

struct ModeOptions {
    bool distinct = false;
    std::string groups;  // empty, kMarkGroups or kCountGroups
    bool intersect = false;
    bool except = false;
    bool all = false;
    std::string unique;  // empty, kNullsDistinct or kNullsNotDistinct
    bool hierarchy = false;
    std::optional<std::int32_t> limitCount;
    bool withTies = false;
    std::string level;   // empty, an offset in records or a column of rows
    std::string indent;  // empty, kIndentByTabs or a number of spaces
};

inline constexpr char kMarkGroups[] = "mark";
inline constexpr char kCountGroups[] = "count";
inline constexpr char kNullsDistinct[] = "nulls-distinct";
inline constexpr char kNullsNotDistinct[] = "nulls-not-distinct";
inline constexpr char kIndentByTabs[] = "tab";

// What the options must fit.
struct ModeSurroundings {
    std::size_t inputCount;
    InputKind kind;
};

// Adds the options to a subcommand; they fill `options` when it is parsed.
void addModeOptions(CLI::App& command, ModeOptions& options);

// The operation that the options ask for. Throws when they name two.
Operation operationOf(const ModeOptions& options);

// The option's name, for messages; "a plain sort" for kOrder.
std::string nameOf(Operation operation);

// Throws when the options ask for what there is not, with what there is.
void checkModeOptions(const ModeOptions& options, const ModeSurroundings& surroundings);

// Throws when the process shapes what the options ask for and several could not do so in parts.
void checkModeWithProcesses(const ModeOptions& options);

// Throws when the options cannot be met with keys that can be null.
void checkModeWithNulls(const ModeOptions& options);

// How the process is to be asked. `hasNulls`: the keys have null indicators.
SortMode sortModeOf(const ModeOptions& options, bool hasNulls);

}  // namespace tvsort::tools
