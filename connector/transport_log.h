// What the transport says in its log.
//
// freerdp-shadow-cli tells of its state in nothing but its log. Its lines are given a fixed beginning, "<LEVEL> THREAD
// TAG " (see transport.cpp), and these are the ones that count:
//   Listening on socket PATH                the socket is there
//   Negotiated Security: NLA:1 TLS:0 RDP:0  a client speaks the protocol; it has not shown a password yet
//   client authentication failure           it was not the right one
//   Client from  is activated (...)         authenticated, and the session's screen is on its way to it
// Every client has a thread of its own, by which the lines are told apart. No text that a client chooses gets into
// these lines before it is authenticated.
#pragma once

#include <sys/types.h>
#include <string>

namespace Doors {

/// What one line tells.
struct LogEvent {
    /// Which of the lines above it is.
    enum Kind { Other, Failure, Listening, Negotiated, Refused, Activated };

    Kind kind = Other; ///< Failure: a line of level ERROR that is none of the others
    pid_t thread = 0; ///< whose line it is
    bool nla = false; ///< for Negotiated, with the next two
    bool tls = false;
    bool rdp = false;
};

/// What a line of the transport's log, without its end, tells.
LogEvent parseLogLine(const std::string& line);

} // namespace Doors
