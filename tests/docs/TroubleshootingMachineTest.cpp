/// The rows of docs/TROUBLESHOOTING.md whose cause is the machine: it lacks a folder, room, a thread or its
/// loopback interface. Each in mounts or a network of its own.

#include "tests/docs/TroubleshootingPage.h"
#include "tests/sandbox/Processes.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/SharedTable.h"
#include "tests/support/ShellScript.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace {

using namespace ZNORBTEST;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string started = "The ZN Orbisan daemon has started.\n";
const std::string stopped = "The ZN Orbisan daemon has stopped.\n";

/// A machine that lacks something, and what gives it back, both in the shell's words.
struct Lack {
    std::string what;
    std::string make;
    std::string mend;
};

class TroubledMachine : public Troubleshooting {
protected:
    void SetUp() override {
        const bool isAlone = currentSandboxMode() == SandboxMode::Isolated; // no other's daemon in sight
        if (!isAlone || runProgram(shellScript("", "unshare --mount --net true")).end != exitedWith(0)) {
            GTEST_SKIP() << "no namespaces here";
        }
    }

    /// The cure by a remount; where that is an ordinary user's namespace, which forbids it, the same without.
    static std::string remount(const std::string& cure) {
        const std::string attempt = "mount -t tmpfs tmpfs /mnt; mount -o remount,rw /mnt";
        const bool isAllowed =
            runProgram(shellScript("", "unshare --mount sh -ec '" + attempt + "'")).end == exitedWith(0);
        return isAllowed ? cure : "umount " + cure.substr(cure.rfind(' ') + 1);
    }

    /// In mounts and a network of its own, with `await` for znorb-wait that looks for this installation.
    Launch launchWith(const Lack& lack, const std::string& script) const {
        const std::string tools = "cage=\nawait() { znorb-wait -e " + driver.program() + "; }\n";
        const Launch inner =
            shellScript(driver.directory() + ":" ZNORB_PROGRAM_DIRECTORY, tools + lack.make + "\n" + script);
        Launch launch = shellScript("", R"(exec unshare --mount --net -- sh "$@")");
        launch.arguments.emplace_back("sh");
        launch.arguments.insert(launch.arguments.end(), inner.arguments.begin(), inner.arguments.end());
        return launch;
    }

    /// `-d` says that the daemon has started, and nobody runs; when mended, it starts and stops.
    void expectTheSymptomAndItsEnd(const Lack& lack) const {
        const ProgramResult result =
            runProgram(launchWith(lack, "$cage znorbresponder -d\n"
                                        "await || echo $?\n" +
                                            lack.mend +
                                            "\n$cage znorbresponder -d\n"
                                            "await\n"
                                            "$cage znorbresponder -stop || echo $?"));
        EXPECT_EQ(result.output, started + "2\n" + started + stopped + "255\n");
        EXPECT_EQ(result.errors, "znorb-wait: the responder does not run\n");
        EXPECT_THAT(daemons(), IsEmpty());
    }

    /// Byte for byte, but for the carriage returns.
    void expectTestModeToSay(const Lack& lack, const std::string& text) const {
        Launch launch = launchWith(lack, "exec $cage znorbresponder -test");
        launch.withInput = true;
        ChildProcess tester(launch);
        const std::string lines = std::regex_replace(text, std::regex("\n"), "\r\n");
        EXPECT_TRUE(tester.waitForOutput(lines)) << tester.output() << tester.errors();
        EXPECT_TRUE(tester.writeInput("q\n"));
        EXPECT_EQ(tester.waitForEnd(), exitedWith(255));
        EXPECT_EQ(tester.output(), lines);
    }

    void expectOfEach(const TroubleshootingRow& it, const std::vector<Lack>& lacks) const {
        for (const Lack& lack : lacks) {
            SCOPED_TRACE(lack.what);
            EXPECT_THAT(it.cause, HasSubstr(lack.what));
            expectTheSymptomAndItsEnd(lack);
            expectTestModeToSay(lack, it.shown);
        }
    }
};

TEST_F(TroubledMachine, NoTable) {
    const TroubleshootingRow it =
        row(R"(No daemon starts, and `-test` says "Unable to get to shared global variables")");
    expectOfEach(it, {{"`/dev/shm` is missing",
                       "mount -t tmpfs tmpfs /mnt\n: >/mnt/null\nmount --bind /dev/null /mnt/null\n"
                       "mount --rbind /mnt /dev",
                       quoted(it.cure, 0)},
                      {"read-only", "mount -t tmpfs -o ro tmpfs /dev/shm", remount(quoted(it.cure, 1))},
                      {"no inodes left", "mount -t tmpfs -o nr_inodes=1 tmpfs /dev/shm",
                       remount(quoted(it.cure, 2))}});
}

TEST_F(TroubledMachine, NoSocket) {
    const TroubleshootingRow it = row(R"(No daemon starts, and `-test` says "Unable to bind socket")");
    const std::string withoutRun =
        "mount -t tmpfs tmpfs /mnt\nfor path in /var/*; do\n"
        "[ -h $path ] || [ $path = /var/run ] || ! [ -d $path ] || {\n"
        "mkdir /mnt/${path#/var/}; mount --rbind $path /mnt/${path#/var/}; }\ndone\n"
        "mount --rbind /mnt /var";
    expectOfEach(
        it,
        {{"`/var/run` is missing", withoutRun, quoted(it.cure, 0)},
         {"read-only", "mount -t tmpfs -o ro tmpfs $(readlink -f /var/run)", remount(quoted(it.cure, 1))},
         {"a folder has the socket's name",
          "mount -t tmpfs tmpfs $(readlink -f /var/run)\nmkdir /var/run/znorb.socket", quoted(it.cure, 2)}});
}

TEST_F(TroubledMachine, NoThread) {
    const TroubleshootingRow it = row(R"(No daemon starts, and `-test` says nothing more than its keys)");
    if (inShell("znorb-cage clone3=EPERM -- true").end != exitedWith(0)) {
        GTEST_SKIP() << "no system call can be taken away here";
    }
    expectOfEach(it, {{"too little memory", "ulimit -S -s 1000000\nulimit -S -v 900000", quoted(it.cure, 0)},
                      {"forbids `clone3`", "cage='znorb-cage clone3=EPERM --'",
                       "cage='znorb-cage clone3=ENOSYS --'"}});
    EXPECT_THAT(it.cure, HasSubstr("answers `clone3` with ENOSYS"));
}

TEST_F(TroubledMachine, NoFileOfThatSize) {
    const TroubleshootingRow it = row(R"(`-d` does not return)");
    EXPECT_THAT(it.cause, HasSubstr("`ulimit -f 0`"));
    std::vector<pid_t> others = childrenOf(getpid());
    ChildProcess start(launchWith({}, "ulimit -S -f 0\nexec znorbresponder -d"));
    others.push_back(start.pid());
    pid_t daemon = -1;
    ASSERT_TRUE(waitUntil([&]() { return (daemon = DaemonDriver::findDaemon(others)) != -1; }));
    EXPECT_EQ(waitForEndOf(daemon), endedBy(SIGXFSZ));
    EXPECT_EQ(start.waitForEnd(Milliseconds(500)), stillRunning());
    EXPECT_EQ(kill(start.pid(), SIGINT), 0);
    EXPECT_EQ(start.waitForEnd(), endedBy(SIGINT));
    EXPECT_EQ(start.output() + start.errors(), "");

    // Too little for the table only: its messages have room.
    Launch launch = launchWith({}, "ulimit -S -f 16\nexec znorbresponder -test");
    launch.withInput = true;
    ChildProcess tester(launch);
    EXPECT_EQ(tester.waitForEnd(), endedBy(SIGXFSZ));
    EXPECT_EQ(tester.output(), std::regex_replace(it.shown, std::regex("\n"), "\r\n"));

    EXPECT_EQ(quoted(it.cure, 0), "ulimit -f unlimited");
    EXPECT_EQ(quoted(it.cure, 1), "znorb-clean");
    const ProgramResult cleaner = clean();
    EXPECT_EQ(cleaner.end, exitedWith(0)) << cleaner.errors;
    expectAStartToWork();
}

TEST_F(TroubledMachine, NoRoomForTheLock) {
    const TroubleshootingRow it = row(R"(`-stop` returns 2, but it runs, and `/dev/shm` is full)");
    const Lack room = {
        "full", "mount -t tmpfs -o size=4k tmpfs /dev/shm\nhead -c 4096 /dev/zero >/dev/shm/other", ""};
    const ProgramResult result = runProgram(launchWith(room, R"(znorbresponder -d
await
znorbresponder -stop || echo $?
echo $(znorbrequestor 'GET|en')
rm /dev/shm/other
echo $(znorbrequestor QUIT)
until { state=0; await -t 0 2>/dev/null || state=$?; [ $state = 2 ]; }; do sleep 0.05; done
znorbresponder -d
await
znorbresponder -stop || echo $?)"));
    EXPECT_EQ(result.output, started + "2\n0\n0\n" + started + stopped + "255\n");
    EXPECT_EQ(result.errors, "The ZN Orbisan daemon is not running.\n");
    EXPECT_THAT(driver.clients(), IsEmpty());
    EXPECT_THAT(it.cure, HasSubstr("`QUIT`"));
}

TEST_F(TroubledMachine, NoLoopbackInterface) {
    const TroubleshootingRow it = row(R"(`-stop` waits, though its clients would answer)");
    if (inShell("command -v ip").end != exitedWith(0)) {
        GTEST_SKIP() << "iproute2 is not installed";
    }
    const ProgramResult result = runProgram(launchWith({}, R"SCRIPT(ip link set lo up
znorbresponder -d
await
echo $(znorbrequestor 'GET|en')
until [ "$(od -An -tu2 -j128 -N2 /dev/shm/znorb.shvars)" -gt 0 ]; do sleep 0.05; done
ip link set lo down
znorbresponder -stop &
until grep -q '^ *[0-9]*: [^ ]* [^ ]* 02 ' /proc/net/tcp; do sleep 0.05; done # SYN_SENT
kill -0 $! && echo waits
)SCRIPT" + quoted(it.cure) + R"(
wait $! || echo $?)"),
                                            Milliseconds(60000));
    EXPECT_EQ(result.output, started + "0\nwaits\n" + stopped + "255\n") << result.errors;
}

/// Where requests for a connection are dropped, as by a packet filter: one more than it has room for waits.
class DroppingListener {
public:
    DroppingListener()
        : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          m_waiting(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(m_listener, generic, size), 0);
        EXPECT_EQ(listen(m_listener, 0), 0);
        EXPECT_EQ(getsockname(m_listener, generic, &size), 0);
        EXPECT_EQ(connect(m_waiting, generic, size), 0);
        m_port = ntohs(address.sin_port);
    }
    ~DroppingListener() {
        (void)close(m_waiting);
        (void)close(m_listener);
    }
    DroppingListener(const DroppingListener&) = delete;
    DroppingListener& operator=(const DroppingListener&) = delete;

    std::uint16_t port() const { return m_port; }

private:
    int m_listener;
    int m_waiting;
    std::uint16_t m_port = 0;
};

TEST_F(Troubleshooting, DroppedPackets) {
    ASSERT_TRUE(driver.startServing());
    auto client = std::make_unique<DroppingListener>();
    ASSERT_TRUE(enterClient(0, client->port()));
    ChildProcess stop(driver.launch({"-stop"}));
    EXPECT_EQ(stop.waitForEnd(Milliseconds(500)), stillRunning());
    client.reset(); // the next attempt is refused
    EXPECT_EQ(stop.waitForEnd(), exitedWith(255));
    EXPECT_EQ(stop.output(), stopped);
}

} // namespace
