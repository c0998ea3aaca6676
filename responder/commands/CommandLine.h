#pragma once

#include "foundation/containers/Set.h"

#include <string>
#include <vector>

/// The command line: words that begin with "-", each naming a command, a flag or a value option of the
/// tables that the caller passes. Nothing is ever printed for a rejected line. Main thread only.
namespace ZNORBRESPONDER {

/// One command: its name and three constraint columns, lists of names separated by "|". An empty column
/// constrains nothing, except that an empty `companions` lets no other command follow.
struct CommandRow {
    std::string name;
    std::string required;   ///< options that must be given with the command
    std::string permitted;  ///< further options that may be given with it
    std::string companions; ///< text in which the name of every later command must occur
};

/// One flag: when `name` is given, `*target` becomes true. The bool is not owned.
struct FlagRow {
    std::string name;
    bool* target;
};

/// One value option: the word after `name` is stored into `value`.
struct ValueOptionRow {
    std::string name;
    std::string value;
};

/// A table as the parser takes it: `count` rows from `rows`, not owned; null with a count of 0 for none.
template <typename Row>
struct Table {
    Row* rows = nullptr;
    unsigned count = 0;
};

inline constexpr int noRow = -1;

/// Index of the first row whose name equals `name` byte for byte, or `noRow`. An empty name matches an
/// empty row name only.
int findCommand(const Table<const CommandRow>& commands, const std::string& name);
int findFlag(const Table<const FlagRow>& flags, const std::string& name);
int findValueOption(const Table<ValueOptionRow>& options, const std::string& name);

/// Parses the words (without the program's name) against the tables. True when the whole line was
/// accepted. Results go to `parsedCommandList`, `parsedCommandMap` and `parsedOptionSet`, which are
/// cleared first; after a false they, the flags and the values hold what had been read so far.
///
/// A line of options without any command stands for the table's row with the empty name, when there is
/// one. When the commands' `required` and `permitted` columns name any option, an option that neither
/// names is rejected.
bool parseCommandLine(const std::vector<std::string>& words, const Table<const CommandRow>& commands,
                      const Table<const FlagRow>& flags, const Table<ValueOptionRow>& options);

/// Copies out the commands, in the order given, and the options of the last parse.
void getParsedCommandLine(std::vector<std::string>& commands, Common::set<std::string>& options);

} // namespace ZNORBRESPONDER
