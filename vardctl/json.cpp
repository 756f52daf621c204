// JSON as the service writes it and as the command prints it.
#include "json.h"

#include "failure.h"

#include <memory>

namespace Vardctl {

Json::Value parseJson(const std::string& text) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value value;
    std::string error;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &error)) {
        throw Failure(ExitCode::failed, "the service's answer is no JSON: " + error);
    }
    return value;
}

std::string jsonLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = false;
    return Json::writeString(builder, value) + "\n";
}

} // namespace Vardctl
