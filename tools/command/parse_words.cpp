#include "tools/command/parse_words.h"

#include <regex>
#include <utility>

namespace tvsort::tools {

std::string ownWords(const std::string& parserWords) {
    static const std::pair<std::regex, const char*> kWords[] = {
        // Numbers with a point have zeros behind them.
        {std::regex("(-[^ ]*): Value (.*) not in range (\\d+(?:\\.\\d*[1-9])?)\\.?0* to "
                    "(\\d+(?:\\.\\d*[1-9])?)\\.?0*"),
         "$1 $2: write a number from $3 to $4"},
        {std::regex("(-[^ ]*): (.*) unit not recognized.*"),
         "$1: $2 is no unit of a size; write one such as 512K, 64M or 2G"},
        {std::regex("(-[^ ]*): (.*) not in \\{(.*)\\}"), "$1 $2: write one of $3"},
        {std::regex("The following arguments? w(as|ere) not expected: (.*)"),
         "$2: there is no such option or word here"},
        {std::regex("INPUT is required"), "name a file, or - for standard input"},
        {std::regex("(-[^ ]*) is required"), "say $1 too"},
        {std::regex("(-[^ ]*): At Most 1 required but received .*"),
         "$1 is said more than once; say it once"},
        // Of an option that the help of a kind of input leaves out.
        {std::regex(": At Most 1 required but received .*"),
         "an option is said more than once; say it once"},
        {std::regex("(-[^ ]*): 1 required .* missing"), "$1 needs a value behind it"},
        {std::regex("Could not convert: (-[^ ]*) = (.*)"), "$1 $2: write a number"},
        {std::regex("(-[^ ]*): .*[Cc]ould not be converted.*"), "$1: write a number"},
    };
    for (const auto& [pattern, words] : kWords) {
        if (std::regex_match(parserWords, pattern))
            return std::regex_replace(parserWords, pattern, words);
    }
    return parserWords;
}

}  // namespace tvsort::tools
