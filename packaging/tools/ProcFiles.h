#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Reading what /proc tells, and keeping in mind what could not be read.
namespace ZNORBTOOLS {

/// Why nobody can tell whether a responder runs: what could not be looked at. An answer below that nobody
/// runs, uses or listens is worth nothing when there is doubt; an answer that somebody does is true all the
/// same.
class Doubt {
public:
    /// About a responder of this executable.
    explicit Doubt(const std::string& executable);

    bool exists() const { return !m_text.empty(); }
    const std::string& text() const { return m_text; }

    /// The first one stays.
    void add(const std::string& text);

    /// The path in /proc could not be read. No cause for doubt is a process that has gone, or one that root
    /// may not look into and that has another name: a responder keeps that of its executable.
    void note(const std::string& path, int error);

private:
    std::string m_name;
    std::string m_text;
};

std::string inProc(pid_t process, const std::string& name);

/// The path's last part.
std::string nameOf(const std::string& path);

/// Empty when the link cannot be read; errno tells why.
std::string linkTarget(const std::string& link);

/// A target too long for a path is that of no file which is looked for here.
std::string linkTarget(const std::string& link, Doubt& doubt);

/// Calls the function with each name in the directory, until it returns false.
void forEachName(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function);

/// Calls the function with each line of the file, its end cut off, until it returns false.
void forEachLine(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function);

/// The first fields of a line, and behind them the rest of it as one more. Fewer when the line ends before.
std::vector<std::string> splitLine(const std::string& line, std::size_t fields);

} // namespace ZNORBTOOLS
