#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "responder/Globals.h"
#include "responder/commands/CommandLine.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;
using ZNORBRESPONDER::CommandRow;
using ZNORBRESPONDER::FlagRow;
using ZNORBRESPONDER::ValueOptionRow;

namespace {

/// The tables and the words of one run, as the lines of the input give them.
struct Scene {
    std::vector<CommandRow> commands;
    std::vector<FlagRow> flags;
    std::deque<bool> targets; ///< the flags', in their order
    std::vector<ValueOptionRow> options;
    std::vector<std::string> words;
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

void addLine(const std::string& line, Scene& scene) {
    const std::string text = line.substr(std::min<std::size_t>(line.size(), 1));
    switch (line.empty() ? '\0' : line.front()) {
    case 'c': {
        std::vector<std::string> columns = split(text, ',');
        columns.resize(4);
        scene.commands.push_back({columns[0], columns[1], columns[2], columns[3]});
        break;
    }
    case 'f':
        scene.targets.push_back(false);
        scene.flags.push_back({text, &scene.targets.back()});
        break;
    case 'v':
        scene.options.push_back({text, "unset"});
        break;
    default:
        scene.words.push_back(line);
    }
}

/// The line read word by word as the rules have it, without any of the parser's code.
class Model {
public:
    explicit Model(const Scene& scene) : m_scene(scene), m_flags(scene.flags.size(), false) {
        for (const ValueOptionRow& option : scene.options) {
            m_values.push_back(option.value);
        }
    }

    /// Whether the line is accepted. Once, before check().
    bool parse() {
        for (std::size_t i = 0; i < m_scene.words.size(); ++i) {
            const std::string& word = m_scene.words[i];
            if (word.empty() || word[0] != '-' || !takeName(word.substr(1), i)) {
                return false;
            }
        }
        if (m_commands.empty() && !m_options.empty() && kindOf("") == Kind::Command) {
            takeCommand("");
        }
        return areOptionsAdmitted();
    }

    /// The results beside whether it is accepted.
    void check() const {
        std::vector<std::string> commands;
        Common::set<std::string> options;
        ZNORBRESPONDER::getParsedCommandLine(commands, options);
        requireEqual(commands, m_commands, "commands");
        require(std::equal(options.begin(), options.end(), m_options.begin(), m_options.end()),
                "the options");
        std::map<std::string, unsigned> rows;
        for (const auto& entry : ZNORBRESPONDER::parsedCommandMap) {
            rows.emplace(entry.first, entry.second);
        }
        require(rows == m_rows, "the commands' rows");
        for (std::size_t i = 0; i < m_flags.size(); ++i) {
            requireEqual(m_scene.targets[i], m_flags[i], "flag");
        }
        for (std::size_t i = 0; i < m_values.size(); ++i) {
            requireEqual(m_scene.options[i].value, m_values[i], "value of an option");
        }
    }

private:
    enum class Kind { Unknown, Command, Flag, Option };

    template <typename Rows>
    static std::size_t rowOf(const Rows& rows, const std::string& name) {
        std::size_t row = 0;
        while (row < rows.size() && rows[row].name != name) {
            ++row;
        }
        return row;
    }

    [[nodiscard]] Kind kindOf(const std::string& name) const {
        if (rowOf(m_scene.commands, name) < m_scene.commands.size()) {
            return Kind::Command;
        }
        if (rowOf(m_scene.flags, name) < m_scene.flags.size()) {
            return Kind::Flag;
        }
        return rowOf(m_scene.options, name) < m_scene.options.size() ? Kind::Option : Kind::Unknown;
    }

    /// A value option takes its value too: `i` is the last word taken.
    bool takeName(const std::string& name, std::size_t& i) {
        const Kind kind = kindOf(name);
        if (kind == Kind::Unknown || (kind == Kind::Command && !isAdmitted(name))) {
            return false;
        }
        if (kind == Kind::Command) {
            takeCommand(name);
            return true;
        }
        m_options.insert(name);
        if (kind == Kind::Flag) {
            m_flags[rowOf(m_scene.flags, name)] = true;
            return true;
        }
        ++i;
        if (i == m_scene.words.size()) {
            return false;
        }
        const std::string& value = m_scene.words[i];
        if (!value.empty() && value[0] == '-' && kindOf(value.substr(1)) != Kind::Unknown) {
            return false;
        }
        m_values[rowOf(m_scene.options, name)] = value;
        return true;
    }

    [[nodiscard]] bool isAdmitted(const std::string& name) const {
        return std::all_of(m_commands.begin(), m_commands.end(), [this, &name](const std::string& earlier) {
            const std::string& companions = m_scene.commands[rowOf(m_scene.commands, earlier)].companions;
            // Nothing occurs in an empty column, not even an empty name.
            return earlier != name && !companions.empty() && companions.find(name) != std::string::npos;
        });
    }

    void takeCommand(const std::string& name) {
        m_commands.push_back(name);
        m_rows[name] = static_cast<unsigned>(rowOf(m_scene.commands, name));
    }

    /// Everything required is there, and what is there is required or permitted, unless nothing is.
    [[nodiscard]] bool areOptionsAdmitted() const {
        std::set<std::string> required;
        std::set<std::string> named;
        for (const std::string& command : m_commands) {
            const CommandRow& row = m_scene.commands[rowOf(m_scene.commands, command)];
            if (!row.required.empty()) {
                const std::vector<std::string> names = split(row.required, '|');
                required.insert(names.begin(), names.end());
            }
            if (!row.permitted.empty()) {
                const std::vector<std::string> names = split(row.permitted, '|');
                named.insert(names.begin(), names.end());
            }
        }
        named.insert(required.begin(), required.end());
        return std::includes(m_options.begin(), m_options.end(), required.begin(), required.end()) &&
               (named.empty() ||
                std::includes(named.begin(), named.end(), m_options.begin(), m_options.end()));
    }

    const Scene& m_scene;
    std::vector<std::string> m_commands;
    std::map<std::string, unsigned> m_rows;
    std::set<std::string> m_options;
    std::vector<bool> m_flags;
    std::vector<std::string> m_values;
};

} // namespace

// The command line against tables that use every column. The input, line by line: "c" and the four columns of
// a command with "," between them, "f" and a flag, "v" and a value option; every other line is a word.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Scene scene;
    while (!input.isEmpty()) {
        addLine(input.line(), scene);
    }
    Model model(scene);
    const bool isExpected = model.parse();
    const bool isAccepted =
        ZNORBRESPONDER::parseCommandLine(scene.words, scene.commands, scene.flags, scene.options);
    requireEqual(isAccepted, isExpected, "whether the line was accepted");
    model.check();
    return 0;
}
