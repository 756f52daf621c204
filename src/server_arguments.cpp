// The X server's command line.
#include "server_arguments.h"

#include "logger.h"
#include "text.h"

namespace fs = std::filesystem;

namespace Vard {

namespace {

const std::list<std::string> builtInArguments{
    ":%{display}", "-nolisten",  "tcp",    "-logfile",   "/dev/null",  "-auth",      "%{authfile}",
    "-config",     "vard.conf",  "-depth", "%{depth}",   "+extension", "DAMAGE",     "+extension",
    "MIT-SHM",     "+extension", "RANDR",  "+extension", "XFIXES",     "+extension", "XTEST"};

std::string fill(std::string word, unsigned display, unsigned depth, unsigned width, unsigned height,
                 const fs::path& authfile) {
    word = Utils::stringReplace(word, "%{display}", std::to_string(display));
    word = Utils::stringReplace(word, "%{depth}", std::to_string(depth));
    word = Utils::stringReplace(word, "%{width}", std::to_string(width));
    word = Utils::stringReplace(word, "%{height}", std::to_string(height));
    return Utils::stringReplace(word, "%{authfile}", authfile.string());
}

} // namespace

unsigned validDepth(unsigned char depth) {
    if (depth == 16 || depth == 24) {
        return depth;
    }
    Syslog::warning("%s: unknown depth: %u", "runXvfbDisplay", depth);
    return 24;
}

std::list<std::string> serverArguments(const std::list<std::string>& templates, unsigned display, unsigned depth,
                                       unsigned short width, unsigned short height, const fs::path& authfile) {
    std::list<std::string> args;
    for (const auto& word : templates.empty() ? builtInArguments : templates) {
        args.push_back(fill(word, display, depth, width, height, authfile));
    }
    return args;
}

} // namespace Vard
