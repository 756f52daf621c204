// vardctl: the administrators' command.
#include "commands.h"
#include "service.h"
#include "terminal_text.h"

#include <exception>
#include <iostream>

using namespace Vardctl;

namespace {

// A refused caller wants to read what he asked for, not which of its calls was refused.
void carryOut(const Invocation& invocation) {
    try {
        invocation.command(invocation.options);
    } catch (const BusClient::Error& error) {
        throw busFailure(error, invocation.name);
    }
}

void perform(int argc, char** argv) {
    const auto invocation = parseCommandLine(argc, argv);
    if (invocation.command != nullptr) {
        carryOut(invocation);
    }
    std::cout.flush();
    if (!std::cout) {
        throw Failure(ExitCode::failed, "the output cannot be written");
    }
}

int fail(ExitCode code, const char* message) {
    std::cerr << "vardctl: " << harmless(message) << '\n';
    return static_cast<int>(code);
}

} // namespace

int main(int argc, char** argv) {
    useUtf8();
    try {
        perform(argc, argv);
        return static_cast<int>(ExitCode::done);
    } catch (const Failure& failure) {
        return fail(failure.code(), failure.what());
    } catch (const std::exception& failure) {
        return fail(ExitCode::failed, failure.what());
    }
}
