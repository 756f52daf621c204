// Configuration access: defaults, conversions, broken input.
#include "json_config.h"

#include "scratch.h"

namespace {

using Vard::JsonConfigString;

TEST(JsonConfig, ValuesAreConvertedAndBrokenSettingsFallBack) {
    const JsonConfigString config(R"({"a:b":"x","n":"seven","o":{},"list":["1",2]})");
    EXPECT_EQ(config.getString("a:b"), "x");
    EXPECT_EQ(config.getString("none", "default"), "default");
    EXPECT_EQ(config.getStringList("list"), (std::list<std::string>{"1", "2"}));
    EXPECT_TRUE(config.getStringList("a:b").empty()) << "no list, no elements";
    EXPECT_THROW(static_cast<void>(config.getInteger("n")), Json::LogicError) << "a request's value";
    EXPECT_EQ(config.setting(Vard::NumberSetting{"n", 60}), 60);
    EXPECT_EQ(config.setting(Vard::TextSetting{"o", "default"}), "default");
}

// Deeper nesting would run over the stack of a background thread.
TEST(JsonConfig, NestingHasALimit) {
    const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const Scratch::Directory scratch;
    EXPECT_EQ(Vard::readJson(scratch.write("flat", nested(60))).size(), 1U);
    EXPECT_THROW(Vard::readJson(scratch.write("deep", nested(990))), Json::RuntimeError);
}

} // namespace
