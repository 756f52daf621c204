// Who may call what, for a refused caller's message.
#include "access.h"

#include "interface_table.h"

namespace Vardctl {

std::string deniedMessage(std::string_view method) {
    const std::string start = "access denied; this may be done by root";
    const std::string group(Vard::InterfaceTable::method(method).callers);
    if (group == "root") {
        return start + " alone";
    }
    return start + " and by members of the group " + group + (group == "vard-monitor" ? " or vard-frontend" : "");
}

} // namespace Vardctl
