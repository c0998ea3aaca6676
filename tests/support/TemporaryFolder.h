#pragma once

#include <string>

namespace ZNORBTEST {

/// A folder with a unique name below the temporary directory, empty at first; removed with all that is in
/// it at the end of its life.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Without a "/" at its end.
    const std::string& path() const { return m_path; }

    /// The path of `name` in the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

} // namespace ZNORBTEST
