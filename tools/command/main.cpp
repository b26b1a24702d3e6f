// tvsort-host: the server's side of the sort process on a command line.
//
// Results go to standard output or a file, words to standard error. Every way out but the end of a
// successful command is an exception, so that nothing stays behind.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_error.h"
#include "tools/command/parse_words.h"
#include "tools/command/subcommands.h"
#include "tools/files/interrupt.h"
#include "tools/files/output_file.h"
#include "tools/files/spoken.h"
#include "tools/options/help_topic.h"

namespace {

// Into the place of a standard stream that the caller has closed a file would be opened, and words
// meant for the stream would end up in it. Reading the input and writing the output go on failing.
void occupyStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int mode = stream == STDOUT_FILENO ? O_RDONLY : O_WRONLY;
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", mode) < 0) return;
    }
}

void say(const std::string& text) {
    tvsort::tools::speak("tvsort-host: " + text + "\n");
}

int fail(const std::string& text) {
    say(text);
    return tvsort::tools::kStatusFailure;
}

std::string describeParseError(const CLI::App*, const CLI::Error& error) {
    return fmt::format("tvsort-host: {}; --help lists the options\n",
                       tvsort::tools::ownWords(error.what()));
}

// Null where there is none of the name.
CLI::App* commandNamed(CLI::App& app, std::string_view name) {
    const auto commands =
        app.get_subcommands([&](CLI::App* command) { return command->get_name() == name; });
    return commands.empty() ? nullptr : commands.front();
}

// Behind `--option=` the parser would take the next word for the value, which is empty.
std::vector<std::string> separated(CLI::App& app, std::span<char*> arguments) {
    std::vector<std::string> words;
    CLI::App* const command = arguments.size() > 1 ? commandNamed(app, arguments[1]) : nullptr;
    const auto takesValue = [command](const std::string& name) {
        const CLI::Option* const option =
            command != nullptr ? command->get_option_no_throw(name) : nullptr;
        return option != nullptr && option->get_items_expected_max() > 0;
    };
    bool areOptions = true;
    for (const std::string_view word : arguments) {
        if (word == "--") areOptions = false;
        const std::string name(word.substr(0, std::max<std::size_t>(word.size(), 1) - 1));
        const bool isEmpty =
            areOptions && word.starts_with("--") && word.ends_with('=') && takesValue(name);
        words.emplace_back(isEmpty ? name : word);
        if (isEmpty) words.emplace_back();
    }
    return words;
}

int run(int argumentCount, char** arguments) {
    using namespace tvsort::tools;
    int exitStatus = kStatusSuccess;
    CLI::App app("Sorts files through the sort process of the TAVRIN database server.",
                 "tvsort-host");
    app.set_version_flag("--version", TVSORT_VERSION);
    // None is told apart below: a word that is no subcommand is then named as such.
    app.require_subcommand(0, 1);
    app.failure_message(describeParseError);
    app.footer(
        "Exit status: 0 success, 1 a file is not in order, 2 failure, 3 rows were skipped or put "
        "last.");
    for (const AddSubcommand addSubcommand : kSubcommands)
        addSubcommand(app, exitStatus);
    if (argumentCount > 2) {
        const std::string topic = helpTopicOf({arguments + 2, arguments + argumentCount});
        CLI::App* const command = commandNamed(app, arguments[1]);
        if (command != nullptr && command->get_option_no_throw("--lines") != nullptr)
            fitHelp(*command, topic);
    }
    try {
        std::vector<std::string> words =
            separated(app, std::span(arguments, static_cast<std::size_t>(argumentCount)));
        // The parser takes them from the end, and without the program's name.
        std::reverse(words.begin(), words.end());
        words.pop_back();
        app.parse(std::move(words));
        if (app.get_subcommands().empty())
            return fail("say what to do; --help lists the subcommands");
    } catch (const CLI::ParseError& error) {
        if (app.exit(error) != 0) return kStatusFailure;
        return std::cout.flush() ? kStatusSuccess : fail("cannot write to standard output");
    }
    return exitStatus;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    occupyStandardStreams();
    tvsort::tools::catchInterrupts();
    try {
        return run(argumentCount, arguments);
    } catch (const tvsort::tools::Interrupted& interrupted) {
        say(fmt::format("interrupted by signal {}; no output file was changed",
                        interrupted.signalNumber()));
        return tvsort::tools::kStatusInterrupted + interrupted.signalNumber();
    } catch (const tvsort::tools::ReaderGone&) {
        return tvsort::tools::kStatusInterrupted + SIGPIPE;
    } catch (const std::bad_alloc&) {
        return fail("out of memory; ask for less with --memory");
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
