// Desktop entries: which lines count, and files that are too long.
#include "desktop_file.h"

#include "scratch.h"

namespace {

using Vard::DesktopFile;

class DesktopFileTest : public testing::Test {
protected:
    DesktopFile parse(const std::string& text) const { return DesktopFile::parse(dir_.write("entry", text)); }

    Scratch::Directory dir_;
};

TEST_F(DesktopFileTest, ReadsTheLastOfItsKeysInsideItsGroupOnly) {
    const auto entry = parse(
        "Name=before any group\n[Desktop Entry]\n# Name=comment\n"
        "Type=ApplicatioN\nTerminal=TRUE\nHidden=True\n"
        "Name=first\nName= \xFF second \nName[de]=Anderer\n"
        "GenericName=kind\nGenericName[ru]=\xD0\xB2\xD0\xB8\xD0\xB4\nExec=run=it %u\n"
        "[Desktop Action new]\nExec=other\n"
        "[Desktop Entry]\nTerminal=no\nGenericName=again\n Name=after a blank\nTerminal =yes\n");
    EXPECT_TRUE(entry.application);
    EXPECT_FALSE(entry.terminal);
    EXPECT_TRUE(entry.hidden);
    EXPECT_EQ(entry.name, " \xFF second ");
    EXPECT_EQ(entry.genericName, "again");
    EXPECT_EQ(entry.genericNameRu, "\xD0\xB2\xD0\xB8\xD0\xB4");
    EXPECT_EQ(entry.exec, "run=it %u");
}

TEST_F(DesktopFileTest, GivesNothingForWhatIsTooLong) {
    const auto sparse = dir_.write("sparse", "[Desktop Entry]\nName=big\n");
    std::filesystem::resize_file(sparse, uintmax_t{1} << 40);
    EXPECT_EQ(DesktopFile::parse(sparse).name, "");
    std::filesystem::resize_file(sparse, 1 << 20);
    EXPECT_EQ(DesktopFile::parse(sparse).name, "big");
}

} // namespace
