// Columns for people and for scripts.
#include "table.h"
#include "text.h"

#include <gtest/gtest.h>

namespace {

using namespace Vardctl;

TEST(VardctlTable, AlignsColumnsAndKeepsThemCountable) {
    ASSERT_TRUE(useUtf8());
    Table table({{"ID", Table::Align::right}, {"USER"}, {"COMMAND"}});
    table.add({"7", "Имя", "/usr/bin/a b"});
    table.add({"1234", "", "x\ny"});
    table.add({"5", "two words", ""});
    EXPECT_EQ(table.layout(true),
              "  ID USER         COMMAND\n"
              "   7 Имя          /usr/bin/a b\n"
              "1234 -            x\\ny\n"
              "   5 two\\x20words -\n");
    EXPECT_FALSE(table.layout(false).starts_with("  ID"));
}

} // namespace
