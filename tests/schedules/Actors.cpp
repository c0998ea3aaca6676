#include "tests/schedules/Actors.h"

#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>

namespace ZNORBSCHEDULES {
namespace {

using namespace ZNORBTEST;

constexpr const char* socketFile = "/run/znorb.socket";

void say(const std::string& text) {
    (void)!write(STDOUT_FILENO, text.data(), text.size());
}

/// A requester. Waits for the reply like one, however long.
void ask(const std::string& request) {
    const LocalConnection connection = LocalConnection::toPath(socketFile);
    if (!connection.isConnected()) {
        say("no connection");
        return;
    }
    (void)connection.send(request);
    char reply[64];
    const ssize_t length = recv(connection.descriptor(), reply, sizeof reply, 0);
    say(length > 0 ? std::string(reply, static_cast<std::size_t>(length)) : "none");
}

/// What the client of entry 0 writes, in the order of the authors' header. The table is opened for each anew,
/// which is where others may go first.
void liveAsClient() {
    constexpr std::int64_t entry = offsetof(znorb_shared_table, entries);
    (void)writeSharedTable(entry + static_cast<std::int64_t>(offsetof(znorb_client_entry, identifier)),
                           "client");
    (void)writeSharedTable(entry + static_cast<std::int64_t>(offsetof(znorb_client_entry, port)), "\x01\x01");
    (void)writeSharedTable(entry + static_cast<std::int64_t>(offsetof(znorb_client_entry, in_use)), {'\0'});
}

Launch cleaner(const DaemonDriver& driver) {
    Launch result;
    result.program = ZNORB_TOOLS "/znorb-clean";
    result.arguments = {"-e", driver.program()};
    return result;
}

bool launchFirstClient(Ensemble& ensemble) {
    const LocalConnection connection = LocalConnection::toPath(socketFile);
    return connection.send("GET|en") && ensemble.settle();
}

} // namespace

bool prepare(Setting setting, const DaemonDriver& driver, Ensemble& ensemble) {
    driver.installAsClient("znorb-waiter"); // which never registers: nobody is asked to exit
    if (setting == Setting::Nobody) {
        return true;
    }
    ensemble.setFree(true);
    ensemble.launch("old", driver.launch({"-d"}));
    bool isPrepared = ensemble.settle();
    if (setting == Setting::Launched) {
        isPrepared = isPrepared && launchFirstClient(ensemble);
    } else if (setting == Setting::Clientless) {
        isPrepared = isPrepared && unlink(driver.client().c_str()) == 0;
    } else if (setting == Setting::Stale) {
        (void)kill(ensemble.processOf("old daemon"), SIGKILL);
        isPrepared = isPrepared && ensemble.settle();
    }
    ensemble.setFree(false);
    return isPrepared;
}

void addActor(const std::string& name, const DaemonDriver& driver, Ensemble& ensemble) {
    if (name.starts_with("-")) {
        ensemble.launch(name, driver.launch({name.substr(0, name.find(' '))}));
    } else if (name == "znorb-clean") {
        ensemble.launch(name, cleaner(driver));
    } else if (name == "client") {
        ensemble.play(name, liveAsClient);
    } else if (name == "SIGTERM") {
        const pid_t daemon = ensemble.processOf("old daemon");
        ensemble.play(name, [daemon]() { (void)kill(daemon, SIGTERM); });
    } else {
        ensemble.play(name, [name]() { ask(name == "GET" ? "GET|en" : name); });
    }
}

} // namespace ZNORBSCHEDULES
