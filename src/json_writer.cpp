// JSON objects written by hand.
#include "json_writer.h"

namespace Vard {

namespace {
// The bus drops a sender of 32 MB; a byte may become three when the text is made valid.
constexpr size_t largestText = 4 << 20;
} // namespace

bool fitsMessage(const std::string& text) { return text.size() < largestText; }

bool ArrayWriter::append(const std::string& object) {
    if (text_.size() + object.size() >= largestText) {
        return false;
    }
    text_ += (text_.empty() ? "" : ",") + object;
    return true;
}

} // namespace Vard
