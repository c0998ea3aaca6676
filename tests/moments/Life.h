#pragma once

#include "tests/moments/Observation.h"
#include "tests/moments/TracedLife.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Onlooker.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ZNORBMOMENTS {

/// What a life is made of. Whoever adds one: its steps in Life.cpp, its name in `stories`.
enum class Story {
    Quit,  ///< `-d`, PRINT, GET twice until the clients have registered, PRINT, QUIT
    Stop,  ///< `-d`, PRINT, `-stop`
    Test,  ///< `-test`, p, q
    Clean, ///< znorb-clean after a SIGKILL
    Wait   ///< znorb-wait beside a daemon that serves
};
struct StoryName {
    Story story;
    const char* name;
};
inline constexpr StoryName stories[] = {{Story::Quit, "quit"},
                                        {Story::Stop, "stop"},
                                        {Story::Test, "test"},
                                        {Story::Clean, "clean"},
                                        {Story::Wait, "wait"}};
std::string describe(Story story);

/// What there is, apart from the daemon, at a moment of a life.
struct Surroundings {
    bool hasConnection = false; ///< the story's requester has one
    bool hasTable = false;
    bool hasLock = false;
    bool hasClient = false;  ///< one that has registered
    bool isStopping = false; ///< a `-stop` has begun
    bool hasThread = false;  ///< the daemon's second one runs

    /// Whether all that the other one has is there.
    bool include(const Surroundings& other) const;
};

/// One traced life in a sandbox's runner, from its start to what the next starts make of what it left. One
/// thread does it all: it leads the traced threads from stop to stop, and takes the story's next step
/// whenever that is possible. Every wait has a bound.
class Life {
public:
    using AtBoundary = std::function<void(Life&, const Boundary&, ZNORBTEST::TracedStop&)>;
    using AtSignal = std::function<void(Life&, const std::string&, ZNORBTEST::TracedStop&)>;

    Life(Story story, AtBoundary atBoundary, AtSignal atSignal);
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    Observation run();

    TracedLife& traced() { return m_traced; }
    Surroundings surroundings() const;

    /// What others may do to the daemon at a moment that has it.
    void closeConnection();
    void shutConnection();
    void killClient() const;
    static void truncateTable();
    static void removeLock();

private:
    using Step = std::function<bool()>; ///< true when it is done

    std::vector<Step> stepsOf(Story story);
    Step awaitStart();
    Step awaitStop();
    Step request(const std::string& text, const std::string& name);
    Step awaitClient(unsigned index, const std::string& reply);
    Step launch(const std::string& role, const ZNORBTEST::Launch& program);
    Step press(const std::string& keys);
    bool connect(const std::string& text);
    void prepare();
    void lookForLock();
    void play();
    void awaitEnds();
    bool isForEver() const;
    void observe();
    void observeNext();
    std::string tryNext();
    bool haveAllEnded() const;
    bool goOnUntil(const std::function<bool()>& condition, ZNORBTEST::Milliseconds bound);

    const Story m_story;
    ZNORBTEST::DaemonDriver m_driver;
    TracedLife m_traced;
    std::optional<ZNORBTEST::Onlooker> m_lock;
    std::unique_ptr<ZNORBTEST::LocalConnection> m_connection;
    std::string m_reply;
    bool m_hasGivenUp = false;                   ///< the requester, its connection
    int m_keys = -1;                             ///< our end of the standard input of `-test`
    std::map<std::string, std::string> m_needed; ///< by role: what it took to end it
    Observation m_seen;
};

} // namespace ZNORBMOMENTS
