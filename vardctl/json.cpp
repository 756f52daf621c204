// JSON as the service writes it and as the command prints it.
#include "json.h"

#include "failure.h"

#include <memory>

namespace Vardctl {

Json::Value parseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["allowComments"] = false; // they would be kept, and printed as they stand
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string error;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &value, &error)) {
            return value;
        }
    } catch (const Json::RuntimeError& err) { // nested deeper than the reader goes
        error = err.what();
    }
    throw Failure(ExitCode::failed, "the service's answer is no JSON: " + error);
}

std::string jsonLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = false;
    std::string line;
    for (const char byte : Json::writeString(builder, value)) {
        // The one control character that the writer lets pass; it can stand in texts only.
        byte == '\x7F' ? line += "\\u007f" : line += byte;
    }
    return line + "\n";
}

} // namespace Vardctl
