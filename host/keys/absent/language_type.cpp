// In place of host/keys/language_type.cpp where ICU is not installed.

#include "host/keys/language_type.h"

namespace tvsort::host {

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw badUse(what +
                 ": tvsort was built without ICU; install libicu-dev, configure and build again");
}

}  // namespace

std::unique_ptr<OrderedType> makeLanguageText(const std::vector<std::string>& arguments) {
    refuse("text cannot be ordered as \"" + arguments.front() + "\" has it");
}

void foldCase(std::string_view, std::string&) {
    refuse("the case of text beyond ASCII cannot be folded");
}

}  // namespace tvsort::host
