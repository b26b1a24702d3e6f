#include "tools/formats/row_keys.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

RowKeys::RowKeys(const std::vector<RowKeyColumn>& columns, RowKeyRules rules)
    : rules_(std::move(rules)) {
    for (const RowKeyColumn& column : columns)
        columns_.push_back({column.index, column.name, host::OrderedKey(column.form)});
}

RowKeys::Outcome RowKeys::encode(std::span<const RowField> fields, host::KeyBytes& key) {
    key.clear();
    Outcome outcome;
    for (Column& column : columns_) {
        if (column.index == RowKeyColumn::kAllFields) {
            appendAll(column, fields, key, outcome);
        } else {
            append(column, column.index < fields.size() ? fields[column.index] : RowField{{}, true},
                   key, outcome);
        }
    }
    return outcome;
}

void RowKeys::append(Column& column, const RowField& field, host::KeyBytes& key, Outcome& outcome) {
    if (field.isNull || (rules_.nullWord.has_value() && field.text == *rules_.nullWord)) {
        outcome.hasNull = true;
        column.key.appendNull(key);
        return;
    }
    try {
        column.key.append(field.text, key);
    } catch (const host::HostError& error) {
        const std::string problem = column.name.empty()
                                        ? error.what()
                                        : fmt::format("column {}: {}", column.name, error.what());
        if (!rules_.keepsUnreadable) throw host::badUse(problem);
        if (outcome.problem.empty()) outcome.problem = problem;
        // The key is that of a malformed row, and rows of one key agree in this.
        if (field.text.empty()) outcome.hasNull = true;
        host::OrderedKey::appendUnreadable(field.text, key);
    }
}

// Behind the last field stands what is below every mark, so that no row's key begins another's.
void RowKeys::appendAll(Column& column, std::span<const RowField> fields, host::KeyBytes& key,
                        Outcome& outcome) {
    while (!fields.empty() && fields.back().isNull)
        fields = fields.first(fields.size() - 1);
    for (const RowField& field : fields)
        append(column, field, key, outcome);
    const std::size_t end = key.size();
    key.push_back(0);
    if (column.key.form().isDescending) host::complementFrom(end, key);
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
