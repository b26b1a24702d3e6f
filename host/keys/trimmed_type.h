// A type around whose values blanks do not count.

#pragma once

#include <string_view>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

class TrimmedType : public OrderedType {
  public:
    void append(std::string_view text, KeyBytes& key) final {
        constexpr std::string_view kBlanks = " \t";
        const std::size_t first = text.find_first_not_of(kBlanks);
        const bool isBlank = first == std::string_view::npos;
        appendTrimmed(isBlank ? std::string_view()
                              : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first),
                      key);
    }

  private:
    virtual void appendTrimmed(std::string_view text, KeyBytes& key) = 0;
};

}  // namespace tvsort::host
