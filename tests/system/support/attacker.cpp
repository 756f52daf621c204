// What an ordinary account can do to its machine, and what others notice of it.
#include "attacker.h"

#include <algorithm>
#include <cstdio>

namespace Test {

using namespace std::chrono_literals;

namespace {

constexpr double stopLimit = 13; // seconds
constexpr double loadSlack = 0.3;
constexpr const char* tools = "/usr/local/bin/";

// A user namespace of one's own may mount a file system in user space; its server answers the first message alone.
// Whoever waits for an answer to one that was read waits beyond SIGKILL.
constexpr const char* hangingServer = R"pl(
my ($uid, $gid) = ($<, $( + 0);
syscall(272, 0x10000000 | 0x20000) == 0 or die "unshare: $!";
for (["setgroups", "deny"], ["uid_map", "0 $uid 1"], ["gid_map", "0 $gid 1"]) {
    open(my $file, ">", "/proc/self/$_->[0]") or die "$_->[0]: $!";
    syswrite($file, $_->[1]) or die "$_->[0]: $!";
}
open(my $device, "+<", "/dev/fuse") or die "fuse: $!";
my ($none, $place, $type) = ("none", "/mnt", "fuse");
my $options = "fd=" . fileno($device) . ",rootmode=40000,user_id=0,group_id=0";
syscall(165, $none, $place, $type, 0, $options) == 0 or die "mount: $!";
unlink $ARGV[0];
symlink("/proc/$$/root/mnt", $ARGV[0]) or die "symlink: $!";
for (;;) {
    sysread($device, my $message, 200000) or next;
    my ($length, $code, $id) = unpack("LLQ", $message);
    my $answer = pack("LLLLSSLL", 7, 31, 65536, 0, 16, 12, 4096, 1) . ("\0" x 36);
    syswrite($device, pack("LlQ", 16 + length($answer), 0, $id) . $answer) if $code == 26;
}
)pl";

constexpr const char* squatter = R"pl(
use Socket;
my ($first, $last, $abstract, $listening) = @ARGV;
my @held;
for ($first .. $last) {
    socket(my $socket, AF_UNIX, SOCK_STREAM, 0);
    my $path = "/tmp/.X11-unix/X$_";
    bind($socket, $abstract ? pack("S", 1) . "\0$path" : sockaddr_un($path)) or warn "$path: $!";
    listen($socket, 5) if $listening;
    push @held, $socket;
}
sleep 100000;
)pl";

} // namespace

double timed(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void figure(const std::string& what, double value) {
    std::printf("FIGURE %s: %.3f\n", what.c_str(), value);
    std::fflush(stdout);
}

void expectAtMost(const std::string& what, double value, double limit) {
    figure(what, value);
    EXPECT_LE(value, limit) << what;
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.at(values.size() / 2);
}

Bystander::Bystander()
    : thread_([this] {
          Bus bus;
          while (!stop_) {
              const double wait = timed([&] { bus.call("vardStatus"); });
              longest_ = std::max(longest_.load(), wait);
              ++calls_;
              std::this_thread::sleep_for(10ms);
          }
      }) {}

Bystander::~Bystander() {
    stop_ = true;
    thread_.join();
}

double Bystander::longest() {
    waitUntil([this, waiting = calls_ + 1] { return calls_ > waiting; }); // also the call that waits just now
    return longest_.exchange(0);
}

int attackAs(const Account& account, const std::string& command) {
    return launch("runuser -u " + account.name() + " -- bash -c '" + command + "'");
}

void hangFiles(const Account& account, const std::string& path) {
    const auto link = account.home() + "/" + path;
    writeFile("/tmp/hanging.pl", hangingServer);
    mustRun("rm -rf " + link);
    attackAs(account, "exec perl /tmp/hanging.pl " + link);
    if (!waitUntil([&] { return exists(link); }, 10s)) {
        throw std::runtime_error("no file system of a user's own");
    }
}

AttackTest::AttackTest() {
    shell("rm -rf /tmp/.tX*-lock /tmp/.X*-lock.* /tmp/attack*"); // of an attack before
    writeFile("/tmp/squatter.pl", squatter);
}

void AttackTest::startWith(std::map<std::string, Json::Value> own) {
    own.try_emplace("hash:path", program("usual-hash", "", "echo a-line-of-a-hash"));
    own.try_emplace("session:path", program("usual-desktop", "", "exec sleep 12345"));
    start(testConfig(own));
}

std::string AttackTest::program(const std::string& name, const std::string& body, const std::string& rest) {
    const std::string path = tools + name;
    writeFile(path, "#!/bin/bash\nif [ \"${PAM_USER-$USER}\" = mallory ]; then\n:\n" + body + "\nfi\n" + rest + "\n",
              0755);
    return path;
}

void AttackTest::squat(int first, int last, bool abstract, bool listening) const {
    const auto word = [](int number) { return " " + std::to_string(number); };
    const auto name = (abstract ? "@/tmp/.X11-unix/X" : " /tmp/.X11-unix/X") + std::to_string(last);
    attackAs(mallory, "exec perl /tmp/squatter.pl" + word(first) + word(last) + word(abstract) + word(listening));
    if (!waitUntil([&] { return shell("grep -c '" + name + "$' /proc/net/unix").text != "0\n"; }, 10s)) {
        throw std::runtime_error("mallory could not bind: " + name);
    }
}

std::vector<std::unique_ptr<Account>> AttackTest::people(int count) {
    std::vector<std::unique_ptr<Account>> users;
    for (int i = 0; i < count; ++i) {
        users.push_back(std::make_unique<Account>("user" + std::to_string(i)));
    }
    return users;
}

std::vector<double> AttackTest::logins(const std::vector<std::unique_ptr<Account>>& users, const char* what) {
    std::vector<double> times;
    std::vector<int64_t> sessions;
    for (const auto& user : users) {
        const double time = timed([&] { sessions.push_back(bus.login(user->name())); });
        times.push_back(sessions.back() > 0 ? time : -1);
    }
    for (const auto sid : sessions) {
        bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(sid));
    }
    for (const auto sid : sessions) {
        untilEnded(static_cast<uint32_t>(sid), 30s);
    }
    figure(std::string(what) + ", logins that failed", static_cast<double>(std::ranges::count(times, -1)));
    figure(std::string(what) + ", median", median(times));
    figure(std::string(what) + ", slowest", *std::ranges::max_element(times));
    return times;
}

void AttackTest::expectUndelayed(const std::vector<double>& times, double alone) {
    for (const double time : times) {
        EXPECT_GT(time, 0) << "failed";
        EXPECT_LT(time, 2 * alone + loadSlack);
    }
}

double AttackTest::untilGone(const std::string& user, std::chrono::seconds limit, const std::string& text) {
    return timed([&] { waitUntil([&] { return processes(text, user).empty(); }, limit); });
}

double AttackTest::untilEnded(uint32_t sid, std::chrono::seconds limit) {
    const auto found = [&] {
        const auto rows = bus.call("vardSessions").rows;
        return std::ranges::any_of(rows, [&](const auto& row) { return row.at(1) == std::to_string(sid); });
    };
    return timed([&] { waitUntil([&] { return !found(); }, limit); });
}

void AttackTest::expectRestart() {
    const double took = timed([&] { EXPECT_LT(service->stop(), 128) << "not by a signal"; });
    expectAtMost("the stop took", took, stopLimit);
    const bool free = !bus.owned();
    figure("the bus name was free after the end", free);
    ASSERT_TRUE(free);
    start();
    EXPECT_GT(bus.login("alice"), 0);
}

} // namespace Test
