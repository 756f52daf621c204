// Other people's files, whatever they are.
#include "small_file.h"

#include "scratch.h"

namespace {

using namespace Vard;

TEST(SmallFile, IsReadFromRegularFilesOnlyAndNoFurtherThanAsked) {
    const Scratch::Directory dir;
    const auto file = dir.write("file", "first\nsecond\n");
    EXPECT_EQ(Utils::readSmallFile(file), "first\nsecond\n");
    std::filesystem::create_symlink(file, dir.path() / "link");
    EXPECT_EQ(Utils::readSmallFile(dir.path() / "link"), "");
    Scratch::run("mkfifo " + (dir.path() / "fifo").string());
    for (const auto& path : {dir.path() / "fifo", dir.path(), std::filesystem::path("/dev/zero")}) {
        EXPECT_EQ(Utils::readSmallFile(path), "") << path;
    }
    EXPECT_EQ(Utils::readSmallFile(dir.write("big", std::string(1 << 20, 'x'))).size(), size_t{64} << 10);
    EXPECT_EQ(Utils::readFile(dir.path() / "link", 7, LastLink::followed), "first\ns");
}

} // namespace
