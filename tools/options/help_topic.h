// Help that fits one kind of input: `sort --help csv`, or `sort data.csv --help`.

#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tvsort::tools {

// The kind of input that the words of a command line ask about: csv, fields, lines or records, or
// types; empty where they leave it open, or do not ask for help. `words` are those behind the
// subcommand.
std::string helpTopicOf(const std::vector<std::string>& words);

// Leaves to the help of a command that takes records what is of use for the topic.
void fitHelp(CLI::App& command, const std::string& topic);

// "csv, fields, lines, records or types".
std::string helpTopics();

}  // namespace tvsort::tools
