#include "responder/commands/CommandLine.h"

#include "responder/Globals.h"

#include <algorithm>

namespace ZNORBRESPONDER {

namespace {

template <typename Row>
int findRow(std::span<Row> table, const std::string& name) {
    const auto row =
        std::find_if(table.begin(), table.end(), [&name](const Row& each) { return each.name == name; });
    return row == table.end() ? noRow : static_cast<int>(row - table.begin());
}

void appendNames(const std::string& column, std::vector<std::string>& names) {
    if (column.empty()) {
        return;
    }
    std::string::size_type start = 0;
    for (auto bar = column.find('|'); bar != std::string::npos; bar = column.find('|', start)) {
        names.push_back(column.substr(start, bar - start));
        start = bar + 1;
    }
    names.push_back(column.substr(start));
}

bool isGiven(const std::string& option) {
    return parsedOptionSet.find(option) != parsedOptionSet.end();
}

/// One pass over one line. The results outlive it in the daemon's globals.
class CommandLineParser {
public:
    CommandLineParser(std::span<const CommandRow> commands, std::span<const FlagRow> flags,
                      std::span<ValueOptionRow> options)
        : m_commands(commands), m_flags(flags), m_options(options) {}

    bool parse(const std::vector<std::string>& words) {
        const bool allAccepted =
            std::all_of(words.begin(), words.end(), [this](const std::string& word) { return accept(word); });
        if (!allAccepted || m_waiting != nullptr) {
            return false;
        }
        applyDefaultCommand();
        return areConstraintsMet();
    }

private:
    bool accept(const std::string& word) {
        if (m_waiting != nullptr) {
            return acceptValue(word);
        }
        if (!word.starts_with('-')) {
            return false;
        }
        const std::string name = word.substr(1);
        return acceptCommand(name) || acceptFlag(name) || acceptValueOption(name);
    }

    bool acceptValue(const std::string& word) {
        if (word.starts_with('-') && isKnown(word.substr(1))) {
            return false;
        }
        m_waiting->value = word;
        m_waiting = nullptr;
        return true;
    }

    bool acceptCommand(const std::string& name) {
        const int row = findCommand(m_commands, name);
        if (row == noRow || !mayFollow(name)) {
            return false;
        }
        record(static_cast<unsigned>(row));
        return true;
    }

    bool acceptFlag(const std::string& name) {
        const int row = findCommand(m_commands, name) == noRow ? findFlag(m_flags, name) : noRow;
        if (row == noRow) {
            return false;
        }
        *m_flags[static_cast<std::size_t>(row)].target = true;
        (void)parsedOptionSet.insert(name);
        return true;
    }

    /// REQUIRES: acceptFlag() has rejected the name.
    bool acceptValueOption(const std::string& name) {
        const int row = findCommand(m_commands, name) == noRow ? findValueOption(m_options, name) : noRow;
        if (row == noRow) {
            return false;
        }
        m_waiting = &m_options[static_cast<std::size_t>(row)];
        (void)parsedOptionSet.insert(name);
        return true;
    }

    [[nodiscard]] bool isKnown(const std::string& name) const {
        return findCommand(m_commands, name) != noRow || findFlag(m_flags, name) != noRow ||
               findValueOption(m_options, name) != noRow;
    }

    /// A command may be given once, and after others only if each of them admits it. An empty column
    /// admits nothing, not even the command with the empty name.
    [[nodiscard]] bool mayFollow(const std::string& name) const {
        return std::all_of(
            parsedCommandList.begin(), parsedCommandList.end(), [this, &name](const std::string& earlier) {
                const std::string& companions =
                    m_commands[static_cast<std::size_t>(findCommand(m_commands, earlier))].companions;
                return earlier != name && !companions.empty() && companions.find(name) != std::string::npos;
            });
    }

    void record(unsigned row) {
        const CommandRow& command = m_commands[row];
        parsedCommandList.push_back(command.name);
        (void)parsedCommandMap.insert(command.name, row);
        appendNames(command.required, m_required);
        appendNames(command.required, m_permitted);
        appendNames(command.permitted, m_permitted);
    }

    void applyDefaultCommand() {
        if (!parsedCommandList.empty() || parsedOptionSet.begin() == parsedOptionSet.end()) {
            return;
        }
        const int row = findCommand(m_commands, std::string());
        if (row != noRow) {
            record(static_cast<unsigned>(row));
        }
    }

    [[nodiscard]] bool areConstraintsMet() const {
        if (!std::all_of(m_required.begin(), m_required.end(), isGiven)) {
            return false;
        }
        return m_permitted.empty() ||
               std::all_of(parsedOptionSet.begin(), parsedOptionSet.end(), [this](const std::string& option) {
                   return std::find(m_permitted.begin(), m_permitted.end(), option) != m_permitted.end();
               });
    }

    const std::span<const CommandRow> m_commands;
    const std::span<const FlagRow> m_flags;
    const std::span<ValueOptionRow> m_options;
    ValueOptionRow* m_waiting = nullptr; ///< the option that the next word is the value of
    std::vector<std::string> m_required;
    std::vector<std::string> m_permitted;
};

} // namespace

int findCommand(std::span<const CommandRow> commands, const std::string& name) {
    return findRow(commands, name);
}

int findFlag(std::span<const FlagRow> flags, const std::string& name) {
    return findRow(flags, name);
}

int findValueOption(std::span<ValueOptionRow> options, const std::string& name) {
    return findRow(options, name);
}

bool parseCommandLine(const std::vector<std::string>& words, std::span<const CommandRow> commands,
                      std::span<const FlagRow> flags, std::span<ValueOptionRow> options) {
    parsedCommandList.clear();
    parsedCommandMap.clear();
    parsedOptionSet.clear();
    return CommandLineParser(commands, flags, options).parse(words);
}

void getParsedCommandLine(std::vector<std::string>& commands, Common::set<std::string>& options) {
    commands = parsedCommandList;
    options = parsedOptionSet;
}

} // namespace ZNORBRESPONDER
