// The throw-away machine that a system test runs on: commands, files, accounts.
#include "machine.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace Test {

void requireSandbox() {
    if (::geteuid() != 0 || std::getenv("VARD_SANDBOX") == nullptr) {
        throw std::runtime_error("this test changes the machine: run it as root in scripts/sandbox");
    }
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

Output shell(const std::string& command) {
    Output output;
    FILE* pipe = ::popen(("exec 2>&1; " + command).c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("popen");
    }
    std::array<char, 4096> block{};
    for (size_t count = 0; (count = std::fread(block.data(), 1, block.size(), pipe)) > 0;) {
        output.text.append(block.data(), count);
    }
    const int status = ::pclose(pipe);
    output.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return output;
}

std::string mustRun(const std::string& command) {
    auto output = shell(command);
    if (output.status != 0) {
        throw std::runtime_error(command + ": " + output.text);
    }
    return output.text;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& text, unsigned mode) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    ::chmod(path.c_str(), static_cast<mode_t>(mode));
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

int launch(const std::string& command) { return std::stoi(mustRun(command + " >/dev/null 2>&1 & echo $!")); }

std::vector<int> processes(const std::string& text, const std::string& user) {
    const std::string owner = user.empty() ? "-A" : "-u " + user;
    std::istringstream lines(
        shell("ps " + owner + " -o pid=,stat=,args= -ww | grep -v -e '^ *[0-9]* Z' -e 'ps -'").text);
    std::vector<int> pids;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(text) != std::string::npos) {
            pids.push_back(std::stoi(line));
        }
    }
    return pids;
}

// A sanitizer's allocator has no heap of that name; what it has stands between its shadows, which are large.
bool inMemory(int pid, const std::string& text) {
    constexpr size_t largest = 64 << 20;
    const std::string process = "/proc/" + std::to_string(pid);
    std::istringstream ranges(
        shell("grep -F '[heap]' " + process + "/maps || grep 'rw-p .* 0 *$' " + process + "/maps").text);
    std::ifstream memory(process + "/mem");
    for (std::string range; std::getline(ranges, range);) {
        const size_t begin = std::stoul(range, nullptr, 16);
        const size_t size = std::stoul(range.substr(range.find('-') + 1), nullptr, 16) - begin;
        std::string bytes(size <= largest ? size : 0, '\0');
        if (!memory.seekg(static_cast<std::streamoff>(begin)).read(bytes.data(), std::ssize(bytes))) {
            throw std::runtime_error(process + "/mem");
        }
        if (bytes.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::vector<int> childrenOf(int pid) {
    std::istringstream list(shell("cat /proc/" + std::to_string(pid) + "/task/*/children").text);
    return {std::istream_iterator<int>(list), {}};
}

Account::Account(std::string name, const std::string& password) : name_(std::move(name)) {
    requireSandbox();
    mustRun("useradd --create-home --shell /bin/bash --comment 'Test Person' " + name_);
    mustRun("printf '%s:%s' " + name_ + " '" + password + "' | chpasswd");
    uid_ = ::getpwnam(name_.c_str())->pw_uid;
}

Account::~Account() {
    waitUntil([&] {
        shell("pkill -KILL -u " + name_); // the machine is the test's own
        return processes("", name_).empty();
    });
    shell("userdel --remove --force " + name_ + "; rm -rf /run/user/" + std::to_string(uid_));
}

std::string Account::script(const std::string& file, const std::string& body) const {
    std::string path = home() + "/" + file;
    writeFile(path, "#!/bin/bash\n" + body + "\n", 0755);
    return path;
}

} // namespace Test
