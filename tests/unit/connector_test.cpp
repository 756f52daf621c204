// The connector's readers of foreign text, and its limits.
#include "admission.h"
#include "connection_request.h"
#include "proxy_header.h"
#include "session_info.h"
#include "transport_log.h"

#include <gmock/gmock.h>

namespace {

using namespace Doors;
using namespace std::chrono_literals;
using namespace std::string_literals;
using asio::ip::make_address;

// As clients send it: the text with its end, and what security they can do.
std::string requestWith(const std::string& text) {
    std::string packet = "\x03\0\0\0\0\xE0\0\0\0\0\0"s + text + "\x01\0\x08\0\x03\0\0\0"s;
    packet[2] = static_cast<char>(packet.size() >> 8);
    packet[3] = static_cast<char>(packet.size());
    packet[4] = static_cast<char>(packet.size() - 5);
    return packet;
}

TEST(ConnectionRequest, NamesAUserOrASessionAndNothingElse) {
    const auto cookie = requestWith("Cookie: mstshash=WORK\\alice\r\n");
    EXPECT_EQ(requestLength(cookie.substr(0, requestHeader)), cookie.size());
    EXPECT_EQ(parseConnectionRequest(cookie)->user, "WORK\\alice");
    EXPECT_EQ(parseConnectionRequest(cookie)->packet, cookie);

    const auto token = parseConnectionRequest(requestWith("vard-session=33;server=desk1\r\n"));
    EXPECT_EQ(token->session, 33U);
    EXPECT_EQ(token->packet, requestWith("")) << "the transport takes no token";
    for (const std::string text :
         {"", "vard-session=33x\r\n", "vard-session=4294967296\r\n", "Cookie: msts=1.2.0\r\n"}) {
        const auto request = parseConnectionRequest(requestWith(text));
        EXPECT_TRUE(request && request->user.empty() && !request->session) << text;
    }

    EXPECT_FALSE(parseConnectionRequest(requestWith("vard-session=3\r\nvard-session=4\r\n")));
    EXPECT_FALSE(requestLength("\x03\0\x10\x01"s)) << "4097 bytes";
    EXPECT_FALSE(requestLength("\x03\0\0\x0A"s)) << "no room for a request";
    EXPECT_FALSE(requestLength("GET "));
    auto data = cookie;
    data[5] = '\xF0';
    EXPECT_FALSE(parseConnectionRequest(data));
    data = cookie;
    data[4] = '\x10';
    EXPECT_FALSE(parseConnectionRequest(data)) << "two lengths";
}

TEST(UserMatch, TheBetterOneCounts) {
    EXPECT_EQ(matchUser("alice", "alice"), UserMatch::Exact);
    EXPECT_EQ(matchUser("WORK\\Alice", "alice"), UserMatch::Plain);
    EXPECT_EQ(matchUser("alice", "alice@work.example"), UserMatch::Plain);
    EXPECT_EQ(matchUser("alexander", "alexandersson"), UserMatch::Cut);
    EXPECT_EQ(matchUser("WORK\\alic", "alice"), UserMatch::Cut);
    for (const std::string other : {"alexande", "alexandra", "SOMEWORK\\", "@work", ""}) {
        EXPECT_EQ(matchUser(other, "alexandersson"), UserMatch::None) << other;
    }
}

TEST(ProxyHeader, TellsTheClientOrTheBalancer) {
    const auto begin = "\r\n\r\n\0\r\nQUIT\n"s;
    const auto four = begin + "\x21\x11\0\x0C\x0A\x01\x02\x03\xC0\0\x02\x01\x12\x34\x0D\x3D"s;
    const auto own = make_address("192.0.2.1");
    EXPECT_EQ(proxyHeaderLength(four.substr(0, proxyHeaderBegin)), four.size());
    EXPECT_EQ(proxiedAddress(four, own), make_address("10.1.2.3"));
    const auto six = begin + "\x21\x21\0\x24"s + "\x20\x01\x0D\xB8"s + std::string(31, '\0') + "\x01";
    EXPECT_EQ(proxiedAddress(six, own), make_address("2001:db8::"));
    EXPECT_EQ(proxiedAddress(begin + "\x20\0\0\0"s, own), own) << "a check of the balancer's";
    EXPECT_FALSE(proxiedAddress(begin + "\x21\x11\0\0"s, own)) << "without the address";
    EXPECT_FALSE(proxiedAddress(begin + "\x21\x31\0\0"s, own)) << "a UNIX socket";
    EXPECT_FALSE(proxyHeaderLength(begin + "\x21\x11\xFF\xFF"s));
    EXPECT_FALSE(proxyHeaderLength("PROXY TCP4 10.1.2.3 "));
}

TEST(Network, ContainsWhatBeginsAlike) {
    EXPECT_TRUE(Network::parse("192.0.2.128/25")->contains(make_address("::ffff:192.0.2.129")));
    EXPECT_FALSE(Network::parse("192.0.2.128/25")->contains(make_address("192.0.2.1")));
    EXPECT_FALSE(Network::parse("192.0.2.1")->contains(make_address("192.0.2.2")));
    EXPECT_TRUE(Network::parse("2001:db8::/33")->contains(make_address("2001:db8:7fff::")));
    EXPECT_FALSE(Network::parse("2001:db8::/33")->contains(make_address("2001:db8:8000::")));
    for (const std::string wrong : {"", "desk1", "192.0.2.0/33", "192.0.2.0/", "192.0.2.0/-1", "::/129"}) {
        EXPECT_FALSE(Network::parse(wrong)) << wrong;
    }
    EXPECT_EQ(parseEndpoint("[::1]:3390"), Tcp::endpoint(make_address("::1"), 3390));
    for (const std::string wrong : {"3389", "::1:3389", "[192.0.2.1]:3389", "desk1:3389", "192.0.2.1:0", ":65536"}) {
        EXPECT_FALSE(parseEndpoint(wrong)) << wrong;
    }
}

TEST(Crowd, TheOldestOfTheGreatestCrowdGoes) {
    Crowd crowd(2, 4);
    std::map<int, Crowd::Place> places;
    std::vector<int> left;
    const auto enter = [&](int who, const char* from) {
        places[who] = crowd.enter(make_address(from), [&, who] {
            left.push_back(who);
            places.erase(who);
        });
    };
    enter(1, "10.0.0.1");
    enter(2, "2001:db8::1");
    enter(3, "2001:db8::ffff:1");
    enter(4, "10.0.0.2");
    enter(5, "10.0.0.3");
    EXPECT_THAT(left, testing::ElementsAre(2)) << "two of one household are the most";
    enter(6, "127.0.0.2");
    EXPECT_THAT(left, testing::ElementsAre(2, 1)) << "among equals the oldest";
    enter(7, "::1");
    enter(8, "::ffff:127.0.0.1");
    EXPECT_THAT(left, testing::ElementsAre(2, 1, 3, 6)) << "this machine is one neighbour, and has two";
    places.clear();
    EXPECT_EQ(crowd.size(), 0U);
}

TEST(Arrivals, OneNeighboursFloodCostsTheOthersNothing) {
    Arrivals arrivals(2, 100);
    const auto start = Arrivals::Clock::time_point(1h);
    const auto from = make_address("10.0.0.1");
    size_t admitted = 0;
    for (int i = 0; i < 1000; ++i) {
        admitted += arrivals.admit(from, start) ? 1U : 0U;
    }
    EXPECT_EQ(admitted, 6U) << "of three seconds";
    EXPECT_TRUE(arrivals.admit(make_address("10.0.0.2"), start));
    EXPECT_FALSE(arrivals.admit(from, start + 400ms));
    EXPECT_TRUE(arrivals.admit(from, start + 600ms));
    for (unsigned i = 0; i < 1000; ++i) {
        admitted += arrivals.admit(asio::ip::address_v4(0x0A010000U + i), start + 600ms) ? 1U : 0U;
    }
    EXPECT_EQ(admitted, 6U + 299U) << "all together, with the one before";
}

TEST(TransportLog, OnlyALineOfTheTransportsOwnCounts) {
    const auto refused = parseLogLine("<ERROR> 7 com.freerdp.core.transport client authentication failure");
    EXPECT_EQ(refused.kind, LogEvent::Refused);
    EXPECT_EQ(refused.thread, 7);
    EXPECT_EQ(parseLogLine("<ERROR> 7 com.freerdp.server.shadow.x11 failed to open display: :33").kind,
              LogEvent::Failure);
    const std::string activated = "Client from  is activated (640x480@32)";
    EXPECT_EQ(parseLogLine("<INFO> 81 com.freerdp.client.shadow " + activated).kind, LogEvent::Activated);
    // A client chooses its name.
    for (const std::string before :
         {"<INFO> 8 com.freerdp.core.connection ", "", "<INFO> 8 com.freerdp.client.shadow x ",
          "<INFO> 99999999999 com.freerdp.client.shadow "}) {
        EXPECT_EQ(parseLogLine(before + activated).kind, LogEvent::Other) << before;
    }
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
