// The program list: from both sources, in order, whatever lies in them.
#include "program_list.h"

#include "scratch.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <numeric>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Vard::Program;
using Vard::ProgramList;

class ProgramListTest : public testing::Test {
protected:
    ProgramListTest() { fs::create_directory(apps()); }

    fs::path apps() const { return dir_.path() / "applications"; }
    void desktop(const std::string& file, const std::string& keys) const {
        dir_.write("applications/" + file, "[Desktop Entry]\nType=Application\n" + keys);
    }
    bool reload(const std::string& json) { return list_.reload(dir_.write("programs.json", json), apps()); }
    std::string commandOf(const std::string& name) const {
        const Program* program = list_.find(name);
        return program == nullptr ? "none" : program->path.string();
    }

    Scratch::Directory dir_;
    ProgramList list_;
};

TEST_F(ProgramListTest, TakesOnlyStartableEntriesOfTheDirectoryItself) {
    desktop("shown.desktop", "Name=shown\nExec=true\n");
    desktop("russian.desktop", "Name=plain\nName[ru]=\xD0\xBF\xD0\xBE\xD0\xBA\xD0\xB0\xD0\xB7\nExec=true\n");
    desktop("hidden.desktop", "Name=hidden\nHidden=true\n");
    desktop("link.desktop", "Name=link\nType=Link\n");
    desktop("capital.DESKTOP", "Name=capital\n");
    desktop("backup.desktop~", "Name=backup\n");
    fs::create_directory(apps() / "deeper.desktop");
    dir_.write("applications/deeper.desktop/deep.desktop", "[Desktop Entry]\nType=Application\nName=deep\n");
    fs::create_symlink(dir_.path() / "missing", apps() / "dangling.desktop");
    fs::create_symlink(apps() / "shown.desktop", apps() / "linked.desktop");
    ASSERT_EQ(::mkfifo((apps() / "fifo.desktop").c_str(), 0600), 0);
    EXPECT_TRUE(reload("[]"));
    EXPECT_THAT(list_.getNames(), UnorderedElementsAre("shown", "shown", "\xD0\xBF\xD0\xBE\xD0\xBA\xD0\xB0\xD0\xB7"));
}

TEST_F(ProgramListTest, FindsTheExecutableAndDropsItsArguments) {
    const std::string here = dir_.write("own", "").string();
    desktop("a.desktop", "Name=in bin\nExec=env %u --new\n");
    desktop("b.desktop", "Name=as given\nExec=" + here + " %F\n");
    desktop("c.desktop", "Name=nowhere\nExec=no-such-program %F\n");
    desktop("d.desktop", "Name=in terminal\nTerminal=true\nExec=env -i\n");
    EXPECT_TRUE(reload("[]"));
    EXPECT_EQ(commandOf("in bin"), "/usr/bin/env");
    EXPECT_THAT(list_.find("in bin")->args, IsEmpty());
    EXPECT_EQ(commandOf("as given"), here);
    EXPECT_EQ(commandOf("nowhere"), "no-such-program");
    EXPECT_EQ(commandOf("in terminal"), "/usr/bin/xterm");
    EXPECT_THAT(list_.find("in terminal")->args, ElementsAre("-e", "/usr/bin/env"));
}

TEST_F(ProgramListTest, AppendsTheAdministratorsProgramsInTheirOrder) {
    const Scratch::Journal journal;
    desktop("a.desktop", "Name=twice\nExec=env\n");
    EXPECT_TRUE(reload(R"([{"name":"twice","path":"/bin/sh"}, {"name":"lost","path":"/no/such"}, {"name":"pathless"},
                           {"name":"last","path":"/bin/sh","args":["-c","exit 7",""]}])"));
    EXPECT_THAT(list_.getNames(), ElementsAre("twice", "twice", "last"));
    EXPECT_EQ(commandOf("twice"), "/usr/bin/env");
    EXPECT_THAT(list_.find("last")->args, ElementsAre("-c", "exit 7", ""));
    EXPECT_EQ(list_.find("LAST"), nullptr);
    EXPECT_THAT(journal.lines(), HasSubstr("ProgramListReload: binary not found: /no/such for name: lost"));
    EXPECT_TRUE(reload("[]"));
    EXPECT_THAT(list_.getNames(), ElementsAre("twice")) << "a reload begins anew";
}

TEST_F(ProgramListTest, KeepsTheDesktopEntriesWhateverTheJsonFileHolds) {
    const Scratch::Journal journal;
    desktop("a.desktop", "Name=app\nExec=env\n");
    const std::string nested(100000, '[');
    for (const auto& text : {std::string("{\"name\":\"x\"}"), std::string("[{\"name\":"), std::string(),
                             std::string("[7]"), std::string("[{\"name\":{},\"path\":\"/bin/sh\"}]"),
                             std::string("[{\"name\":\"x\",\"path\":\"/bin/sh\",\"args\":[{}]}]"), nested}) {
        EXPECT_FALSE(reload(text)) << text.substr(0, 60);
        EXPECT_THAT(list_.getNames(), ElementsAre("app")) << text.substr(0, 60);
    }
    EXPECT_THAT(journal.lines(), HasSubstr("reload: not json array: " + (dir_.path() / "programs.json").string()));
}

TEST_F(ProgramListTest, SurvivesPathsThatAreNoFiles) {
    const Scratch::Journal journal;
    desktop("a.desktop", "Name=app\nExec=env\n");
    ASSERT_EQ(::mkfifo((dir_.path() / "fifo").c_str(), 0600), 0);
    fs::resize_file(dir_.write("sparse", "["), uintmax_t{1} << 40);
    for (const fs::path& path : {dir_.path() / "missing", dir_.path() / "fifo", dir_.path() / "sparse", dir_.path(),
                                 dir_.path() / std::string(5000, 'x')}) {
        EXPECT_FALSE(list_.reload(path, apps())) << path;
        EXPECT_THAT(list_.getNames(), ElementsAre("app")) << path;
    }
    EXPECT_THAT(journal.lines(), HasSubstr("reload: path not found: " + (dir_.path() / "missing").string()));
    EXPECT_TRUE(list_.reload(dir_.write("empty.json", "[]"), dir_.path() / "no-applications"));
    EXPECT_THAT(list_.getNames(), IsEmpty());
}

// Every byte may become three when the names are made valid text; the message that carries them is limited to 32 MB.
TEST_F(ProgramListTest, NeverOutgrowsOneBusMessage) {
    const Scratch::Journal journal;
    desktop("a.desktop", "Name=app\nExec=env\n");
    std::string json = "[";
    for (int i = 0; i < 12; ++i) {
        json += R"({"path":"/bin/sh","name":")" + std::string(1 << 20, '\xFF') + "\"},";
    }
    json.back() = ']';
    EXPECT_TRUE(reload(json));
    const auto names = list_.getNames();
    const size_t total = std::accumulate(names.begin(), names.end(), size_t{0},
                                         [](size_t sum, const std::string& name) { return sum + name.size(); });
    EXPECT_LE(total * 3, size_t{16} << 20);
    EXPECT_THAT(names, Not(IsEmpty()));
    EXPECT_EQ(names.front(), "app");
    EXPECT_THAT(journal.lines(), HasSubstr("reload: names too long together, programs dropped: 9"));
}

} // namespace
