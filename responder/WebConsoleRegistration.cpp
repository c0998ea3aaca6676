#include "responder/WebConsoleRegistration.h"

#include "foundation/InputStreamFromFile.h"
#include "foundation/OutputStreamToFile.h"
#include "responder/InstallationPaths.h"
#include "responder/PathHelpers.h"
#include "responder/RuntimeNames.h"

#include <sys/stat.h>

namespace ZNORBRESPONDER {

namespace {

constexpr const char* descriptorFile = "znorb.xml";
constexpr const char* pageFile = "chp.htm";
constexpr const char* entryScriptFile = "ipcelmclient.php";
constexpr const char* requestorProgram = "znorbrequestor";

constexpr mode_t fileMode = 0644;
constexpr mode_t directoryMode = 0755;
constexpr mode_t programMode = 0755;

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

/// Reads the whole file. False when it cannot be opened; only a regular file can: a fifo or a device in
/// a page's place would hold the daemon up.
bool readFile(const std::string& path, std::string& text) {
    if (!isRegularFile(path)) {
        return false;
    }
    Common::InputStreamFromFile source(path.c_str());
    if (!source.isOpen()) {
        return false;
    }
    Common::InputStream::readBuffer(source, text);
    return true;
}

void writeFile(const std::string& path, const std::string& text) {
    Common::OutputStreamToFile destination(path, false);
    if (destination.isOpen()) {
        destination.write(text.data(), static_cast<unsigned>(text.size()));
        destination.close();
    }
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

} // namespace

bool registerWebConsole() {
    const ConsoleDirectories console;
    if (!console.areInstalled()) {
        return false;
    }
    const std::string executables = getBinaryPath(productWord, "");
    const std::string sources = removeLastComponent(executables) + "/WBX";

    (void)copyFileTo(sources, console.descriptors, descriptorFile);
    setMode(console.descriptors + descriptorFile, fileMode);
    if (!createDirectory(console.pages)) {
        return true;
    }
    publishPages(console, sources);
    if (!createDirectory(console.programs)) {
        return true;
    }
    publishPrograms(console, executables);
    return true;
}

void fillTemplate(const std::string& sourceFile, const std::string& destinationFile) {
    std::string text;
    if (!readFile(sourceFile, text)) {
        return;
    }
    // One replacement per placeholder on purpose: later occurrences stay as they are.
    replaceFirst(text, "%ZNORB_BIN_PATH%", escapeBackslashes(getBinaryPath(productWord, "")));
    replaceFirst(text, "%ZNORB_HTML_PATH%", escapeBackslashes(getHtmlPath(productWord, "")));
    writeFile(destinationFile, text);
}

bool copyFileTo(const std::string& sourceDirectory, const std::string& destinationDirectory,
                const std::string& fileName) {
    std::string content;
    if (!readFile(removeTrailingSeparators(sourceDirectory) + "/" + fileName, content)) {
        return false;
    }
    writeFile(removeTrailingSeparators(destinationDirectory) + "/" + fileName, content);
    return true;
}

} // namespace ZNORBRESPONDER
