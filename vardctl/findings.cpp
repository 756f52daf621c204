// What a look at the machine finds.
#include "findings.h"

#include "json.h"
#include "small_file.h"
#include "text.h"

namespace Vardctl {

// What is found may name files of users', with whatever bytes they have.
void Findings::write(const char* status, const std::string& found, const std::string& remedy) const {
    Json::Value line;
    line["status"] = status;
    line["check"] = check_;
    line["found"] = Vard::Utils::toValidUtf8(found);
    line["remedy"] = Vard::Utils::toValidUtf8(remedy);
    Vard::Utils::writeAll(descriptor_, jsonLine(line));
}

} // namespace Vardctl
