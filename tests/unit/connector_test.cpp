// The connector's readers of foreign text: the transport's log, the kernel's connections, hash lines.
#include "session_info.h"
#include "tcp_peers.h"
#include "transport_log.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace Doors;
using testing::ElementsAre;

TEST(TransportLog, OnlyALineOfTheTransportsOwnCounts) {
    EXPECT_EQ(plainAddress("::ffff:10.1.2.3"), "10.1.2.3");
    EXPECT_EQ(plainAddress("fe80::1%eth0"), "fe80::1");
    EXPECT_EQ(plainAddress({"10.1.2.3\0.", 10}), "") << "the system's own reader stops at the NUL";
    EXPECT_EQ(parseLogLine("<ERROR> 7 com.freerdp.server.shadow.x11 failed to open display: :33").kind,
              LogEvent::Failure);
    const std::string activated = "Client from 10.1.2.3 is activated (640x480@32)";
    EXPECT_EQ(parseLogLine("<INFO> 81 com.freerdp.client.shadow " + activated).kind, LogEvent::Activated);
    // A client chooses its name.
    for (const std::string before :
         {"<INFO> 8 com.freerdp.core.connection ", "", "<INFO> 8 com.freerdp.client.shadow x ",
          "<INFO> 99999999999 com.freerdp.client.shadow "}) {
        EXPECT_EQ(parseLogLine(before + activated).kind, LogEvent::Other) << before;
    }
}

TEST(TcpPeers, FindsTheConnectionsOfThePortOnly) {
    // Listening on 3389; connected there; closed there a moment ago; a connection to such a port elsewhere.
    std::istringstream four(
        "  sl  local_address rem_address   st tx_queue\n"
        "   0: 0100007F:0D3D 00000000:0000 0A 00000000:00000000\n"
        "   1: 0100007F:0D3D 0200000A:D880 01 00000000:00000000\n"
        "   2: 0100007F:0D3D 0300000A:D880 06 00000000:00000000\n"
        "   3: 0100007F:D880 0400000A:0D3D 01 00000000:00000000\n");
    EXPECT_THAT(tcpPeers(four, 3389), ElementsAre("10.0.0.2", "10.0.0.3"));
    std::istringstream six(
        "   1: 0000000000000000FFFF00000100007F:0D3D 0000000000000000FFFF00000500000A:D880 01 0\n"
        "   2: 00000000000000000000000000000000:0D3D B80D0120000000000000000001000000:D880 01 0\n");
    EXPECT_THAT(tcpPeers(six, 3389), ElementsAre("10.0.0.5", "2001:db8::1"));
}

TEST(SessionInfo, HashLinesAreTheUsersOwnAndWhole) {
    const std::string hash = "878d8014606cda29677a44efa1353fc7:::";
    EXPECT_TRUE(validHashLine("alice:DOM::" + hash, "alice"));
    for (const auto& line : {"bob:::" + hash, "alice2:::" + hash, "alice:::" + hash + ("\nbob:::" + hash),
                             std::string("alice:::878d:::"), "alice:" + std::string(600, 'D') + ("::" + hash)}) {
        EXPECT_FALSE(validHashLine(line, "alice")) << line;
    }
    EXPECT_FALSE(validHashLine(":::" + hash, ""));
}

} // namespace
