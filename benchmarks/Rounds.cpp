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
#include <thread>

/// znorb-rounds FOLDER ROUNDS RESULTS [FIGURE]: measures what crosses processes, the daemon against the
/// floor, both installed in the folder. For each figure the daemon, the floor and the floor once more run in
/// turn, each freshly started, on one processor; a round gives one ratio to the floor for the daemon, and one
/// for the floor itself, which is the noise. Writes one line per figure into RESULTS. With 0 rounds only the
/// exact counts are taken; with a FIGURE only the figures whose names begin with it.
namespace {

using namespace ZNORBBENCH;

constexpr unsigned capacity = 64;
constexpr int requestCount = 2000;
constexpr int launchCount = 64;
constexpr int startCount = 21;
constexpr int sweepCount = 5;

/// Longer than the five seconds that the daemon waits for a request at a time.
constexpr unsigned pauseMicroseconds = 5'500'000;
constexpr int mostMemoryRounds = 5; // they hardly differ, and each has its pauses
constexpr int countedRequests = 20;
constexpr double microseconds = 1e6;

enum Arm { Daemon, Floor, FloorAgain, armCount };

std::string folder;

std::string programOf(int arm) {
    return folder + (arm == Daemon ? "/znorbresponder" : "/znorb-floor");
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
    return medianOf(requestCount, "?");
}

double print(int arm, unsigned entries) {
    const Responder responder(programOf(arm));
    const MappedTable table;
    table.fill(entries, true);
    const double time = medianOf(requestCount, "PRINT");
    table.fill(entries, false);
    return time;
}

double launch(int arm, unsigned entriesInUse) {
    const Responder responder(programOf(arm));
    const MappedTable table;
    table.fill(entriesInUse, true);
    const double time = medianOf(launchCount, "GET|go", [&] {
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
    for (int number = 0; number < 5; ++number) {
        times.push_back(timeOf([&] {
                            for (int client = 0; client < launchCount; ++client) {
                                (void)ask("GET|go");
                            }
                            responder.awaitClientsEnd();
                        }).count() *
                        microseconds);
        table.fill(capacity, false);
    }
    return middle(times);
}

/// Several starts, with the responder on a processor of its own when there are two.
double start(int arm, Seconds (Responder::*time)() const) {
    const int processor = std::thread::hardware_concurrency() > 1 ? 1 : 0;
    std::vector<double> times;
    for (int number = 0; number < startCount; ++number) {
        const Responder responder(programOf(arm), "", processor);
        times.push_back((responder.*time)().count() * microseconds);
    }
    return middle(times);
}

double sweep(int arm) {
    std::vector<double> times;
    for (int number = 0; number < sweepCount; ++number) {
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
    (void)usleep(pauseMicroseconds);
    return static_cast<double>(responder.memory(name));
}

struct Figure {
    const char* name;
    const char* unit;
    std::function<double(int arm)> measure;
    int mostRounds = std::numeric_limits<int>::max();
};

const std::array<Figure, 12> figures = {{
    {"empty request", "us", emptyRequest},
    {"PRINT of 0 entries", "us", [](int arm) { return print(arm, 0); }},
    {"PRINT of 16 entries", "us", [](int arm) { return print(arm, 16); }},
    {"PRINT of 64 entries", "us", [](int arm) { return print(arm, capacity); }},
    {"GET to the reply", "us", [](int arm) { return launch(arm, 0); }},
    {"GET with 63 entries in use", "us", [](int arm) { return launch(arm, capacity - 1); }},
    {"64 GETs until all clients are gone", "us", burst},
    {"-d to its exit", "us", [](int arm) { return start(arm, &Responder::untilExit); }},
    {"-d to the first reply", "us", [](int arm) { return start(arm, &Responder::untilReply); }},
    {"QUIT with 64 clients until all are gone", "us", sweep},
    {"idle memory, PSS", "KiB", [](int arm) { return memory(arm, "Pss:"); }, mostMemoryRounds},
    {"idle memory, private dirty", "KiB", [](int arm) { return memory(arm, "Private_Dirty:"); },
     mostMemoryRounds},
}};

void measure(const Figure& figure, int rounds, std::ofstream& results) {
    std::vector<double> values[armCount];
    std::vector<double> ratios;
    std::vector<double> noise;
    for (int round = 0; round < std::min(rounds, figure.mostRounds); ++round) {
        double value[armCount];
        for (int turn = 0; turn < armCount; ++turn) {
            const int arm = (round + turn) % armCount;
            value[arm] = figure.measure(arm);
            values[arm].push_back(value[arm]);
        }
        ratios.push_back(value[Daemon] / value[Floor]);
        noise.push_back(value[FloorAgain] / value[Floor]);
    }
    char line[256];
    (void)std::snprintf(line, sizeof line, "%s|%s|%.1f|%.1f|%.3f|%.3f|%.3f|%.3f|%.3f|%.3f\n", figure.name,
                        figure.unit, middle(values[Daemon]), middle(values[Floor]), middle(ratios),
                        quantile(ratios, 0.25), quantile(ratios, 0.75), middle(noise), quantile(noise, 0.25),
                        quantile(noise, 0.75));
    results << line << std::flush;
    (void)std::printf("bench: %-40s daemon %9.1f %-3s floor %9.1f  ratio %.3f (%.3f to %.3f)  noise %.3f\n",
                      figure.name, middle(values[Daemon]), figure.unit, middle(values[Floor]), middle(ratios),
                      quantile(ratios, 0.25), quantile(ratios, 0.75), middle(noise));
    (void)std::fflush(stdout);
}

/// How a fork's cost grows with what is resident: the floor with ballast against the floor without.
void measureBallast(int rounds, std::ofstream& results) {
    for (const char* mebibytes : {"1", "4", "16", "64"}) {
        std::vector<double> ratios;
        for (int round = 0; round < rounds; ++round) {
            double value[2];
            for (const int heavy : {round % 2, 1 - round % 2}) {
                const Responder responder(programOf(Floor), heavy == 1 ? mebibytes : "0");
                value[heavy] = medianOf(launchCount, "GET|go", [&] {
                    responder.awaitClientsEnd();
                    MappedTable().fill(capacity, false);
                });
            }
            ratios.push_back(value[1] / value[0]);
        }
        results << "GET with " << mebibytes << " MiB resident|ratio|" << middle(ratios) << "|"
                << quantile(ratios, 0.25) << "|" << quantile(ratios, 0.75) << "\n";
        (void)std::printf("bench: floor with %2s MiB of ballast: GET costs %.2f times as much\n", mebibytes,
                          middle(ratios));
    }
}

struct Count {
    const char* request;
    double systemCalls;
    double faults; ///< at most
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

Costs costsOf(int arm, const char* request) {
    const Responder responder(programOf(arm));
    const double faults = faultsPer(responder, request);
    const double calls = responder.systemCallsPer(request, countedRequests);
    MappedTable().fill(capacity, false);
    return {faults, calls};
}

/// True when the daemon makes exactly so many system calls, and no more page faults.
bool isWithin(const Count& expected) {
    const Costs daemon = costsOf(Daemon, expected.request);
    const Costs floor = costsOf(Floor, expected.request);
    (void)std::printf(
        "bench: %-6s system calls: daemon %.2f (exactly %.0f), floor %.2f; minor faults: daemon "
        "%.2f (at most %.0f), floor %.2f\n",
        expected.request, daemon.systemCalls, expected.systemCalls, floor.systemCalls, daemon.faults,
        expected.faults, floor.faults);
    if (daemon.systemCalls < 0) {
        (void)std::printf("bench: system calls were not counted: processes may not be traced here\n");
    }
    return (daemon.systemCalls < 0 || std::abs(daemon.systemCalls - expected.systemCalls) < 0.001) &&
           daemon.faults <= expected.faults;
}

bool areCountsExact() {
    bool isExact = true;
    for (const Count& expected : {Count{"?", 7, 0}, Count{"PRINT", 7, 0}, Count{"GET|go", 10, 5}}) {
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
    const int rounds = std::atoi(argv[2]);
    const bool isExact = areCountsExact();
    if (rounds > 0) {
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
    }
    if (!isExact) {
        fail("a request costs more than it must");
    }
    return 0;
}
