#pragma once

#include <string>

/// The types of the rows in the command line's tables; the daemon's own tables are in Globals.cpp. A table is
/// a span of rows, which the parser does not own.
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

} // namespace ZNORBRESPONDER
