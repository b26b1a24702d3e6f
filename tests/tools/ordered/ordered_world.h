// Lines in files, as rows that a sort by ordered keys reads.

#pragma once

#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/spool_file.h"
#include "tools/formats/lines/line_keyed.h"

namespace tvsort::tools {

struct OrderedWorld {
    struct Row {
        RowPlace place;
        std::string_view text;
    };

    // Lines of each input.
    explicit OrderedWorld(const std::vector<std::vector<std::string>>& lines,
                          bool isDescending = false) {
        std::uint64_t offset = 0;
        for (const std::vector<std::string>& ofInput : lines) {
            std::string& text = texts.emplace_back();
            for (const std::string& line : ofInput)
                text += line + "\n";
            std::size_t begin = 0;
            for (const std::string& line : ofInput) {
                rows.push_back({{offset + begin, static_cast<std::uint32_t>(line.size())},
                                std::string_view(text).substr(begin, line.size())});
                begin += line.size() + 1;
            }
            offset += text.size();
            SpoolFile file(std::filesystem::temp_directory_path());
            file.write(reinterpret_cast<const Byte*>(text.data()), text.size());
            files.push_back(file.takeAsInput("lines"));
        }
        LineKeyedInput::Form form;
        host::KeyForm key;
        key.type.name = "string";
        key.isDescending = isDescending;
        form.columns.push_back({0, "", key});
        input.emplace(std::move(form), files);
    }

    std::list<std::string> texts;  // of the inputs
    std::vector<Row> rows;
    std::vector<InputFile> files;
    std::optional<LineKeyedInput> input;
};

}  // namespace tvsort::tools
