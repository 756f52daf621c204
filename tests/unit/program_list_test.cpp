// The program list: from both sources, in order, whatever lies in them.
#include "program_list.h"

#include "scratch.h"

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using Vard::ProgramList;

class ProgramListTest : public testing::Test {
protected:
    ProgramListTest() { fs::create_directory(apps()); }

    fs::path apps() const { return dir_.path() / "applications"; }
    void desktop(const std::string& file, const std::string& keys) const {
        dir_.write("applications/" + file, "[Desktop Entry]\nType=Application\n" + keys);
    }
    bool reload(const std::string& json) { return list_.reload(dir_.write("programs.json", json), apps()); }
    /// The command with its arguments in brackets.
    std::string command(const std::string& name) const {
        std::string text = list_.find(name)->path;
        for (const auto& arg : list_.find(name)->args) {
            text += "[" + arg + "]";
        }
        return text;
    }

    Scratch::Directory dir_;
    ProgramList list_;
};

TEST_F(ProgramListTest, OffersTheStartableEntriesByTheirExecutables) {
    const std::string here = dir_.write("own", "");
    desktop("a.desktop", "Name=in bin\nExec=env %u --new\n");
    desktop("b.desktop", "Name=as given\nExec=" + here + "\t%F\n");
    desktop("c.desktop", "Name=plain\nName[ru]=\xD0\xBF\xD0\xBE\nTerminal=true\nExec=env -i\n");
    desktop("hidden.desktop", "Name=hidden\nHidden=true\n");
    desktop("link.desktop", "Name=link\nType=Link\n");
    desktop("backup.desktop~", "Name=backup\n");
    EXPECT_TRUE(reload("[]"));
    EXPECT_THAT(list_.getNames(), UnorderedElementsAre("in bin", "as given", "\xD0\xBF\xD0\xBE"));
    EXPECT_EQ(command("in bin"), "/usr/bin/env");
    EXPECT_EQ(command("as given"), here);
    EXPECT_EQ(command("\xD0\xBF\xD0\xBE"), "/usr/bin/xterm[-e][/usr/bin/env]");
}

TEST_F(ProgramListTest, AppendsTheAdministratorsProgramsInTheirOrderButWrongOnes) {
    const Scratch::Journal journal;
    desktop("a.desktop", "Name=twice\nExec=env\n");
    EXPECT_TRUE(reload(R"([7, {"name":"twice","path":"/bin/sh"}, {"name":"x","path":"/bin/sh","args":[{}]},
                           {"name":["x"],"path":"/bin/sh"}, {"name":"lost","path":"/no/such"}, {"name":"pathless"},
                           {"name":"last","path":"/bin/sh","args":["-c","exit 7",""]}])"));
    EXPECT_THAT(list_.getNames(), ElementsAre("twice", "twice", "last"));
    EXPECT_EQ(command("twice"), "/usr/bin/env");
    EXPECT_EQ(command("last"), "/bin/sh[-c][exit 7][]");
    EXPECT_EQ(list_.find("LAST"), nullptr);
    EXPECT_THAT(journal.lines(), HasSubstr("ProgramListReload: binary not found: /no/such for name: lost"));
    for (const char* broken : {"", "[{\"name\":", "{}"}) {
        EXPECT_FALSE(reload(broken)) << broken;
        EXPECT_THAT(list_.getNames(), ElementsAre("twice")) << "the desktop entries stay";
    }
}

} // namespace
