/// What the documents say about the tree itself: files, scripts, links, the version.

#include "tests/docs/ManualPage.h"
#include "tests/docs/SourceTree.h"
#include "tests/support/Files.h"
#include "tests/support/Matchers.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

using namespace ZNORBTEST;

const std::vector<std::string> documents = {"README.md",
                                            "CONTRIBUTING.md",
                                            "CHANGELOG.md",
                                            "SECURITY.md",
                                            "docs/ARCHITECTURE.md",
                                            "docs/CAGES.md",
                                            "docs/PERFORMANCE.md",
                                            "docs/OPERATING.md",
                                            "docs/PROTOCOL.md",
                                            "docs/FAULTS.md",
                                            "docs/MOMENTS.md",
                                            "docs/PACKAGING.md",
                                            "docs/TROUBLESHOOTING.md",
                                            "docs/PORTABILITY.md"};

constexpr const char* layers[] = {"responder", "common", "foundation"};

bool isLayer(const std::string& entry) {
    return std::any_of(std::begin(layers), std::end(layers),
                       [&entry](const char* layer) { return entry == std::string(layer) + "/"; });
}

std::string withoutExtension(const std::string& name) {
    return name.substr(0, name.find('.'));
}

/// A file of the map or the tree: its folder, and its name without extension.
using Place = std::pair<std::string, std::string>;

/// What the file map has of the layers; "*" at the end of a name stands for any end.
std::set<Place> mappedPlaces() {
    std::set<Place> places;
    std::string layer;
    std::string wing;
    const std::string map = readSource("docs/ARCHITECTURE.md");
    for (const std::string& line : linesOf(map.substr(map.find("## File map")))) {
        const std::size_t depth = std::min(line.find_first_not_of(' '), line.size());
        const std::string entry = line.substr(depth, line.find("  ", depth) - depth);
        if (depth == 4) {
            layer = isLayer(entry) ? entry : "";
            wing.clear();
        } else if (depth == 6 && entry.ends_with('/')) {
            wing = entry;
        } else if (depth >= 6 && !layer.empty()) {
            wing = depth == 6 ? "" : wing;
            for (const std::string& name : matches(entry, "([A-Za-z]+\\*?)(?:\\.[a-z]+)?(?:, |$)")) {
                (void)places.emplace(layer + wing, name);
            }
        }
    }
    return places;
}

bool isMatched(const Place& file, const Place& mapped) {
    const std::string& name = mapped.second;
    return file.first == mapped.first &&
           (name.back() == '*' ? file.second.starts_with(name.substr(0, name.size() - 1))
                               : file.second == name);
}

TEST(FileMap, HasEveryFileOfTheLayersWhereItIsAndNoOther) {
    const std::set<Place> mapped = mappedPlaces();
    std::set<Place> files;
    for (const char* layer : layers) {
        for (const std::string& path : filesBelow(layer)) {
            const std::size_t slash = path.rfind('/') + 1;
            if (path.substr(slash) != "CMakeLists.txt") {
                (void)files.emplace(path.substr(0, slash), withoutExtension(path.substr(slash)));
            }
        }
    }
    for (const Place& file : files) {
        EXPECT_TRUE(std::any_of(mapped.begin(), mapped.end(),
                                [&file](const Place& place) { return isMatched(file, place); }))
            << file.first << file.second << " is not in the map";
    }
    for (const Place& place : mapped) {
        EXPECT_TRUE(std::any_of(files.begin(), files.end(),
                                [&place](const Place& file) { return isMatched(file, place); }))
            << place.second << " is not in " << place.first;
    }
}

TEST(FileMap, NamesFoldersThatExist) {
    const std::string map = readSource("docs/ARCHITECTURE.md");
    std::string above;
    unsigned count = 0;
    for (const std::string& line : linesOf(map.substr(map.find("## File map")))) {
        const std::size_t depth = std::min(line.find_first_not_of(' '), line.size());
        const std::string entry = line.substr(depth, line.find("  ", depth) - depth);
        for (const std::string& folder : matches(entry, "([a-z]+)/(?:,|$)")) {
            EXPECT_TRUE(exists(sourcePath((depth == 4 ? "" : above) + folder))) << above << folder;
            above = depth == 4 ? folder + "/" : above;
            ++count;
        }
    }
    EXPECT_GE(count, 35U);
}

TEST(ScriptMap, HasEveryScriptAndNoOther) {
    const std::string page = readSource("CONTRIBUTING.md");
    std::set<std::string> named;
    for (const std::string& name : matches(page, "`script/([a-z-]+)")) {
        (void)named.insert(name);
    }
    std::set<std::string> scripts;
    for (const std::string& path : filesBelow("script")) {
        if (!path.starts_with("script/parts/")) { // which only the others call
            (void)scripts.insert(path.substr(path.find('/') + 1));
        }
        EXPECT_TRUE((modeOf(sourcePath(path)) & 0111U) == 0111U) << path << " cannot be run";
    }
    EXPECT_EQ(named, scripts);
}

/// As the common forges make it of a heading's text.
std::string anchorOf(const std::string& heading) {
    std::string anchor;
    for (const char character : heading) {
        if (std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '-') {
            anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        } else if (character == ' ') {
            anchor += '-';
        }
    }
    return anchor;
}

std::vector<std::string> anchorsOf(const std::string& document) {
    std::vector<std::string> anchors;
    for (const std::string& heading : matches(readSource(document), "\n#+ ([^\n]+)")) {
        anchors.push_back(anchorOf(heading));
    }
    return anchors;
}

TEST(Links, LeadToFilesAndHeadingsThatExist) {
    unsigned count = 0;
    for (const std::string& document : documents) {
        const std::string folder = document.substr(0, document.rfind('/') + 1);
        for (const std::string& link : matches(readSource(document), R"(\]\(([^)]+)\))")) {
            if (link.starts_with("http")) {
                continue;
            }
            const std::string path = link.substr(0, link.find('#'));
            const std::string target = path.empty() ? document : folder + path;
            EXPECT_TRUE(exists(sourcePath(target))) << document << ": " << link;
            if (link.find('#') != std::string::npos && exists(sourcePath(target))) {
                EXPECT_THAT(anchorsOf(target), Contains(link.substr(link.find('#') + 1))) << document;
            }
            ++count;
        }
    }
    EXPECT_GE(count, 10U);
}

TEST(Documents, NameFilesThatExist) {
    // A path of the tree in backquotes: at least one folder, and a file's extension.
    const std::string path = "`((?:responder|common|foundation|include|examples|packaging|tests|docs|cmake)/"
                             "[A-Za-z0-9_./-]+\\.[a-z0-9]+)`";
    for (const std::string& document : documents) {
        for (const std::string& name : matches(readSource(document), path)) {
            EXPECT_TRUE(exists(sourcePath(name))) << document << ": " << name;
        }
    }
}

TEST(Changelog, BeginsWithTheVersionThatIsBuilt) {
    const std::vector<std::string> versions =
        matches(readSource("CHANGELOG.md"), R"(\n## \[([0-9.]+)\] - [0-9]{4}-[0-9]{2}-[0-9]{2}\n)");
    ASSERT_FALSE(versions.empty());
    EXPECT_EQ(versions[0], ZNORB_VERSION);
}

TEST(Readme, ShowsTheCommandsThatExist) {
    const std::string readme = readSource("README.md");
    for (const std::string& command : matches(readme, "\n    (script/[a-z-]+)")) {
        EXPECT_TRUE(exists(sourcePath(command))) << command;
    }
}

TEST(Documents, ShowPresetsThatExist) {
    const std::string presets = readSource("CMakePresets.json");
    unsigned count = 0;
    for (const std::string& document : documents) {
        for (const std::string& preset : matches(readSource(document), "--preset ([a-z]+)")) {
            EXPECT_THAT(presets, HasSubstr("\"name\": \"" + preset + "\"")) << document;
            ++count;
        }
    }
    EXPECT_GE(count, 3U);
}

TEST(Readme, IsShort) {
    EXPECT_LT(linesOf(readSource("README.md")).size(), 100U);
}

TEST(Readme, ListsEveryExitStatus) {
    const std::string readme = readSource("README.md");
    std::set<int> listed;
    for (const std::string& number : matches(readme, "\n\\| ([0-9]+) \\|")) {
        (void)listed.insert(std::stoi(number));
    }
    const std::set<int> constants = exitStatuses();
    EXPECT_EQ(listed, constants);
}

} // namespace
