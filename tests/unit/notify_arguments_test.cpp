// The command line of the program that shows a notice.
#include "notify/arguments.h"

#include "text.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace Vard;
using Utils::stringQuoted;

Notice parse(const std::string& header, const std::string& message, const std::string& level = "1") {
    return parseNotice({"--header", stringQuoted(header), "--message", stringQuoted(message), "--level", level});
}

TEST(NotifyArguments, RefusesEverythingElse) {
    const auto refused = [](size_t position, const std::string& word) {
        std::vector<std::string> words{"--header", "\"h\"", "--message", "\"m\"", "--level", "1"};
        words[position] = word;
        EXPECT_THROW(parseNotice(words), std::invalid_argument) << position << ": " << word;
    };
    refused(0, "--title");
    refused(2, "--header");
    for (const char* level : {"", "256", "-1", "+1", "1x", " 1"}) {
        refused(5, level);
    }
    for (const char* text : {"", "h", "\"", "\"h", "\"h\\\"", "\"h\" ", " \"h\"", "\"h\"i\"", "\"\\h\""}) {
        refused(1, text);
    }
    EXPECT_THROW(parseNotice({"--header"}), std::invalid_argument);
}

TEST(NotifyArguments, LongTextsAreCutBetweenCharacters) {
    const std::string whole(4096, 'a');
    EXPECT_EQ(parse("h", whole).text, whole);
    const std::string justBefore(4095, 'a');
    EXPECT_EQ(parse("h", justBefore + "€€").text, justBefore + "…") << "no half of a character";
    EXPECT_EQ(parse(std::string(300, 'h'), "").title, std::string(256, 'h') + "…");
    EXPECT_EQ(parse("h", "a\xff").text, "a\uFFFD");
}

} // namespace
