// The command line of the program that shows a notice.
#include "notify/arguments.h"

#include "utils.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace Vard;
using Utils::stringQuoted;

using Words = std::vector<std::string>;

Notice parse(const std::string& header, const std::string& message, const std::string& level = "1") {
    return parseNotice({"--header", stringQuoted(header), "--message", stringQuoted(message), "--level", level});
}

TEST(NotifyArguments, TakesTheTextsExactly) {
    const std::string message = "--\"a\" \\ $(x)\n\tИмя ";
    const auto notice = parse("  a \"title\"", message, "255");
    EXPECT_EQ(notice.title, "  a \"title\"");
    EXPECT_EQ(notice.text, message);
    EXPECT_EQ(notice.level, 255);
    EXPECT_EQ(parse("", "").title, "Message") << "the default title";
    const auto turned = parseNotice({"--level", "0", "--message", "\"--level\"", "--header", "\"h\""});
    EXPECT_EQ(turned.text, "--level");
    EXPECT_EQ(turned.level, 0);
}

TEST(NotifyArguments, RefusesEverythingElse) {
    const Words good{"--header", "\"h\"", "--message", "\"m\"", "--level", "1"};
    EXPECT_EQ(parseNotice(good).title, "h");
    const auto refused = [&](size_t position, const std::string& word) {
        Words bad = good;
        bad[position] = word;
        EXPECT_THROW(parseNotice(bad), std::invalid_argument) << position << ": " << word;
    };
    refused(0, "--title");
    refused(2, "--header");
    for (const char* level : {"", "256", "-1", "+1", "1x", " 1", "one", "99999999999999999999"}) {
        refused(5, level);
    }
    for (const char* text : {"", "h", "\"", "\"h", "h\"", "\"h\\\"", "\"h\" ", " \"h\"", "\"h\"i\"", "\"\\h\""}) {
        refused(1, text);
        refused(3, text);
    }
    for (const Words& bad : {Words{}, Words{"--header"}, Words(good.begin(), good.end() - 1), Words(8, "--level")}) {
        EXPECT_THROW(parseNotice(bad), std::invalid_argument) << bad.size();
    }
}

TEST(NotifyArguments, LongTextsAreCutBetweenCharacters) {
    const std::string whole(4096, 'a');
    EXPECT_EQ(parse("h", whole).text, whole);
    EXPECT_EQ(parse("h", whole + "b").text, whole + "…");
    const std::string justBefore(4095, 'a');
    EXPECT_EQ(parse("h", justBefore + "€€").text, justBefore + "…") << "no half of a character";
    EXPECT_EQ(parse(std::string(300, 'h'), "").title, std::string(256, 'h') + "…");
    EXPECT_EQ(parse("h", "a\xff").text, "a\uFFFD");
}

} // namespace
