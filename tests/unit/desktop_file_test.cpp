// Desktop entries: which lines count, and files that are none.
#include "desktop_file.h"

#include "scratch.h"

#include <sys/stat.h>

namespace {

using Vard::DesktopFile;

class DesktopFileTest : public testing::Test {
protected:
    DesktopFile parse(const std::string& text) const { return DesktopFile::parse(dir_.write("entry", text)); }

    Scratch::Directory dir_;
};

TEST_F(DesktopFileTest, ReadsItsKeysInsideItsGroupOnly) {
    const auto entry = parse(
        "Name=before any group\n"
        "[Desktop Entry]\n"
        "# Name=comment\n"
        "Type=ApplicatioN\n"
        "Terminal=TRUE\n"
        "Hidden=True\n"
        "Name=first\n"
        "Name= second \n"
        "Name[ru]=\xD0\x98\xD0\xBC\xD1\x8F\n"
        "Name[de]=Anderer\n"
        "GenericName=kind\n"
        "GenericName[ru]=\xD0\xB2\xD0\xB8\xD0\xB4\n"
        "Exec=run=it %u\n"
        "[Desktop Action new]\n"
        "Name=action\n"
        "Exec=other\n"
        "[Desktop Entry]\n"
        "GenericName=again");
    EXPECT_TRUE(entry.application);
    EXPECT_TRUE(entry.terminal);
    EXPECT_TRUE(entry.hidden);
    EXPECT_EQ(entry.name, " second ");
    EXPECT_EQ(entry.nameRu, "\xD0\x98\xD0\xBC\xD1\x8F");
    EXPECT_EQ(entry.genericName, "again");
    EXPECT_EQ(entry.genericNameRu, "\xD0\xB2\xD0\xB8\xD0\xB4");
    EXPECT_EQ(entry.exec, "run=it %u");
}

TEST_F(DesktopFileTest, TakesNoBlanksAndLetsALaterValueWin) {
    const auto entry =
        parse("[Desktop Entry]\nType = Application\n Name=indented\nTerminal=true\nTerminal=no\nHidden=1\n");
    EXPECT_FALSE(entry.application);
    EXPECT_FALSE(entry.terminal);
    EXPECT_FALSE(entry.hidden);
    EXPECT_EQ(entry.name, "");
    EXPECT_EQ(parse("[Desktop Entry] \nName=x\n").name, "");
    EXPECT_EQ(parse("[Desktop Entry]\r\nName=x\r\n").name, "");
}

TEST_F(DesktopFileTest, KeepsBytesAsTheyStand) {
    const std::string name("\xFF\xFE\0\x80", 4);
    EXPECT_EQ(parse("[Desktop Entry]\nName=" + name + "\n").name, name);
}

TEST_F(DesktopFileTest, GivesNothingForWhatIsNoEntryFileAndNeverWaits) {
    const auto& dir = dir_.path();
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    const auto sparse = dir_.write("sparse", "[Desktop Entry]\nName=big\n");
    std::filesystem::resize_file(sparse, uintmax_t{1} << 40);
    for (const auto& path : {dir / "fifo", sparse, dir, dir / "missing", std::filesystem::path("/dev/zero")}) {
        EXPECT_EQ(DesktopFile::parse(path).name, "") << path;
    }
    std::filesystem::resize_file(sparse, 1 << 20);
    EXPECT_EQ(DesktopFile::parse(sparse).name, "big");
}

} // namespace
