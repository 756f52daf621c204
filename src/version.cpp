// Which version of the product this is.
#include "version.h"

namespace Vard {

std::string productVersion(std::string_view component) {
    std::string result = "VARD ";
    result.append(component).append(" v.0.3.rel2 build(202306200649)");
    return result;
}

} // namespace Vard
