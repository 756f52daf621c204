// The JSON text of a session request. A finding means that whoever may call the service's bus name can end it, or that
// a request's numbers and texts are taken from where there are none.
#include "harness.h"

#include "exceptions.h"
#include "json_config.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto text = Fuzz::textOf(data, size);
    try {
        const Vard::JsonConfigString request(text);
        for (const auto* key : {"username", "width", "sec:nla", "arguments", ""}) {
            request.setting(Vard::TextSetting{key, ""});
            request.setting(Vard::NumberSetting{key, 1});
            request.setting(Vard::FlagSetting{key, true});
            Fuzz::expect(request.hasValue(key) || request.setting(Vard::ListSetting{key}).empty());
            try {
                request.getDouble(key);
                request.getVectorList(key);
            } catch (const Json::Exception&) { // a member of another type
            }
        }
    } catch (const Json::Exception&) { // no JSON
    } catch (const Vard::vard_error&) { // no object
    }
    return 0;
}
