// A stand-in for the transport program: no screen, but bytes.
#pragma once

namespace StandIn {

/// What a client sends after the first packet: its orders, a byte each.
enum Order : char {
    Echo = 'e', ///< it is served, and gets back whatever it sends
    Flow = 'f', ///< it is served, and gets bytes as fast as they go
};

/// True for the command line of a transport program.
bool wanted(int argc, char** argv);
/// Listens where that says ("/ipc-socket:PATH" or "/port:NUMBER"), and serves until it is killed.
int run(char** argv);

} // namespace StandIn
