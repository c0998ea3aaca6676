#include "benchmarks/Responder.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <thread>

/// znorb-rounds FOLDER ROUNDS RESULTS [FIGURE]: measures what crosses processes, the daemon against the
/// floor, both installed in the folder. For each figure the daemon, the floor, the floor once more and, when
/// it is there, the least floor run one after the other, each freshly started, on one processor; a round
/// gives the daemon's ratios to the two floors, and one of the floor to itself, which is the noise. Writes
/// one line per figure into RESULTS. With 0 rounds each figure is taken once, in brief, to see that it can
/// be; with a FIGURE only those are taken whose names begin with it. The exact counts are taken always.
namespace {

using namespace ZNORBBENCH;

constexpr unsigned capacity = 64;

/// How often something is done for one value.
struct Effort {
    int requests = 2000;
    int launches = 64;
    int bursts = 5;
    int starts = 21;
    int sweeps = 15;
    /// Longer than the five seconds that the daemon waits for a request at a time.
    unsigned pauseMicroseconds = 5'500'000;
};
constexpr Effort briefEffort = {20, 2, 1, 1, 1, 1000};
Effort effort;

constexpr int mostRoundsWithPauses = 5;
constexpr int countedRequests = 20;
constexpr int countedStarts = 21;
#ifdef ZNORB_HAS_LAYOUT
constexpr double mostStartFaults = 80;
#else
constexpr double mostStartFaults = 110;
#endif
constexpr double microseconds = 1e6;

enum Arm { Daemon, Floor, FloorAgain, LeastFloor, armCount };

std::string folder;

std::string programOf(int arm) {
    return folder + (arm == Daemon       ? "/znorbresponder"
                     : arm == LeastFloor ? "/znorb-floor-least"
                                         : "/znorb-floor");
}

double middle(std::vector<double> values) {
    const auto half = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), half, values.end());
    return *half;
}

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
}

Seconds timeOf(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::steady_clock::now() - start;
}

/// The median of `count` requests; `after` runs outside the time.
double medianOf(
    int count, const std::string& request, const std::function<void()>& after = [] {}) {
    std::vector<double> times;
    for (int number = 0; number < count; ++number) {
        times.push_back(timeOf([&] { (void)ask(request); }).count() * microseconds);
        after();
    }
    return middle(times);
}

double emptyRequest(int arm) {
    const Responder responder(programOf(arm));
    return medianOf(effort.requests, "?");
}

double requestAfterPause(int arm) {
    const Responder responder(programOf(arm));
    (void)ask("?");
    (void)usleep(effort.pauseMicroseconds);
    return medianOf(1, "?");
}

double print(int arm, unsigned entries) {
    const Responder responder(programOf(arm));
    const MappedTable table;
    table.fill(entries, true);
    const double time = medianOf(effort.requests, "PRINT");
    table.fill(entries, false);
    return time;
}

double launch(int arm, unsigned entriesInUse, int processor = -1) {
    const Responder responder(programOf(arm), "", processor);
    const MappedTable table;
    table.fill(entriesInUse, true);
    const double time = medianOf(effort.launches, "GET|go", [&] {
        responder.awaitClientsEnd();
        table.fill(entriesInUse, true);
    });
    table.fill(capacity, false);
    return time;
}

double burst(int arm) {
    const Responder responder(programOf(arm));
    const MappedTable table;
    std::vector<double> times;
    for (int number = 0; number < effort.bursts; ++number) {
        times.push_back(timeOf([&] {
                            for (unsigned client = 0; client < capacity; ++client) {
                                (void)ask("GET|go");
                            }
                            responder.awaitClientsEnd();
                        }).count() *
                        microseconds);
        table.fill(capacity, false);
    }
    return middle(times);
}

/// Another one than this program's, when there are two.
int otherProcessor() {
    return std::thread::hardware_concurrency() > 1 ? 1 : 0;
}

double start(int arm, Started end) {
    std::vector<double> times;
    for (int number = 0; number < effort.starts; ++number) {
        const Responder responder(programOf(arm), "", otherProcessor(), end);
        times.push_back(responder.startTime().count() * microseconds);
    }
    return middle(times);
}

double sweep(int arm) {
    std::vector<double> times;
    for (int number = 0; number < effort.sweeps; ++number) {
        Responder responder(programOf(arm));
        const MappedTable table;
        for (unsigned client = 0; client < capacity; ++client) {
            (void)ask("GET|stay");
        }
        table.awaitRegistered(capacity);
        times.push_back(responder.quit().count() * microseconds);
    }
    return middle(times);
}

/// After a pause in which nobody asked for anything.
double memory(int arm, const char* name) {
    const Responder responder(programOf(arm));
    (void)ask("?");
    (void)ask("PRINT");
    (void)usleep(effort.pauseMicroseconds);
    return static_cast<double>(responder.memory(name));
}

struct Figure {
    const char* name;
    const char* unit;
    std::function<double(int arm)> measure;
    int mostRounds = std::numeric_limits<int>::max();
};

const std::array<Figure, 14> figures = {{
    {"empty request", "us", emptyRequest},
    {"empty request after a pause", "us", requestAfterPause, mostRoundsWithPauses},
    {"PRINT of 0 entries", "us", [](int arm) { return print(arm, 0); }},
    {"PRINT of 16 entries", "us", [](int arm) { return print(arm, 16); }},
    {"PRINT of 64 entries", "us", [](int arm) { return print(arm, capacity); }},
    {"GET to the reply", "us", [](int arm) { return launch(arm, 0); }},
    {"GET with 63 entries in use", "us", [](int arm) { return launch(arm, capacity - 1); }},
    {"GET to another processor, to the reply", "us",
     [](int arm) { return launch(arm, 0, otherProcessor()); }},
    {"64 GETs until all clients are gone", "us", burst},
    {"-d to its exit", "us", [](int arm) { return start(arm, Started::Exited); }},
    {"-d to the first reply", "us", [](int arm) { return start(arm, Started::Replies); }},
    {"QUIT with 64 clients until all are gone", "us", sweep},
    {"idle memory, PSS", "KiB", [](int arm) { return memory(arm, "Pss:"); }, mostRoundsWithPauses},
    {"idle memory, private dirty", "KiB", [](int arm) { return memory(arm, "Private_Dirty:"); },
     mostRoundsWithPauses},
}};

/// Several ratios, as their median and quartiles.
class Ratios {
public:
    void add(double ratio) { m_ratios.push_back(ratio); }

    /// "|median|lower|upper"; three empty fields without a ratio.
    [[nodiscard]] std::string fields() const {
        if (m_ratios.empty()) {
            return "|||";
        }
        char text[64];
        (void)std::snprintf(text, sizeof text, "|%.3f|%.3f|%.3f", middle(m_ratios), quantile(m_ratios, 0.25),
                            quantile(m_ratios, 0.75));
        return text;
    }

    /// "median (lower to upper)"
    [[nodiscard]] std::string text() const {
        char text[64];
        (void)std::snprintf(text, sizeof text, "%.3f (%.3f to %.3f)", middle(m_ratios),
                            quantile(m_ratios, 0.25), quantile(m_ratios, 0.75));
        return text;
    }

private:
    std::vector<double> m_ratios;
};

/// The programs of a round, in an order that differs from round to round.
std::vector<int> armsInTurn() {
    static std::minstd_rand random; // NOLINT: any order will do
    std::vector<int> arms(access(programOf(LeastFloor).c_str(), X_OK) == 0 ? armCount : LeastFloor);
    std::iota(arms.begin(), arms.end(), 0);
    std::shuffle(arms.begin(), arms.end(), random);
    return arms;
}

void measure(const Figure& figure, int rounds, std::ofstream& results) {
    std::vector<double> values[armCount];
    Ratios ratios;
    Ratios noise;
    Ratios toLeast;
    for (int round = 0; round < std::min(rounds, figure.mostRounds); ++round) {
        double value[armCount] = {};
        for (const int arm : armsInTurn()) {
            value[arm] = figure.measure(arm);
            values[arm].push_back(value[arm]);
        }
        ratios.add(value[Daemon] / value[Floor]);
        noise.add(value[FloorAgain] / value[Floor]);
        if (value[LeastFloor] > 0) {
            toLeast.add(value[Daemon] / value[LeastFloor]);
        }
    }
    char line[128];
    (void)std::snprintf(line, sizeof line, "%s|%s|%.1f|%.1f", figure.name, figure.unit,
                        middle(values[Daemon]), middle(values[Floor]));
    results << line << ratios.fields() << noise.fields() << toLeast.fields() << "\n" << std::flush;
    (void)std::printf("bench: %-40s daemon %9.1f %-3s floor %9.1f  ratio %s  noise %s\n", figure.name,
                      middle(values[Daemon]), figure.unit, middle(values[Floor]), ratios.text().c_str(),
                      noise.text().c_str());
    (void)std::fflush(stdout);
}

/// How a fork's cost grows with what is resident: the floor with ballast against the floor without.
void measureBallast(int rounds, std::ofstream& results) {
    for (const char* mebibytes : {"1", "4", "16", "64"}) {
        Ratios ratios;
        for (int round = 0; round < rounds; ++round) {
            double value[2];
            for (const int heavy : {round % 2, 1 - round % 2}) {
                const Responder responder(programOf(Floor), heavy == 1 ? mebibytes : "0");
                value[heavy] = medianOf(effort.launches, "GET|go", [&] {
                    responder.awaitClientsEnd();
                    MappedTable().fill(capacity, false);
                });
            }
            ratios.add(value[1] / value[0]);
        }
        results << "GET with " << mebibytes << " MiB resident|ratio" << ratios.fields() << "\n";
        (void)std::printf("bench: floor with %2s MiB of ballast: GET costs %s times as much\n", mebibytes,
                          ratios.text().c_str());
    }
}

struct Count {
    const char* request;
    double systemCalls;
    double faults; ///< at most
    unsigned entriesInUse;
};

double faultsPer(const Responder& responder, const char* request) {
    (void)ask(request);
    responder.awaitClientsEnd();
    const long before = responder.minorFaults();
    for (int number = 0; number < countedRequests; ++number) {
        (void)ask(request);
        responder.awaitClientsEnd();
    }
    return static_cast<double>(responder.minorFaults() - before) / countedRequests;
}

struct Costs {
    double faults;
    double systemCalls; ///< -1: not counted
};

Costs costsOf(int arm, const char* request, unsigned entriesInUse) {
    const Responder responder(programOf(arm));
    MappedTable().fill(entriesInUse, true);
    const double faults = faultsPer(responder, request);
    const double calls = responder.systemCallsPer(request, countedRequests);
    MappedTable().fill(capacity, false);
    return {faults, calls};
}

/// True when the daemon makes exactly so many system calls, and no more page faults.
bool isWithin(const Count& expected) {
    const Costs daemon = costsOf(Daemon, expected.request, expected.entriesInUse);
    const Costs floor = costsOf(Floor, expected.request, expected.entriesInUse);
    (void)std::printf(
        "bench: %-6s system calls: daemon %.2f (exactly %.0f), floor %.2f; minor faults: daemon "
        "%.2f (at most %.0f), floor %.2f\n",
        expected.request, daemon.systemCalls, expected.systemCalls, floor.systemCalls, daemon.faults,
        expected.faults, floor.faults);
    if (daemon.systemCalls < 0) {
        (void)std::printf("bench: system calls were not counted: processes may not be traced here\n");
    }
    const char* const isCi = std::getenv("CI");
    const bool mayBeUncounted = isCi == nullptr || std::strcmp(isCi, "true") != 0;
    const bool areCallsExact =
        daemon.systemCalls < 0 ? mayBeUncounted : std::abs(daemon.systemCalls - expected.systemCalls) < 0.001;
    return areCallsExact && daemon.faults <= expected.faults;
}

double faultsOfAStart(int arm) {
    std::vector<double> faults;
    for (int number = 0; number < countedStarts; ++number) {
        faults.push_back(static_cast<double>(Responder(programOf(arm)).startFaults()));
    }
    return middle(faults);
}

/// True when a start of the daemon has no more page faults than the order of its parts allows.
bool isStartWithinFaults() {
    const double daemon = faultsOfAStart(Daemon);
    (void)std::printf("bench: start  minor faults: daemon %.0f (at most %.0f), floor %.0f\n", daemon,
                      mostStartFaults, faultsOfAStart(Floor));
    return daemon <= mostStartFaults;
}

bool areCountsExact() {
    bool isExact = isStartWithinFaults();
    for (const Count& expected :
         {Count{"?", 7, 0, 0}, Count{"PRINT", 7, 0, capacity}, Count{"GET|go", 11, 5, 0}}) {
        isExact = isWithin(expected) && isExact;
    }
    return isExact;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        fail("usage: znorb-rounds FOLDER ROUNDS RESULTS [FIGURE]");
    }
    const std::string chosen = argc == 5 ? argv[4] : "";
    folder = argv[1];
    const int rounds = std::max(1, std::atoi(argv[2]));
    if (std::atoi(argv[2]) == 0) {
        effort = briefEffort;
    }
    adoptOrphans();
    const bool isExact = areCountsExact();
    std::ofstream results(argv[3]);
    pinTo(0);
    for (const Figure& figure : figures) {
        if (std::string(figure.name).starts_with(chosen)) {
            measure(figure, rounds, results);
        }
    }
    if (chosen.empty()) {
        measureBallast(rounds, results);
    }
    if (!isExact) {
        fail("a request or a start costs more than it must");
    }
    return 0;
}
