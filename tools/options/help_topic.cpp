#include "tools/options/help_topic.h"

#include <algorithm>
#include <string_view>

#include "tools/options/key_text.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

namespace {

// Kinds of input, a bit each.
enum Kinds : unsigned { kCsv = 1, kFields = 2, kLines = 4, kRecords = 8 };

struct Topic {
    std::string_view name;
    unsigned kind;
    const char* keyWords;  // what --key takes there
};

constexpr Topic kTopics[] = {
    {"csv", kCsv,
     "A sort key, most significant first: COLUMN[:TYPE][:desc][:nulls-first|:nulls-last]"
     "[:nan-first|:nan-last], COLUMN a name of the header or #NUMBER; text without a TYPE"},
    {"fields", kFields,
     "A sort key, most significant first: NUMBER[-NUMBER][:TYPE][:desc][:nulls-first|:nulls-last]"
     "[:nan-first|:nan-last], fields counted from 1, 2- for the second to the last"},
    {"lines", kLines, nullptr},
    {"records", kRecords, nullptr},
};

// Options that not all kinds take.
struct OptionKinds {
    const char* option;
    unsigned kinds;
};

constexpr OptionKinds kOptionKinds[] = {
    {"--lines", kLines},
    {"--as", kLines},
    {"--record-length", kRecords},
    {"--key", kCsv | kFields | kRecords},
    {"--nulls", kRecords},
    {"--weights", kCsv | kRecords},
    {"--on-error", kCsv | kFields | kLines},
    {"--zero-terminated", kFields | kLines},
    {"--plain", kCsv | kFields | kLines},
    {"--null", kCsv | kFields | kLines},
    {"--random", kCsv | kFields | kLines},
    {"--format", kCsv | kFields},
    {"--delimiter", kCsv},
    {"--no-header", kCsv},
    {"--ragged", kCsv},
    {"--level", kCsv | kRecords},
    {"--indent", kFields | kLines},
    {"--merge", kCsv | kFields | kLines},
};

constexpr std::string_view kTypesTopic = "types";

const Topic* findTopic(std::string_view name) {
    if (name == kTsvFormat) name = kCsvFormat;
    const auto* const found = std::find_if(std::begin(kTopics), std::end(kTopics),
                                           [&](const Topic& topic) { return topic.name == name; });
    return found == std::end(kTopics) ? nullptr : found;
}

}  // namespace

std::string helpTopicOf(const std::vector<std::string>& words) {
    const bool isAsked = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "-h" || word.starts_with("--help");
    });
    if (!isAsked) return "";
    RecordOptions options;
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::string next = i + 1 < words.size() ? words[i + 1] : "";
        const bool isHelp = word == "--help" || word == "-h";
        const std::string wanted = word.starts_with("--help=") ? word.substr(7) : next;
        if ((isHelp || wanted != next) && (wanted == kTypesTopic || findTopic(wanted) != nullptr))
            return wanted;
        if (word == "--lines") options.lines = true;
        if (word == "--format") options.format = next;
        if (word.starts_with("--format=")) options.format = word.substr(word.find('=') + 1);
        if (word.starts_with("--record-length")) options.recordLength = 1;
        if (!word.starts_with('-')) inputs.push_back(word);
    }
    // Of the words, those that are inputs have an ending.
    inputs.erase(std::remove_if(inputs.begin(), inputs.end(),
                                [](const std::string& word) {
                                    RecordOptions recognised;
                                    recogniseFormat({word}, recognised);
                                    return recognised.format.empty();
                                }),
                 inputs.end());
    recogniseFormat(inputs, options);
    if (!options.format.empty()) return findTopic(options.format) != nullptr ? options.format : "";
    if (options.lines) return "lines";
    return options.recordLength.has_value() ? "records" : "";
}

void fitHelp(CLI::App& command, const std::string& topic) {
    if (topic == kTypesTopic) {
        const auto onlyTypes = [](const CLI::App*, const std::string&, CLI::AppFormatMode) {
            return typesHelp();
        };
        command.formatter_fn(onlyTypes);
    }
    const Topic* const found = findTopic(topic);
    if (found == nullptr) return;
    for (const OptionKinds& option : kOptionKinds) {
        CLI::Option* const known = command.get_option_no_throw(option.option);
        // An option without a group is not shown.
        if (known != nullptr && (option.kinds & found->kind) == 0) known->group("");
    }
    if (CLI::Option* const key = command.get_option_no_throw("--key"); found->keyWords != nullptr)
        key->description(found->keyWords);
    if (found->kind == kFields) command.footer("Types:\n" + host::orderedTypesHelp());
    if (found->kind == kLines) command.footer(typesHelp(host::ValuePlace::kLine));
    if (found->kind == kCsv) command.footer(typesHelp(host::ValuePlace::kColumn));
    if (found->kind == kRecords) command.footer(typesHelp(host::ValuePlace::kRecord));
}

std::string helpTopics() {
    std::string names;
    for (const Topic& topic : kTopics)
        names += std::string(topic.name) + (topic.kind == kRecords ? " or " : ", ");
    return names + std::string(kTypesTopic);
}

}  // namespace tvsort::tools
