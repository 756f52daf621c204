// What a look at the machine finds.
#include "findings.h"

#include "json.h"
#include "small_file.h"
#include "text.h"

namespace Vardctl {

namespace {

// A value of the configuration can be long; what is said of it stands behind it.
std::string shortened(const std::string& text) {
    constexpr size_t half = 250;
    return text.size() <= 2 * half ? text : Vard::bounded(text, half) + " ... " + text.substr(text.size() - half);
}

} // namespace

// What is found may name files of users', with whatever bytes they have.
void Findings::write(const char* status, const std::string& found, const std::string& remedy) const {
    Json::Value line;
    line["status"] = status;
    line["check"] = check_;
    line["found"] = Vard::Utils::toValidUtf8(shortened(found));
    line["remedy"] = Vard::Utils::toValidUtf8(shortened(remedy));
    Vard::Utils::writeAll(descriptor_, jsonLine(line));
}

} // namespace Vardctl
