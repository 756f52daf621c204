// The X server's command line, and how a request finds its mode and a window its size.
#include "server_arguments.h"

#include "screen_mode.h"
#include "window_fitting.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace Vard;

TEST(XServer, ArgumentsAreFilledIn) {
    EXPECT_EQ(serverArguments({"%{display}x%{display}", "%{width}x%{height}x%{depth}"}, 40, 16, 800, 600, ""),
              (std::list<std::string>{"40x40", "800x600x16"}));
    EXPECT_THROW(serverArguments({"%{authfile}"}, 1, 24, 1, 1, "/x/%{authfile}"), std::invalid_argument);
    EXPECT_EQ(validDepth(16), 16U);
    EXPECT_EQ(validDepth(32), 24U) << "a depth that no server is started with";
}

TEST(ScreenMode, RequestGetsTheLargestAboveItOrItself) {
    const std::vector<Xcb::ScreenSize> sizes{{800, 600, 0, 0}, {1920, 1080, 0, 0}, {1080, 1920, 0, 0}};
    EXPECT_EQ(chooseScreenMode(sizes, {1366, 768}), (ScreenMode{1920, 1080})) << "of equals the first";
    EXPECT_EQ(chooseScreenMode({}, {100, 100}), (ScreenMode{100, 100}));
    EXPECT_EQ(chooseScreenMode({{640, 480, 0, 0}}, {480, 640}), (ScreenMode{480, 640})) << "an equal area is not above";
    EXPECT_EQ(chooseScreenMode(sizes, {65535, 65535}), (ScreenMode{65535, 65535}));
}

TEST(WindowFitting, ApplicationsOwnWindowsFillTheScreen) {
    WindowTraits traits;
    traits.hasClass = true;
    EXPECT_FALSE(fillsScreen(traits)) << "a class alone says nothing";
    for (auto field : {&WindowTraits::hasState, &WindowTraits::hasRole, &WindowTraits::ownLeader}) {
        WindowTraits own = traits;
        own.*field = true;
        EXPECT_TRUE(fillsScreen(own));
        own.instance = "fly-notifications";
        EXPECT_FALSE(fillsScreen(own));
    }
    traits.hasIcon = true;
    EXPECT_FALSE(fillsScreen(traits));
    traits.instance = "libreoffice";
    EXPECT_TRUE(fillsScreen(traits));
}

} // namespace
