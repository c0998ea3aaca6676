/// The publication into the web console, looked at between any two of its system calls: what it writes is
/// never writable by others, and whatever vanishes or stands in its way meanwhile neither blocks it nor makes
/// it throw.

#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/paths/ExecutableLink.h"
#include "tests/responder/paths/StagedInstallation.h"
#include "tests/support/Addresses.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/Matchers.h"
#include "tests/support/Obstacles.h"
#include "tests/support/ProcessEnd.h"
#include "tests/support/Skipping.h"
#include "tests/support/SystemCallTracer.h"
#include "tests/support/Watchdog.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <tuple>
#include <utility>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using testing::ElementsAre;

constexpr mode_t writableByOthers = 022;

const std::string console = StagedInstallation::console;
const std::string pages = console + "/data/htdocs/ZNORB";
const std::string productPrograms = pages + "/bin";
const std::vector<std::string> destinations = {console + "/webapp/znorb.xml", pages + "/chp.htm",
                                               pages + "/ipcelmclient.php",
                                               productPrograms + "/znorbrequestor"};
const std::string sourceFolder = StagedInstallation::sources;
const std::vector<std::string> sources = {sourceFolder + "/znorb.xml", sourceFolder + "/chp.htm",
                                          sourceFolder + "/ipcelmclient.php",
                                          std::string(StagedInstallation::programs) + "/znorbrequestor"};

class PublicationMoments : public testing::Test {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(!canTrace()) << "no process can be traced here";
        stage();
    }

    static void stage() {
        StagedInstallation::installConsole();
        for (const std::string& source : sources) {
            writeFile(source, newContent);
        }
    }

    static void unstage() {
        std::filesystem::remove_all(console);
        std::filesystem::remove_all(sourceFolder);
    }

    /// Publishes as the daemon does, whose umask is 0, and looks at each stop. How many there were.
    static unsigned publish(const std::function<void(unsigned)>& look) {
        unsigned stops = 0;
        publish([&stops, &look](const TracedStop&) { look(++stops); });
        return stops;
    }

    static void publish(const std::function<void(const TracedStop&)>& note) {
        SystemCallTracer publisher;
        (void)publisher.start([]() {
            const ExecutableLink link(std::string(StagedInstallation::programs) + "/znorbresponder");
            (void)umask(0);
            (void)registerWebConsole();
        });
        ProcessEnd end;
        EXPECT_TRUE(publisher.follow([&](const TracedStop& stop) {
            if (stop.kind == TracedStop::Kind::End) {
                end = endFrom(stop.waitStatus);
            } else {
                note(stop);
            }
        }));
        EXPECT_EQ(end, exitedWith(EXIT_SUCCESS));
    }

    static bool isWritableByOthers(const std::string& path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 && (status.st_mode & writableByOthers) != 0;
    }

    /// Notes what is published by now and others may write to.
    void lookForWritable(unsigned stop) {
        const std::string when = " at stop " + std::to_string(stop);
        for (const std::string& path : destinations) {
            if (exists(path) && isWritableByOthers(path) && readFile(path) != oldContent) {
                writable.push_back(path + when);
            }
        }
        for (const std::string& directory : {pages, productPrograms}) {
            if (isWritableByOthers(directory) && holdsPublished(directory)) {
                writable.push_back(directory + when);
            }
        }
    }

    static bool holdsPublished(const std::string& directory) {
        for (const std::string& path : destinations) {
            if (path.starts_with(directory) && exists(path) && readFile(path) != oldContent) {
                return true;
            }
        }
        return false;
    }

    static constexpr const char* oldContent = "old";
    static constexpr const char* newContent = "new";

    Watchdog watchdog{100};
    StagedInstallation installation;
    std::vector<std::string> writable;
};

TEST_F(PublicationMoments, NeverLeaveAnythingNewWritableByOthers) {
    const unsigned stops = publish([this](unsigned stop) { lookForWritable(stop); });
    EXPECT_THAT(writable, IsEmpty());
    EXPECT_EQ(readFile(destinations[3]), newContent);
    std::printf("  looked %u times, between all system calls\n", stops);
    RecordProperty("looks", static_cast<int>(stops));
    EXPECT_GT(stops, 50U);
}

TEST_F(PublicationMoments, TakeTheRightToWriteFromOthersBeforeOldFilesAndDirectoriesAreUsed) {
    for (const std::string& path : destinations) {
        writeFile(path, oldContent, 0777);
    }
    for (const std::string& directory : {pages, productPrograms}) {
        ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    }
    (void)publish([this](unsigned stop) { lookForWritable(stop); });
    EXPECT_THAT(writable, IsEmpty());
    EXPECT_EQ(readFile(destinations[3]), newContent);
    EXPECT_EQ(modeOf(destinations[1]), 0644U);
    EXPECT_EQ(modeOf(destinations[3]), 0755U);
}

TEST_F(PublicationMoments, SurviveSourcesOrAConsoleThatVanishAtAnyOfThem) {
    const auto removeSources = []() {
        for (const std::string& source : sources) {
            (void)unlink(source.c_str());
        }
    };
    const auto removeConsole = []() { std::filesystem::remove_all(console); };
    const unsigned stops = publish([](unsigned) {});
    for (void (*const vanish)() : {+removeSources, +removeConsole}) {
        for (unsigned moment = 1; moment <= stops; ++moment) {
            unstage();
            stage();
            (void)publish([moment, vanish](unsigned stop) {
                if (stop == moment) {
                    vanish();
                }
            });
            ASSERT_FALSE(HasFailure()) << "at stop " << moment;
        }
    }
}

/// What a publication does to the console, call by call: the files that it writes, each with the length, and
/// the modes that it sets.
class PublicationCalls {
public:
    void note(const TracedStop& stop) {
        if (stop.kind != TracedStop::Kind::Call) {
            return;
        }
        const auto descriptor = static_cast<long>(stop.call.arguments[0]);
        if (!stop.call.isStart) {
            if (!m_opened.empty()) {
                m_files[stop.call.result] = std::exchange(m_opened, "");
            }
        } else if (stop.call.number == SYS_openat) {
            m_opened = nameAt(stop, 1);
        } else if (stop.call.number == SYS_close) {
            m_files.erase(descriptor);
        } else if (stop.call.number == SYS_write && m_files.contains(descriptor)) { // none of a sanitizer's
            m_calls.push_back("write " + m_files[descriptor] + " " + std::to_string(stop.call.arguments[2]));
#ifdef SYS_chmod
        } else if (stop.call.number == SYS_chmod) {
            noteMode("chmod ", nameAt(stop, 0), stop.call.arguments[1]);
        } else if (stop.call.number == SYS_mkdir) {
            noteMode("mkdir ", nameAt(stop, 0), stop.call.arguments[1]);
#endif
        } else if (stop.call.number == SYS_fchmodat) {
            noteMode("chmod ", nameAt(stop, 1), stop.call.arguments[2]);
        } else if (stop.call.number == SYS_mkdirat) {
            noteMode("mkdir ", nameAt(stop, 1), stop.call.arguments[2]);
        }
    }

    [[nodiscard]] const std::vector<std::string>& calls() const {
        return m_calls;
    }

private:
    static std::string nameAt(const TracedStop& stop, std::size_t argument) {
        return std::filesystem::path(readText(stop.thread, stop.call.arguments[argument])).filename();
    }

    void noteMode(const std::string& call, const std::string& name, std::uint64_t mode) {
        m_calls.push_back(call + name + (mode == 0644 ? " 644" : mode == 0755 ? " 755" : " other"));
    }

    std::string m_opened;
    std::map<long, std::string> m_files;
    std::vector<std::string> m_calls;
};

TEST_F(PublicationMoments, WriteEachFileAtOnceAndSetTheModesInTheirOrder) {
    for (const std::string& source : sources) {
        writeFile(source, std::string(65536, 'x'));
    }
    PublicationCalls calls;
    (void)publish([&calls](const TracedStop& stop) { calls.note(stop); });
    EXPECT_THAT(calls.calls(),
                ElementsAre("write znorb.xml 65536", "chmod znorb.xml 644", "mkdir ZNORB 755",
                            "write chp.htm 65536", "write ipcelmclient.php 65536", "chmod ZNORB 755",
                            "chmod chp.htm 644", "chmod ipcelmclient.php 644", "mkdir bin 755",
                            "write znorbrequestor 65536", "chmod bin 755", "chmod znorbrequestor 755"));
}

// ---- what may stand in a file's place ------------------------------------------------------------------

const Obstacle obstacles[] = {
    aDirectory,
    aFifo,
    aLinkToItself,
    aLinkToNothing,
    {"a socket",
     [](const char* path) {
         const Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
         return bindTo(descriptor.get(), addressOf(std::string(path)));
     }},
    {"a device", // one that takes no byte
     [](const char* path) { return mknod(path, S_IFCHR | 0600, makedev(1, 7)); }},
    nothing,
};

/// False when this user may not make one.
bool put(const Obstacle& obstacle, const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove_all(path);
    return obstacle.put(path.c_str()) == 0;
}

class PublicationPast : public testing::TestWithParam<std::tuple<Obstacle, std::size_t>> {
protected:
    PublicationPast() {
        StagedInstallation::installConsole();
        for (const std::string& source : sources) {
            writeFile(source, "new");
        }
    }

    /// Registers, and expects that all files but one of them are published.
    static void expectTheOthers(std::size_t spoilt) {
        EXPECT_NO_THROW(EXPECT_TRUE(registerWebConsole()));
        for (std::size_t file = 0; file < destinations.size(); ++file) {
            if (file != spoilt) {
                EXPECT_EQ(readFile(destinations[file]), "new");
                EXPECT_EQ(modeOf(destinations[file]), file == 3 ? 0755U : 0644U);
            }
        }
    }

    Watchdog watchdog{100};
    StagedInstallation installation;
};

TEST_P(PublicationPast, ItInAFilesSourceGoesOnWithTheOthers) {
    const auto [obstacle, file] = GetParam();
    ZNORB_SKIP_IF(!put(obstacle, sources[file])) << "this user may not make one";
    expectTheOthers(file);
    EXPECT_FALSE(exists(destinations[file]));
}

TEST_P(PublicationPast, ItInAFilesDestinationGoesOnWithTheOthers) {
    const auto [obstacle, file] = GetParam();
    ZNORB_SKIP_IF(!put(obstacle, destinations[file])) << "this user may not make one";
    const bool isWritten = obstacle.put == nothing.put;
    expectTheOthers(isWritten ? destinations.size() : file);
    EXPECT_EQ(std::filesystem::is_regular_file(std::filesystem::symlink_status(destinations[file])),
              isWritten);
}

INSTANTIATE_TEST_SUITE_P(Obstacles, PublicationPast,
                         testing::Combine(testing::ValuesIn(obstacles),
                                          testing::Range(std::size_t{0}, std::size_t{4})));

} // namespace
