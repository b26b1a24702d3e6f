// The subcommands of tvsort-host.
//
// Each adds itself to the command line: its options, its help, and what it does when it is chosen.
// It answers by `exitStatus` and throws on failure; main turns what it throws into words.

#pragma once

#include <CLI/CLI.hpp>
#include <array>

namespace tvsort::tools {

// 0 is for success only.
inline constexpr int kStatusSuccess = 0;
// `verify`: the file is not in order.
inline constexpr int kStatusNotInOrder = 1;
// Bad options, and everything that failed.
inline constexpr int kStatusFailure = 2;
// The output lacks rows that could not be read, or has them behind all others.
inline constexpr int kStatusSkipped = 3;
// And the signal's number: interrupted.
inline constexpr int kStatusInterrupted = 128;

void addSortCommand(CLI::App& app, int& exitStatus);
void addExplainCommand(CLI::App& app, int& exitStatus);
void addVerifyCommand(CLI::App& app, int& exitStatus);
void addGenerateCommand(CLI::App& app, int& exitStatus);
void addCollationCommand(CLI::App& app, int& exitStatus);
void addSampleCommand(CLI::App& app, int& exitStatus);
void addSplitCommand(CLI::App& app, int& exitStatus);

using AddSubcommand = void (*)(CLI::App& app, int& exitStatus);
inline constexpr std::array<AddSubcommand, 7> kSubcommands = {
    addSortCommand,      addExplainCommand, addVerifyCommand, addGenerateCommand,
    addCollationCommand, addSampleCommand,  addSplitCommand,
};

}  // namespace tvsort::tools
