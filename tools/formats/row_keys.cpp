#include "tools/formats/row_keys.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

RowKeys::RowKeys(const std::vector<RowKeyColumn>& columns, RowKeyRules rules)
    : rules_(std::move(rules)) {
    for (const RowKeyColumn& column : columns) {
        columns_.push_back({column.index, column.name, host::OrderedKey(column.form)});
        columnsNeeded_ = std::max(columnsNeeded_, column.index + 1);
    }
}

RowKeys::Outcome RowKeys::encode(std::span<const RowField> fields, host::KeyBytes& key) {
    key.clear();
    Outcome outcome;
    for (Column& column : columns_) {
        const RowField field =
            column.index < fields.size() ? fields[column.index] : RowField{{}, true};
        const bool isNull =
            field.isNull || (rules_.nullWord.has_value() && field.text == *rules_.nullWord);
        if (isNull) {
            outcome.hasNull = true;
            column.key.appendNull(key);
            continue;
        }
        try {
            column.key.append(field.text, key);
        } catch (const host::HostError& error) {
            const std::string problem =
                column.name.empty() ? error.what()
                                    : fmt::format("column {}: {}", column.name, error.what());
            if (!rules_.keepsUnreadable) throw host::badUse(problem);
            if (outcome.problem.empty()) outcome.problem = problem;
            host::OrderedKey::appendUnreadable(field.text, key);
        }
    }
    return outcome;
}

std::string inWords(const std::vector<RowKeyColumn>& columns) {
    std::string words;
    for (const RowKeyColumn& column : columns) {
        if (!words.empty()) words += ", ";
        if (!column.name.empty()) words += column.name + " ";
        words += column.form.type.text();
        if (column.form.isDescending) words += " desc";
    }
    return words;
}

}  // namespace tvsort::tools
