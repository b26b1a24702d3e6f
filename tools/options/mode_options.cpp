#include "tools/options/mode_options.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

// What an operation takes; see the header.
struct OperationRule {
    Operation operation;
    const char* name;
    std::size_t inputsMin;
    bool takesAll;
    bool takesLimit;
    bool takesLevel;
    bool takesProcesses;  // where the process shapes what comes out
};

constexpr std::array kRules = {
    OperationRule{Operation::kOrder, "a plain sort", 1, false, true, false, true},
    OperationRule{Operation::kDistinct, "--distinct", 1, false, true, false, true},
    OperationRule{Operation::kGroups, "--groups", 1, false, true, false, true},
    OperationRule{Operation::kIntersect, "--intersect", 2, true, false, false, false},
    OperationRule{Operation::kExcept, "--except", 2, true, false, false, false},
    OperationRule{Operation::kUnique, "--unique", 1, false, true, false, true},
    OperationRule{Operation::kHierarchy, "--hierarchy", 1, false, true, true, false},
};

const OperationRule& ruleOf(Operation operation) {
    return *std::find_if(kRules.begin(), kRules.end(), [operation](const OperationRule& rule) {
        return rule.operation == operation;
    });
}

// "a", "a and b", "a, b and c".
std::string enumerated(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
        text += names[i];
    }
    return text;
}

// Refuses `option` where the operation does not take it.
void checkTaken(const std::string& option, bool given, bool OperationRule::*taken,
                const OperationRule& rule) {
    if (!given || rule.*taken) return;
    std::vector<std::string> takers;
    for (const OperationRule& other : kRules) {
        if (other.*taken) takers.emplace_back(other.name);
    }
    throw host::badUse(fmt::format("{} does not go with {}; it goes with {}", option, rule.name,
                                   enumerated(takers)));
}

void checkInputs(const OperationRule& rule, std::size_t inputCount) {
    if (inputCount >= rule.inputsMin) return;
    throw host::badUse(
        fmt::format("{} takes {} inputs or more, the first of which the others are "
                    "compared with; {} was named",
                    rule.name, rule.inputsMin, inputCount));
}

void checkHierarchy(const ModeOptions& options, InputKind kind) {
    const bool lines = kind == InputKind::kLines;
    if (lines && !options.level.empty()) {
        throw host::badUse(
            "--level is for fixed-length records and CSV rows; the level of a line is given by "
            "its indentation: see --indent");
    }
    if (!lines && !options.indent.empty()) {
        throw host::badUse(
            "--indent is for --lines; the level of a record stands in the record: say where "
            "with --level");
    }
    if (!lines && options.level.empty()) {
        throw host::badUse(
            fmt::format("--hierarchy needs to know where a record's level stands: add --level {}",
                        kind == InputKind::kRows ? "COLUMN" : "OFFSET"));
    }
}

}  // namespace

void addModeOptions(CLI::App& command, ModeOptions& options) {
    const std::string group = "What comes out (every record, without one of these)";
    command
        .add_flag("--distinct", options.distinct,
                  "Of records with equal keys only the first that was read")
        ->group(group);
    command
        .add_flag("--groups{mark}", options.groups,
                  "Records with equal keys form a group, in the order in which they were read; "
                  "their number is said on standard error. =mark: lines get an empty line "
                  "between groups, records a byte behind them, 1 at the end of a group and 0 "
                  "elsewhere. =count: the first of each group with the group's size, in front "
                  "of a line and a tab, or as 4 bytes behind a record; CSV rows get a column in "
                  "front, with the group's number or its size")
        ->check(CLI::IsMember({kMarkGroups, kCountGroups}))
        ->group(group);
    command
        .add_flag("--intersect", options.intersect,
                  "The first input's records whose keys all other inputs have too, one of each")
        ->group(group);
    command
        .add_flag("--except", options.except,
                  "The first input's records whose keys no other input has, one of each")
        ->group(group);
    command
        .add_flag("--all", options.all,
                  "With --intersect, as many of each as the input with the fewest has; with "
                  "--except, as many as are left when each record of the others takes one away")
        ->group(group);
    command
        .add_flag("--unique{nulls-distinct}", options.unique,
                  "Every record, or failure with the names of two that have equal keys. "
                  "=nulls-distinct: a record with a null key equals no other, as in SQL; "
                  "=nulls-not-distinct: nulls are equal to one another")
        ->check(CLI::IsMember({kNullsDistinct, kNullsNotDistinct}))
        ->group(group);
    command
        .add_flag("--hierarchy", options.hierarchy,
                  "The records are a hierarchy, each followed by those below it, and stay one: "
                  "those below one record are sorted among themselves, whatever is below them "
                  "moving with them")
        ->group(group);
    command
        .add_option("--level", options.level,
                    "Offset of a record's level in the hierarchy, 4 bytes, little-endian, or the "
                    "column of a row's level: 1 at the top, 4095 at most")
        ->group(group);
    command
        .add_option("--indent", options.indent,
                    "What indents a line by one level of the hierarchy: tab, or a number of "
                    "spaces")
        ->group(group);
    command
        .add_option("--limit", options.limitCount,
                    "The first so many records only, of --groups=count the first so many groups")
        ->check(CLI::Range(1, std::numeric_limits<std::int32_t>::max()))
        ->group(group);
    command
        .add_flag("--with-ties", options.withTies,
                  "With --limit, also those behind the last record that have its keys")
        ->group(group);
}

Operation operationOf(const ModeOptions& options) {
    const std::array<std::pair<bool, Operation>, 6> asked = {{
        {options.distinct, Operation::kDistinct},
        {!options.groups.empty(), Operation::kGroups},
        {options.intersect, Operation::kIntersect},
        {options.except, Operation::kExcept},
        {!options.unique.empty(), Operation::kUnique},
        {options.hierarchy, Operation::kHierarchy},
    }};
    std::vector<std::string> names;
    Operation operation = Operation::kOrder;
    for (const auto& [isAsked, candidate] : asked) {
        if (!isAsked) continue;
        operation = candidate;
        names.push_back(nameOf(candidate));
    }
    if (names.size() > 1) {
        throw host::badUse(
            fmt::format("{} exclude one another; choose one, and sort its output "
                        "again for the other",
                        enumerated(names)));
    }
    return operation;
}

std::string nameOf(Operation operation) {
    return ruleOf(operation).name;
}

void checkModeOptions(const ModeOptions& options, const ModeSurroundings& surroundings) {
    const OperationRule& rule = ruleOf(operationOf(options));
    checkTaken("--all", options.all, &OperationRule::takesAll, rule);
    checkTaken("--limit", options.limitCount.has_value(), &OperationRule::takesLimit, rule);
    checkTaken("--level", !options.level.empty(), &OperationRule::takesLevel, rule);
    checkTaken("--indent", !options.indent.empty(), &OperationRule::takesLevel, rule);
    if (options.withTies && !options.limitCount.has_value())
        throw host::badUse("--with-ties belongs to --limit: say how many records are wanted");
    if (options.limitCount.has_value() && rule.operation == Operation::kGroups &&
        surroundings.kind == InputKind::kRecords) {
        throw host::badUse("--limit goes with --groups of lines and rows; leave one of them out");
    }
    checkInputs(rule, surroundings.inputCount);
    if (rule.takesLevel) checkHierarchy(options, surroundings.kind);
}

void checkModeWithProcesses(const ModeOptions& options) {
    checkTaken("--processes", true, &OperationRule::takesProcesses, ruleOf(operationOf(options)));
}

void checkModeWithNulls(const ModeOptions& options) {
    if (!options.limitCount.has_value() || options.unique != kNullsDistinct) return;
    // Records with null keys would tie, but their numbers tell them apart, which cuts the tie.
    throw host::badUse(
        "--limit goes with --unique=nulls-not-distinct where keys can be null; with "
        "--unique=nulls-distinct leave it out");
}

SortMode sortModeOf(const ModeOptions& options, bool hasNulls) {
    switch (operationOf(options)) {
        case Operation::kOrder:
            return SortMode::kOrder;
        case Operation::kDistinct:
            return SortMode::kDistinct;
        case Operation::kGroups:
            return SortMode::kGroups;
        case Operation::kIntersect:
            return options.all ? SortMode::kIntersectAll : SortMode::kIntersect;
        case Operation::kExcept:
            return options.all ? SortMode::kExceptAll : SortMode::kExcept;
        case Operation::kUnique:
            return hasNulls && options.unique == kNullsDistinct ? SortMode::kUniqueUnlessNull
                                                                : SortMode::kUnique;
        case Operation::kHierarchy:
            return SortMode::kHierarchy;
    }
    return SortMode::kOrder;
}

}  // namespace tvsort::tools
