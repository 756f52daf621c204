// Configuration access: defaults, conversions, broken input.
#include "json_config.h"

#include "exceptions.h"
#include "scratch.h"

#include <sys/stat.h>

namespace {

using Vard::JsonConfigString;

TEST(JsonConfig, ValuesAreConvertedAndBrokenSettingsFallBack) {
    const JsonConfigString config(R"({"a:b":"x","n":"seven","o":{},"list":["1",2]})");
    EXPECT_EQ(config.getString("a:b"), "x");
    EXPECT_EQ(config.getString("none", "default"), "default");
    EXPECT_EQ(config.getStringList("list"), (std::list<std::string>{"1", "2"}));
    EXPECT_TRUE(config.getStringList("a:b").empty()) << "no list, no elements";
    EXPECT_THROW(static_cast<void>(config.getInteger("n")), Json::LogicError) << "a request's value";
    EXPECT_EQ(config.settingInteger("n", 60), 60);
    EXPECT_EQ(config.settingString("o", "default"), "default");
}

TEST(JsonConfig, FilesAreReadWithoutWaitingForAnybody) {
    const Scratch::Directory scratch;
    const auto text = R"({"xvfb:path":")" + std::string(50000, 'p') + R"("})"; // more than one read
    EXPECT_EQ(Vard::readJson(scratch.write("file", text))["xvfb:path"].asString().size(), 50000U);
    ASSERT_EQ(::mkfifo((scratch.path() / "fifo").c_str(), 0600), 0);
    std::filesystem::resize_file(scratch.write("sparse", "{}"), uintmax_t{17} << 20);
    for (const std::filesystem::path path : {"fifo", "sparse", "missing", "/dev/zero"}) {
        EXPECT_THROW(Vard::readJson(scratch.path() / path), Vard::vard_error) << path;
    }
}

// Deeper nesting would run over the stack of a background thread.
TEST(JsonConfig, NestingHasALimit) {
    const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const Scratch::Directory scratch;
    EXPECT_EQ(Vard::readJson(scratch.write("flat", nested(60))).size(), 1U);
    try {
        Vard::readJson(scratch.write("deep", nested(990)));
        ADD_FAILURE() << "accepted";
    } catch (const Json::RuntimeError& err) {
        EXPECT_STREQ(err.what(), "JSON nested deeper than 64 levels");
    }
}

} // namespace
