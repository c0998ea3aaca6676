#include "responder/webconsole/WebConsoleRegistration.h"

#include "foundation/streams/InputStreamFromFile.h"
#include "foundation/streams/OutputStreamToFile.h"
#include "responder/RuntimeNames.h"
#include "responder/paths/InstallationPaths.h"
#include "responder/paths/PathHelpers.h"

#include <sys/stat.h>

#include <cstddef>
#include <exception>
#include <limits>

namespace ZNORBRESPONDER {

namespace {

constexpr const char* descriptorFile = "znorb.xml";
constexpr const char* pageFile = "chp.htm";
constexpr const char* entryScriptFile = "ipcelmclient.php";
constexpr const char* requestorProgram = "znorbrequestor";

constexpr mode_t fileMode = 0644;
constexpr mode_t directoryMode = 0755;
constexpr mode_t programMode = 0755;
constexpr mode_t writableByOthers = 022;

/// The console's directories; those of the product lie below the last of them.
struct ConsoleDirectories {
    const std::string root = consoleRoot;
    const std::string descriptors = root + "webapp/";
    const std::string data = root + "data/";
    const std::string documents = data + "htdocs/";
    const std::string pages = documents + "ZNORB";
    const std::string programs = pages + "/bin";

    [[nodiscard]] bool areInstalled() const {
        return isDirectory(root) && isDirectory(descriptors) && isDirectory(data) && isDirectory(documents);
    }
};

void setMode(const std::string& path, mode_t mode) {
    (void)chmod(path.c_str(), mode); // a file that could not be copied has no mode to set
}

/// Keeps what is published from ever being writable by others: the daemon's own umask is 0, and the modes
/// are set only when the files are whole. It is the whole process's: no other thread makes files meanwhile,
/// and one at a time may register, or what is put back could be another's 022.
class RestrictedUmask {
public:
    RestrictedUmask() : m_previous(umask(writableByOthers)) {}
    RestrictedUmask(const RestrictedUmask&) = delete;
    RestrictedUmask& operator=(const RestrictedUmask&) = delete;
    ~RestrictedUmask() { (void)umask(m_previous); }

private:
    mode_t m_previous;
};

/// The stream of a file that can be opened and is a regular one; a stream that is not open otherwise. A
/// fifo or a device in a page's place would hold the daemon up.
Common::InputStreamFromFile openSource(const std::string& path) {
    return Common::InputStreamFromFile(isRegularFile(path) ? path.c_str() : "");
}

/// What is there and its mode, 0 where nothing is.
mode_t modeOf(const std::string& path) {
    struct stat status = {};
    (void)stat(path.c_str(), &status);
    return status.st_mode;
}

/// Takes the right to write from all but the owner of a file or directory that was there before, so that
/// nobody changes what is put there before its mode is set.
void closeToOthers(const std::string& path, mode_t mode) {
    if ((mode & writableByOthers) != 0) {
        setMode(path, mode & (07777 & ~writableByOthers));
    }
}

/// The stream of a file made or emptied; one that is not open when that fails or something else than a
/// regular file is in its place.
Common::OutputStreamToFile openDestination(const std::string& path) {
    const mode_t mode = modeOf(path);
    if (mode != 0 && !S_ISREG(mode)) {
        return {std::string(), false};
    }
    closeToOthers(path, mode);
    return {path, false};
}

/// As createDirectory(), and the directory is nobody's but the owner's to change then.
bool createOwnDirectory(const std::string& path) {
    if (!createDirectory(path)) {
        return false;
    }
    closeToOthers(path, modeOf(path));
    return true;
}

void publishPages(const ConsoleDirectories& console, const std::string& sources) {
    (void)copyFileTo(sources, console.pages, pageFile);
    fillTemplate(sources + "/" + entryScriptFile, console.pages + "/" + entryScriptFile);
    setMode(console.pages, directoryMode);
    setMode(console.pages + "/" + pageFile, fileMode);
    setMode(console.pages + "/" + entryScriptFile, fileMode);
}

void publishPrograms(const ConsoleDirectories& console, const std::string& executables) {
    (void)copyFileTo(executables, console.programs, requestorProgram);
    setMode(console.programs, directoryMode);
    setMode(console.programs + "/" + requestorProgram, programMode);
}

/// Everything that follows once the console is known to be installed.
void publish(const ConsoleDirectories& console) {
    const RestrictedUmask restricted;
    const std::string executables = getBinaryPath(productWord, "");
    const std::string sources = removeLastComponent(executables) + "/WBX";

    (void)copyFileTo(sources, console.descriptors, descriptorFile);
    setMode(console.descriptors + descriptorFile, fileMode);
    if (!createOwnDirectory(console.pages)) {
        return;
    }
    publishPages(console, sources);
    if (createOwnDirectory(console.programs)) {
        publishPrograms(console, executables);
    }
}

} // namespace

bool registerWebConsole() {
    bool isInstalled = false;
    try {
        const ConsoleDirectories console;
        isInstalled = console.areInstalled();
        if (isInstalled) {
            publish(console);
        }
    } catch (const std::exception&) {
        // Out of memory: the rest is not published. As with every other failure here, nobody is told.
    }
    return isInstalled;
}

void fillTemplate(const std::string& sourceFile, const std::string& destinationFile) {
    Common::InputStreamFromFile source = openSource(sourceFile);
    if (!source.isOpen()) {
        return;
    }
    std::string text;
    Common::InputStream::readBuffer(source, text);
    // One replacement per placeholder on purpose: later occurrences stay as they are.
    replaceFirst(text, "%ZNORB_BIN_PATH%", escapeBackslashes(getBinaryPath(productWord, "")));
    replaceFirst(text, "%ZNORB_HTML_PATH%", escapeBackslashes(getHtmlPath(productWord, "")));
    Common::OutputStreamToFile destination = openDestination(destinationFile);
    writeWhole(destination, text); // to nobody, when that could not be opened
}

bool copyFileTo(const std::string& sourceDirectory, const std::string& destinationDirectory,
                const std::string& fileName) {
    Common::InputStreamFromFile source =
        openSource(removeTrailingSeparators(sourceDirectory) + "/" + fileName);
    if (!source.isOpen()) {
        return false;
    }
    Common::OutputStreamToFile destination =
        openDestination(removeTrailingSeparators(destinationDirectory) + "/" + fileName);
    if (destination.isOpen()) {
        std::string content;
        Common::InputStream::readBuffer(source, content);
        writeWhole(destination, content);
    }
    return true;
}

void writeWhole(Common::OutputStream& destination, std::string_view text) {
    constexpr std::size_t longest = std::numeric_limits<unsigned>::max();
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, longest);
        destination.write(piece.data(), static_cast<unsigned>(piece.size()));
        text.remove_prefix(piece.size());
    }
}

} // namespace ZNORBRESPONDER
