// What an ordinary account can do to its machine, and what others notice of it.
#include "attacker.h"

#include <algorithm>

namespace Test {

using namespace std::chrono_literals;

namespace {

constexpr double stopLimit = 13; // seconds
constexpr double loadSlack = 0.4;
constexpr auto forever = 30s;

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
    const std::string path = "/usr/local/bin/" + name;
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

std::vector<double> AttackTest::logins() {
    while (people.size() < 5) {
        people.push_back(std::make_unique<Account>("user" + std::to_string(people.size())));
    }
    std::vector<double> times;
    std::vector<int64_t> sessions;
    for (const auto& user : people) {
        times.push_back(timed([&] { sessions.push_back(bus.login(user->name())); }));
        EXPECT_GT(sessions.back(), 0) << user->name();
    }
    for (const auto sid : sessions) {
        bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(sid));
    }
    std::ranges::for_each(sessions, [this](int64_t sid) { untilEnded(sid); });
    std::ranges::nth_element(times, times.begin() + std::ssize(times) / 2);
    std::swap(times.front(), times[times.size() / 2]);
    return times;
}

void AttackTest::expectUndelayed(const std::vector<double>& before) {
    EXPECT_LT(std::ranges::max(logins()), 2 * before.front() + loadSlack);
}

double AttackTest::untilGone(const std::string& user, const std::string& text) {
    return timed([&] { waitUntil([&] { return processes(text, user).empty(); }, forever); });
}

double AttackTest::untilEnded(int64_t sid) {
    return timed([&] { waitUntil([&] { return bus.session(static_cast<uint32_t>(sid)) == "{}"; }, forever); });
}

void AttackTest::expectRestart() {
    EXPECT_LE(timed([&] { service->stop(); }), stopLimit);
    ASSERT_FALSE(bus.owned());
    start();
    EXPECT_GT(bus.login("alice"), 0);
}

} // namespace Test
