#include "tests/faults/Report.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

namespace ZNORBFAULTS {
namespace {

constexpr const char* unexpected = "UNEXPECTED";

std::string nameOf(const Result& result) {
    const Expectation* expectation = findExpectation(result.incident);
    return expectation == nullptr ? unexpected : expectation->name;
}

/// A file to write to, closed at its end. What cannot be written shows in the file that is not there.
class File {
public:
    explicit File(const std::string& path) : m_file(std::fopen(path.c_str(), "w")) {
        if (m_file == nullptr) {
            std::perror(path.c_str());
        }
    }
    ~File() {
        if (m_file != nullptr) {
            (void)std::fclose(m_file);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    void writeRow(const std::vector<std::string>& cells) const {
        std::string line = "|";
        for (const std::string& cell : cells) {
            line += " " + (cell.empty() ? "-" : cell) + " |";
        }
        writeLine(line);
    }
    void writeLine(const std::string& line) const {
        if (m_file != nullptr) {
            (void)std::fprintf(m_file, "%s\n", line.c_str());
        }
    }

private:
    std::FILE* m_file;
};

std::string joined(const std::vector<std::string>& parts, std::size_t most) {
    std::string text;
    for (std::size_t i = 0; i < std::min(parts.size(), most); ++i) {
        text += (i == 0 ? "" : ", ") + parts[i];
    }
    return parts.size() > most ? text + " and " + std::to_string(parts.size() - most) + " more" : text;
}

void addOnce(std::vector<std::string>& list, const std::string& text) {
    if (!text.empty() && std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

/// What the injections of one process into one call with one outcome have in common.
struct Row {
    std::string role;
    std::string call;
    std::string outcome;
    std::vector<std::string> objects;
    std::vector<std::string> faults;
    std::size_t count = 0;
};

/// In the order of the processes, then of their calls.
std::vector<Row> condense(const std::vector<Result>& results) {
    std::vector<Row> rows;
    std::vector<std::string> roles;
    for (const Result& result : results) {
        const Incident& incident = result.incident;
        const std::string outcome = nameOf(result);
        auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& known) {
            return known.role == incident.role && known.call == incident.call && known.outcome == outcome;
        });
        if (row == rows.end()) {
            row = rows.insert(rows.end(), {incident.role, incident.call, outcome, {}, {}, 0});
        }
        addOnce(roles, incident.role);
        addOnce(row->objects, incident.object);
        addOnce(row->faults, incident.fault);
        ++row->count;
    }
    std::stable_sort(rows.begin(), rows.end(), [&roles](const Row& a, const Row& b) {
        return std::find(roles.begin(), roles.end(), a.role) < std::find(roles.begin(), roles.end(), b.role);
    });
    return rows;
}

/// Pairs of an outcome and a reason for it, each once.
std::set<std::pair<std::string, std::string>> reasonsIn(const std::vector<Result>& results) {
    std::set<std::pair<std::string, std::string>> reasons;
    for (const Result& result : results) {
        const Expectation* expectation = findExpectation(result.incident);
        if (expectation != nullptr && expectation->reason[0] != '\0') {
            reasons.emplace(expectation->name, expectation->reason);
        }
    }
    return reasons;
}

} // namespace

void writeTable(const std::vector<Result>& results, const std::string& path) {
    const File file(path);
    file.writeRow(
        {"Life", "Process", "Call", "On", "Number", "Fault", "Difference to a life without", "Verdict"});
    file.writeRow({"---", "---", "---", "---", "---", "---", "---", "---"});
    for (const Result& result : results) {
        const Incident& incident = result.incident;
        file.writeRow({result.life, incident.role, incident.call, incident.object,
                       std::to_string(result.occurrence), incident.fault, incident.outcome,
                       result.isInjected ? nameOf(result) : "not reached"});
    }
}

void writeDocument(const std::vector<Result>& results, const std::string& path) {
    const File file(path);
    file.writeRow({"Process", "Call", "On", "Faults", "Injections", "Outcome"});
    file.writeRow({"---", "---", "---", "---", "--:", "---"});
    for (const Row& row : condense(results)) {
        file.writeRow({row.role, row.call, joined(row.objects, 4), joined(row.faults, 20),
                       std::to_string(row.count), row.outcome});
    }
    file.writeLine("");
    file.writeLine("Why the outcomes other than \"as ever\" are right:");
    file.writeLine("");
    for (const auto& [name, reason] : reasonsIn(results)) {
        file.writeLine("- *" + name + "*: " + reason);
    }
}

bool printSummary(const std::string& campaign, const std::vector<Result>& results) {
    std::map<std::string, std::size_t> counts;
    std::size_t missed = 0;
    std::size_t defects = 0;
    for (const Result& result : results) {
        const std::string name = result.isInjected ? nameOf(result) : "not reached";
        ++counts[name];
        if (!result.isInjected || name == unexpected) {
            (result.isInjected ? defects : missed) += 1;
            std::printf("%s: %s %s (%s) number %u, %s, life ended by %s: %s\n", name.c_str(),
                        result.incident.role.c_str(), result.incident.call.c_str(),
                        result.incident.object.c_str(), result.occurrence, result.incident.fault.c_str(),
                        result.life.c_str(), result.incident.outcome.c_str());
        }
    }
    for (const auto& [name, count] : counts) {
        std::printf("  %5zu  %s\n", count, name.c_str());
    }
    std::printf("znorb-faults: %s: %zu faults, %zu with an unexpected outcome, %zu not reached\n",
                campaign.c_str(), results.size(), defects, missed);
    return defects == 0 && missed == 0;
}

} // namespace ZNORBFAULTS
