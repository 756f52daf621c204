// The X server's command line, and how a request finds its mode and a window its size.
#include "x_server.h"
#include "screen_mode.h"
#include "window_fitting.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace Vard;

TEST(XServer, BuiltInArgumentsAreFilledIn) {
    const auto args = serverArguments({}, 33, 24, 1280, 1024, "/run/vard/xauth_33");
    const std::list<std::string> expected{
        ":33",     "-nolisten",  "tcp",    "-logfile",   "/dev/null",  "-auth",      "/run/vard/xauth_33",
        "-config", "vard.conf",  "-depth", "24",         "+extension", "DAMAGE",     "+extension",
        "MIT-SHM", "+extension", "RANDR",  "+extension", "XFIXES",     "+extension", "XTEST"};
    EXPECT_EQ(args, expected);
    EXPECT_EQ(serverArguments({"%{display}x%{display}", "%{width}x%{height}x%{depth}"}, 40, 16, 800, 600, ""),
              (std::list<std::string>{"40x40", "800x600x16"}));
    EXPECT_THROW(serverArguments({"%{authfile}"}, 1, 24, 1, 1, "/x/%{authfile}"), std::invalid_argument);
}

TEST(XServer, OnlyTwoDepthsAreStarted) {
    EXPECT_EQ(validDepth(16), 16U);
    EXPECT_EQ(validDepth(24), 24U);
    for (const int depth : {0, 8, 15, 32, 255}) {
        EXPECT_EQ(validDepth(static_cast<unsigned char>(depth)), 24U);
    }
}

TEST(ScreenMode, RequestGetsItselfOrTheLargestAboveIt) {
    const std::vector<Xcb::ScreenSize> sizes{
        {800, 600, 0, 0}, {1280, 1024, 0, 0}, {1920, 1080, 0, 0}, {1080, 1920, 0, 0}};
    EXPECT_EQ(chooseScreenMode(sizes, {1280, 1024}), (ScreenMode{1280, 1024}));
    EXPECT_EQ(chooseScreenMode(sizes, {1366, 768}), (ScreenMode{1920, 1080})) << "of equals the first";
    EXPECT_EQ(chooseScreenMode(sizes, {2560, 1600}), (ScreenMode{2560, 1600}));
    EXPECT_EQ(chooseScreenMode({}, {100, 100}), (ScreenMode{100, 100}));
    EXPECT_EQ(chooseScreenMode({{640, 480, 0, 0}}, {320, 200}), (ScreenMode{640, 480}));
    EXPECT_EQ(chooseScreenMode({{640, 480, 0, 0}}, {480, 640}), (ScreenMode{480, 640})) << "an equal area is not above";
    EXPECT_EQ(chooseScreenMode(sizes, {65535, 65535}), (ScreenMode{65535, 65535}));
}

TEST(WindowFitting, ApplicationsOwnWindowsFillTheScreen) {
    WindowTraits traits;
    EXPECT_FALSE(fillsScreen(traits));
    traits.hasClass = true;
    EXPECT_FALSE(fillsScreen(traits)) << "a class alone says nothing";
    traits.hasIcon = true;
    traits.instance = "gimp";
    EXPECT_FALSE(fillsScreen(traits));
    traits.instance = "libreoffice";
    EXPECT_TRUE(fillsScreen(traits));
    traits.hasIcon = false;
    for (auto field : {&WindowTraits::hasState, &WindowTraits::hasRole, &WindowTraits::ownLeader}) {
        WindowTraits own = traits;
        own.*field = true;
        EXPECT_TRUE(fillsScreen(own));
        own.instance = "fly-notifications";
        EXPECT_FALSE(fillsScreen(own));
    }
}

} // namespace
