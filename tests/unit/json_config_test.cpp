// Configuration access: defaults, conversions, broken input.
#include "json_config.h"

#include "exceptions.h"
#include "scratch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using Vard::JsonConfigString;

TEST(JsonConfig, MissingMembersGiveDefaultsAndPresentOnesAreConverted) {
    const JsonConfigString config(R"({"a:b":"x","n":"7","list":["1",2],"text":"t","flag":true})");
    EXPECT_EQ(config.getString("a:b"), "x");
    EXPECT_EQ(config.getString("none", "default"), "default");
    EXPECT_EQ(config.getInteger("none", 5), 5);
    EXPECT_TRUE(config.getBoolean("flag"));
    EXPECT_EQ(config.getVectorList("list"), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(config.getStringList("text").empty()) << "no list, no elements";
    EXPECT_TRUE(config.hasValue("n"));
    EXPECT_FALSE(config.hasValue("a"));
}

TEST(JsonConfig, BrokenSettingFallsBackABrokenRequestThrows) {
    const JsonConfigString config(R"({"n":"seven","o":{}})");
    EXPECT_THROW(static_cast<void>(config.getInteger("n")), Json::LogicError);
    EXPECT_EQ(config.settingInteger("n", 60), 60);
    EXPECT_EQ(config.settingString("o", "default"), "default");
}

TEST(JsonConfig, OnlyObjectsAreAccepted) {
    EXPECT_THROW(JsonConfigString("[1]"), Vard::vard_error);
    EXPECT_THROW(JsonConfigString("{"), std::exception);
    EXPECT_THROW(JsonConfigString(std::string(200000, '[')), std::exception) << "deep nesting is no crash";
    EXPECT_THROW(Vard::readJson("/dev/zero"), Vard::vard_error);
    EXPECT_THROW(Vard::readJson("/nonexistent"), Vard::vard_error);
}

TEST(JsonConfig, FilesAreReadWithoutWaitingForAnybody) {
    const Scratch::Directory scratch;
    const auto text = R"({"xvfb:path":")" + std::string(50000, 'p') + R"("})"; // more than one read
    EXPECT_EQ(Vard::readJson(scratch.write("file", text))["xvfb:path"].asString().size(), 50000U);
    EXPECT_THROW(Vard::readJson(scratch.write("broken", "{")), Json::RuntimeError);
    ASSERT_EQ(::mkfifo((scratch.path() / "fifo").c_str(), 0600), 0);
    EXPECT_THROW(Vard::readJson(scratch.path() / "fifo"), Vard::vard_error);
    std::filesystem::resize_file(scratch.write("sparse", "{}"), uintmax_t{17} << 20);
    EXPECT_THROW(Vard::readJson(scratch.path() / "sparse"), Vard::vard_error);
}

} // namespace
