#include "responder/paths/InstallationPaths.h"

#include "responder/RuntimeNames.h"
#include "responder/paths/PathHelpers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace ZNORBRESPONDER {

namespace {

std::string executableDirectory(const char* link) {
    char target[80]; // the cut at 80 bytes is deliberate
    const ssize_t length = readlink(link, target, sizeof target);
    return length > 0 ? removeLastComponent(std::string(target, static_cast<std::size_t>(length)))
                      : std::string();
}

std::string htmlVariant(const std::string& product) {
    if (product == productWord) {
        return "ORB1";
    }
    return product == "ris" ? "RIS" : "";
}

} // namespace

std::string getBinaryPath(const std::string& product, const std::string& subdirectory) {
    char link[32];
    (void)std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(getpid()));
    struct stat status = {};
    std::string directory =
        stat(link, &status) != 0 ? "/opt/zn/" + product + "/bin" : executableDirectory(link);
    directory = removeTrailingSeparators(directory);
    return subdirectory.empty() ? directory : directory + "/" + subdirectory;
}

std::string getHtmlPath(const std::string& product, const std::string& subPath) {
    const char* configured = std::getenv(htmlPathVariable);
    std::string path = configured != nullptr ? configured : "";
    if (path.empty()) {
        path = removeLastComponent(getBinaryPath(product, "")) + "/HTML/" + htmlVariant(product);
    }
    if (!subPath.empty()) {
        path += subPath.front() == '/' ? subPath : "/" + subPath;
    }
    return path;
}

} // namespace ZNORBRESPONDER
