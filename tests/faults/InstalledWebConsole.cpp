#include "tests/faults/InstalledWebConsole.h"

#include "tests/support/Files.h"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTEST;

constexpr const char* console = "/opt/zn/znwbx";
constexpr const char* sources = "/opt/zn/znorb/WBX";
constexpr const char* pageTemplate = "<?php $bin='%ZNORB_BIN_PATH%'; $html='%ZNORB_HTML_PATH%'; ?>\n";

/// How a page compares with what should be published.
std::string stateOf(const std::string& path, const std::string& wanted, mode_t mode) {
    if (!exists(path)) {
        return "missing";
    }
    const std::string content = readFile(path);
    std::string state = content == wanted                       ? "whole"
                        : content.empty()                       ? "empty"
                        : wanted.find(content) == 0             ? "cut short"
                        : content.find("znorb") != content.npos ? "other text"
                                                                : "other";
    return modeOf(path) == mode ? state : state + ", another mode";
}

} // namespace

InstalledWebConsole::InstalledWebConsole() {
    writeFile(std::string(sources) + "/znorb.xml", "<console/>\n");
    writeFile(std::string(sources) + "/chp.htm", "<html></html>\n");
    writeFile(std::string(sources) + "/ipcelmclient.php", pageTemplate);
    std::filesystem::create_directories(std::string(console) + "/webapp");
    std::filesystem::create_directories(std::string(console) + "/data/htdocs");
}

InstalledWebConsole::~InstalledWebConsole() {
    std::error_code error;
    (void)std::filesystem::remove_all(console, error);
    (void)std::filesystem::remove_all(sources, error);
}

std::string InstalledWebConsole::stateOfPages(const std::string& requestor) const {
    const std::string pages = std::string(console) + "/data/htdocs/ZNORB";
    const std::string filled = "<?php $bin='/opt/zn/znorb/bin'; $html='/opt/zn/znorb/HTML/ORB1'; ?>\n";
    const std::vector<std::pair<std::string, std::string>> states = {
        {"znorb.xml", stateOf(std::string(console) + "/webapp/znorb.xml", "<console/>\n", 0644)},
        {"chp.htm", stateOf(pages + "/chp.htm", "<html></html>\n", 0644)},
        {"ipcelmclient.php", stateOf(pages + "/ipcelmclient.php", filled, 0644)},
        {"znorbrequestor", stateOf(pages + "/bin/znorbrequestor", readFile(requestor), 0755)}};
    std::string result;
    for (const auto& [name, state] : states) {
        if (state != "whole") {
            result += (result.empty() ? "" : ", ") + name + " " + state;
        }
    }
    return result.empty() ? "whole" : result;
}

} // namespace ZNORBFAULTS
