// In place of host/values/collation_order.cpp where ICU is not installed.

#include "host/values/collation_order.h"

#include "host/host_error.h"

namespace tvsort::host {

CollationOrder collationOrder(const std::string& locale, CollationStrength) {
    throw badUse("the collation of \"" + locale +
                 "\" cannot be made: tvsort was built without ICU; " +
                 "install libicu-dev, configure and build again");
}

}  // namespace tvsort::host
