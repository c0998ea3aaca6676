#include "tests/schedules/Story.h"

#include <algorithm>

namespace ZNORBSCHEDULES {

Objects Story::ignored() const {
    const auto has = [this](const char* actor) {
        return std::find(actors.begin(), actors.end(), actor) != actors.end();
    };
    Objects result;
    if (!has("znorb-clean")) {
        (void)result.insert(processList);
    }
    if (!has("SIGTERM")) {
        (void)result.insert(pendingSignals);
    }
    return result;
}

bool Story::isSymmetric() const {
    const auto kindOf = [](const std::string& actor) { return actor.substr(0, actor.find(' ')); };
    return kindOf(actors[0]) == kindOf(actors[1]);
}

const std::vector<Story>& stories() {
    static const std::vector<Story> all = {
        {"start-start", "`-d` and another `-d`", Setting::Nobody, {"-d 1", "-d 2"}},
        {"start-end", "`-d` while another daemon ends by QUIT", Setting::Serving, {"-d", "QUIT"}},
        {"start-stop", "`-d` and `-stop`, where no daemon runs", Setting::Nobody, {"-d", "-stop"}},
        {"stop-start", "`-stop` and `-d`, where a daemon runs", Setting::Serving, {"-stop", "-d"}},
        {"stop-stop", "`-stop` and another `-stop`", Setting::Serving, {"-stop 1", "-stop 2"}},
        {"stop-term", "`-stop` and SIGTERM", Setting::Serving, {"-stop", "SIGTERM"}},
        {"get-quit", "GET and QUIT", Setting::Serving, {"GET", "QUIT"}},
        {"get-client",
         "GET and a client that registers and frees its entry",
         Setting::Launched,
         {"GET", "client"}},
        {"clean-start", "`znorb-clean` and `-d`, after a SIGKILL", Setting::Stale, {"znorb-clean", "-d"}},
        {"failed-stop",
         "a GET whose client cannot be executed, which makes a second daemon, and `-stop`",
         Setting::Clientless,
         {"GET", "-stop"}},
    };
    return all;
}

} // namespace ZNORBSCHEDULES
