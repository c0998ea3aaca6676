#pragma once

#include "foundation/containers/Set.h"
#include "responder/CommandTables.h"

#include <span>
#include <string>
#include <vector>

/// The command line: words that begin with "-", each naming a command, a flag or a value option of the
/// tables that the caller passes. Nothing is ever printed for a rejected line. Main thread only.
namespace ZNORBRESPONDER {

inline constexpr int noRow = -1;

/// Index of the first row whose name equals `name` byte for byte, or `noRow`. An empty name matches an
/// empty row name only.
int findCommand(std::span<const CommandRow> commands, const std::string& name);
int findFlag(std::span<const FlagRow> flags, const std::string& name);
int findValueOption(std::span<ValueOptionRow> options, const std::string& name);

/// Parses the words (without the program's name) against the tables. True when the whole line was
/// accepted. Results go to `parsedCommandList`, `parsedCommandMap` and `parsedOptionSet`, which are
/// cleared first; after a false they, the flags and the values hold what had been read so far.
///
/// A line of options without any command stands for the table's row with the empty name, when there is
/// one. When the commands' `required` and `permitted` columns name any option, an option that neither
/// names is rejected.
bool parseCommandLine(const std::vector<std::string>& words, std::span<const CommandRow> commands,
                      std::span<const FlagRow> flags, std::span<ValueOptionRow> options);

/// Copies out the commands, in the order given, and the options of the last parse.
void getParsedCommandLine(std::vector<std::string>& commands, Common::set<std::string>& options);

} // namespace ZNORBRESPONDER
