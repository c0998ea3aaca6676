#include "fuzz/support/Files.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "responder/paths/InstallationPaths.h"
#include "responder/webconsole/WebConsoleRegistration.h"

#include <map>
#include <string>

using namespace ZNORBFUZZ;

namespace {

constexpr const char* binaryPlaceholder = "%ZNORB_BIN_PATH%";
constexpr const char* htmlPlaceholder = "%ZNORB_HTML_PATH%";
constexpr std::size_t linkLimit = 80;

/// The scene: what is installed where, and what happens to the files.
struct Scene {
    bool hasProc = false;
    std::string executable;
    bool hasVariable = false;
    std::string variable;
    bool hasSource = false;
    char destination = '\0'; ///< 'r' cannot be opened, 'f' is a fifo, 'o' exists already
    std::string page;
};

std::string cutAt(const std::string& text, char first, char second) {
    std::size_t place = text.rfind(first);
    place = place == std::string::npos ? text.rfind(second) : place;
    return text.substr(0, place);
}

std::string doubled(const std::string& text) {
    std::string result;
    for (const char character : text) {
        result += std::string(character == '\\' ? 2 : 1, character);
    }
    return result;
}

std::string binaryModel(const Scene& scene) {
    std::string directory = "/opt/zn/znorb/bin";
    if (scene.hasProc) {
        const std::string target = scene.executable.substr(0, linkLimit);
        directory = target.find_first_of("/\\") == std::string::npos ? target : cutAt(target, '\\', '/');
    }
    while (!directory.empty() && (directory.back() == '/' || directory.back() == '\\')) {
        directory.pop_back();
    }
    return directory;
}

std::string htmlModel(const Scene& scene) {
    if (scene.hasVariable && !scene.variable.empty()) {
        return scene.variable;
    }
    return cutAt(binaryModel(scene), '\\', '/') + "/HTML/ORB1";
}

void fillFirst(std::string& text, const std::string& placeholder, const std::string& value) {
    for (std::size_t i = 0; i + placeholder.size() <= text.size(); ++i) {
        if (text.compare(i, placeholder.size(), placeholder) == 0) {
            const std::string behind = text.substr(i + placeholder.size());
            text.resize(i);
            text += value + behind;
            return;
        }
    }
}

std::string filledModel(const Scene& scene) {
    std::string text = scene.page;
    fillFirst(text, binaryPlaceholder, doubled(binaryModel(scene)));
    fillFirst(text, htmlPlaceholder, doubled(htmlModel(scene)));
    return text;
}

/// Puts the scene's files where the operation looks for them, and says what has to be there afterwards.
std::map<std::string, std::string> arrange(const Scene& scene, const std::string& source,
                                           const std::string& destination, const std::string& result,
                                           Files& files) {
    if (scene.hasSource) {
        files.add(source, scene.page);
    }
    if (scene.destination == 'o') {
        files.add(destination, "what was there before, and longer than what comes now");
    } else if (scene.destination == 'f') {
        files.addFifo(destination);
    } else if (scene.destination == 'r') {
        files.refuse(destination);
    }
    std::map<std::string, std::string> expected = files.contents();
    if (scene.hasSource && scene.destination != 'f' && scene.destination != 'r') {
        expected[destination] = result;
    }
    return expected;
}

void checkPaths(const Scene& scene) {
    const std::string binary = binaryModel(scene);
    requireEqual(ZNORBRESPONDER::getBinaryPath("znorb", ""), binary, "binary path");
    requireEqual(ZNORBRESPONDER::getBinaryPath("znorb", "sub"), binary + "/sub", "path of a subdirectory");
    const std::string html = htmlModel(scene);
    requireEqual(ZNORBRESPONDER::getHtmlPath("znorb", ""), html, "HTML path");
    requireEqual(ZNORBRESPONDER::getHtmlPath("znorb", "sub"), html + "/sub", "HTML path of a sub path");
    requireEqual(ZNORBRESPONDER::getHtmlPath("znorb", "/sub"), html + "/sub", "HTML path of a sub path");
}

void configure(const Scene& scene, Files& files) {
    if (scene.hasProc) {
        files.setExecutable(scene.executable);
    }
    if (scene.hasVariable) {
        files.setHtmlPath(scene.variable);
    }
}

void checkFilling(const Scene& scene) {
    Files files;
    configure(scene, files);
    checkPaths(scene);
    const auto expected = arrange(scene, "/fuzzed/from", "/fuzzed/to", filledModel(scene), files);
    ZNORBRESPONDER::fillTemplate("/fuzzed/from", "/fuzzed/to");
    require(files.contents() == expected, "the files after filling a template");
    requireEqual(files.openCount(), 0U, "files left open");
}

void checkCopying(const Scene& scene) {
    Files files;
    configure(scene, files);
    const auto expected = arrange(scene, "/fuzzed/from/page", "/fuzzed/to/page", scene.page, files);
    requireEqual(ZNORBRESPONDER::copyFileTo("/fuzzed/from/\\/", "/fuzzed/to", "page"), scene.hasSource,
                 "whether the source could be opened");
    require(files.contents() == expected, "the files after a copy");
    requireEqual(files.openCount(), 0U, "files left open");
}

} // namespace

// Filling templates and copying files, and the paths that go into a template. The input, line by line: the
// switches ("p" there is a proc file system, "v" the variable is set, "s" there is a source; "r", "f", "o"
// for the destination), the executable, the variable; then the page.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Scene scene;
    for (const char character : input.line()) {
        scene.hasProc = scene.hasProc || character == 'p';
        scene.hasVariable = scene.hasVariable || character == 'v';
        scene.hasSource = scene.hasSource || character == 's';
        scene.destination =
            character == 'r' || character == 'f' || character == 'o' ? character : scene.destination;
    }
    scene.executable = input.line();
    const std::string variable = input.line();
    scene.variable = variable.substr(0, variable.find('\0'));
    scene.page = input.rest();
    checkFilling(scene);
    checkCopying(scene);
    return 0;
}
