// The sockets' private place, against the user who reaches it through his own server.
#include "socket_nest.h"

#include "scratch.h"

#include <memory>

namespace {

using namespace Vard;
namespace fs = std::filesystem;

class Nests : public Scratch::Machine {
protected:
    Nests() { fs::permissions(dir_.path(), fs::perms::all | fs::perms::sticky_bit); }
    Scratch::Directory dir_;
    fs::path socket_ = dir_.path() / "X33";
};

TEST_F(Nests, SecondTryPublishesAndNothingIsLeftBehind) {
    auto nest = std::make_unique<SocketNest>(socket_);
    ASSERT_TRUE(nest->valid());
    Scratch::run("touch " + nest->socket().string() + "; mkdir " + socket_.string());
    EXPECT_FALSE(nest->publish()) << "a directory stands there";
    fs::remove(socket_);
    EXPECT_TRUE(nest->publish());
    const std::string planted = (nest->directory() / "a/b/c/d/e").string();
    Scratch::run("mkdir -p " + planted + "; touch " + planted + "/f; ln -s /etc " + planted + "/link; chown -hR 1 " +
                 nest->directory().string() + "/a");
    nest.reset();
    fs::remove(socket_);
    EXPECT_TRUE(fs::is_empty(dir_.path()));
    EXPECT_TRUE(fs::exists("/etc/passwd"));
}

TEST_F(Nests, NoneWhereOthersMayRename) {
    fs::permissions(dir_.path(), fs::perms::all);
    EXPECT_FALSE(SocketNest(socket_).valid());
}

} // namespace
