#include "host/keys/ordered_type.h"

#include <algorithm>
#include <array>

#include "host/keys/identifier_types.h"
#include "host/keys/language_type.h"
#include "host/keys/number_types.h"
#include "host/keys/text_types.h"
#include "host/keys/time_types.h"

namespace tvsort::host {

namespace {

// `auto` is no type of its own: a reader of all values puts another one in its place.
std::unique_ptr<OrderedType> refuseAuto(const TypeText&) {
    throw badUse("the type auto is found by reading all values, which is not done here; name one");
}

// In the order of messages and help.
constexpr std::array kTypes = {
    OrderedTypeRule{"text", "[:nocase|:LANGUAGE[:primary|:secondary|:tertiary][:numeric]|:LENGTH]",
                    "text by its bytes, without regard to case, or as a language has it", makeText},
    OrderedTypeRule{"string", "[:LENGTH]", "text by its bytes", makeText},
    OrderedTypeRule{"int", "", "integer of 64 bits", makeInt64},
    OrderedTypeRule{"int64", "", "integer of 64 bits", makeInt64},
    OrderedTypeRule{"int32", "", "integer of 32 bits", makeInt32},
    OrderedTypeRule{"int16", "", "integer of 16 bits", makeInt16},
    OrderedTypeRule{"byte", "", "number from 0 to 255", makeByte},
    OrderedTypeRule{"double", "", "IEEE double, exact; -0 is 0, NaN above all numbers", makeDouble},
    OrderedTypeRule{"float", "", "IEEE single, likewise", makeFloat},
    OrderedTypeRule{
        "decimal", "[:SCALE]",
        "exact number of any length; with SCALE, so many digits behind the point at most",
        makeDecimal},
    OrderedTypeRule{"size", "", "10K, 1.5Gi, 700: K is 1000 and Ki 1024, to Y", makeSize},
    OrderedTypeRule{"hex", "", "hexadecimal number of any length, with or without 0x", makeHex},
    OrderedTypeRule{"version", "", "1.10 behind 1.9, as sort -V has it", makeVersion},
    OrderedTypeRule{"natural", "", "text in which runs of digits count as numbers", makeNatural},
    OrderedTypeRule{"boolean", "", "true, false and what else stands for them: t, yes, y, on, 1",
                    makeBoolean},
    OrderedTypeRule{"date", "", "2024-02-29", makeDate},
    OrderedTypeRule{"time", "", "23:59, 23:59:59.999999999", makeTime},
    OrderedTypeRule{"timestamp", "", "2024-02-29T23:59:59.5, without a zone; the time may lack",
                    makeTimestamp},
    OrderedTypeRule{"timestamptz", "", "the same with Z or +02:00; without one, UTC",
                    makeTimestampWithZone},
    OrderedTypeRule{"month", "", "January to December, or their first three letters", makeMonth},
    OrderedTypeRule{"uuid", "", "UUID, with or without hyphens", makeUuid},
    OrderedTypeRule{"inet", "", "IPv4 or IPv6 address, with or without /PREFIX", makeInet},
    OrderedTypeRule{kAutoType, "",
                    "the first of boolean, int, decimal, double, date, time, "
                    "timestamp, timestamptz, uuid, inet and text that fits all values",
                    refuseAuto},
};

constexpr std::array kGuesses = {"boolean",   "int",         "decimal", "double", "date", "time",
                                 "timestamp", "timestamptz", "uuid",    "inet",   "text"};

}  // namespace

std::string TypeText::text() const {
    std::string text = name;
    for (const std::string& argument : arguments)
        text += ":" + argument;
    return text;
}

std::span<const OrderedTypeRule> orderedTypes() {
    return kTypes;
}

const OrderedTypeRule* findOrderedType(std::string_view name) {
    const auto* const found =
        std::find_if(kTypes.begin(), kTypes.end(),
                     [name](const OrderedTypeRule& rule) { return rule.name == name; });
    return found == kTypes.end() ? nullptr : found;
}

std::unique_ptr<OrderedType> makeOrderedType(const TypeText& text) {
    const OrderedTypeRule* const rule = findOrderedType(text.name);
    if (rule == nullptr) {
        throw badUse("there is no type \"" + text.name + "\"; the types are " + orderedTypeNames());
    }
    if (rule->arguments.empty() && !text.arguments.empty()) {
        const std::string& argument = text.arguments.front();
        if (!argument.empty() && argument.find_first_not_of("0123456789") == std::string::npos)
            throw badUse("the length of type " + text.name + " is given by the type");
        throw badUse("\"" + argument + "\" is not known; the type " + text.name +
                     " takes nothing behind it");
    }
    return rule->make(text);
}

std::string orderedTypeNames() {
    std::string names;
    for (const OrderedTypeRule& rule : kTypes)
        names += (names.empty() ? "" : ", ") + std::string(rule.name);
    return names;
}

std::string orderedTypesHelp() {
    constexpr std::size_t kNameWidth = 13;
    std::string help;
    for (const OrderedTypeRule& rule : kTypes) {
        std::string name(rule.name);
        name.resize(kNameWidth, ' ');
        help += "  " + name + std::string(rule.explanation) + "\n";
        if (rule.arguments.empty()) continue;
        help += "  " + std::string(kNameWidth, ' ') + std::string(rule.name) +
                std::string(rule.arguments) + "\n";
    }
    return help;
}

TypeGuess::TypeGuess() {
    for (const char* const name : kGuesses) {
        const TypeText text = {name, {}};
        candidates_.push_back({text, makeOrderedType(text)});
    }
}

void TypeGuess::take(std::string_view text) {
    any_ = true;
    const auto isNone = [&](const Candidate& candidate) {
        // Ones and zeros are numbers where nobody says otherwise.
        if (candidate.text.name == "boolean" && (text == "0" || text == "1")) return true;
        try {
            scratch_.clear();
            candidate.type->append(text, scratch_);
            return false;
        } catch (const HostError&) {
            return true;
        }
    };
    // The last one takes everything.
    candidates_.erase(std::remove_if(candidates_.begin(), candidates_.end() - 1, isNone),
                      candidates_.end() - 1);
}

TypeText TypeGuess::chosen() const {
    return any_ ? candidates_.front().text : candidates_.back().text;
}

}  // namespace tvsort::host
