// Desktop entries: which lines count.
#include "desktop_file.h"

#include "scratch.h"

namespace {

TEST(DesktopFile, ReadsTheLastOfItsKeysInsideItsGroupOnly) {
    const Scratch::Directory dir;
    const auto entry = Vard::DesktopFile::parse(
        dir.write("entry",
                  "Name=before any group\n[Desktop Entry]\n# Name=comment\n"
                  "Type=ApplicatioN\nTerminal=TRUE\nHidden=True\n"
                  "Name=first\nName= \xFF second \nName[de]=Anderer\n"
                  "GenericName=kind\nGenericName[ru]=\xD0\xB2\xD0\xB8\xD0\xB4\nExec=run=it %u\n"
                  "[Desktop Action new]\nExec=other\n"
                  "[Desktop Entry]\nTerminal=no\nGenericName=again\n Name=after a blank\nTerminal =yes\n"));
    EXPECT_TRUE(entry.application);
    EXPECT_FALSE(entry.terminal);
    EXPECT_TRUE(entry.hidden);
    EXPECT_EQ(entry.name, " \xFF second ");
    EXPECT_EQ(entry.genericName, "again");
    EXPECT_EQ(entry.genericNameRu, "\xD0\xB2\xD0\xB8\xD0\xB4");
    EXPECT_EQ(entry.exec, "run=it %u");
}

} // namespace
