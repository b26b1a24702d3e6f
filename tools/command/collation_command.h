// `tvsort-host collation LOCALE -o FILE`: writes a collation file from ICU, and the `--collation`
// of `tvsort-host sort`, which takes such a file or makes one for the sort.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/collation_directory.h"
#include "host/request_builder.h"
#include "host/sort_slot.h"
#include "host/values/collation_order.h"
#include "host/values/collation_writer.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

struct CollationOptions {
    std::string locale;
    std::string output;
    std::string strength = "tertiary";
};

// Writes the file, and to standard error how much of ICU's order is in it.
void writeCollation(const CollationOptions& options);

// Puts a collation in force for the processes of `options`: the content of the file `name`, or,
// where there is no file of that name, the tertiary order of the locale `name`. It lasts as long as
// what is returned; an empty name gives null and leaves the options as they are. A request without
// a UCS-2 key is bad use.
std::unique_ptr<host::CollationDirectory> putCollationInForce(const std::string& name,
                                                              const host::RequestBuilder& request,
                                                              host::ServerOptions& options);

}  // namespace tvsort::tools
