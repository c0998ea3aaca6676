#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "responder/paths/PathHelpers.h"

#include <string>

using namespace ZNORBFUZZ;

namespace {

constexpr int none = -1;

int lastOf(const std::string& text, char wanted) {
    int found = none;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == wanted) {
            found = static_cast<int>(i);
        }
    }
    return found;
}

std::string before(const std::string& text, int position) {
    return {text.begin(), text.begin() + position};
}

std::string from(const std::string& text, int position) {
    return {text.begin() + position, text.end()};
}

void checkNames(const std::string& path) {
    const int slash = lastOf(path, '/');
    const int backslash = lastOf(path, '\\');
    const int separator = slash != none ? slash : backslash;
    const int dot = lastOf(path, '.');
    const std::string name = separator == none ? "" : from(path, separator + 1);
    const std::string extension = dot == none ? "" : from(path, dot);
    requireEqual(ZNORBRESPONDER::getFileName(path), name, "file name");
    requireEqual(ZNORBRESPONDER::getExtension(path), extension, "extension");
    requireEqual(ZNORBRESPONDER::getDirectoryPart(path), separator == none ? "" : before(path, separator + 1),
                 "directory part");
    const int baseLength = static_cast<int>(name.size()) - static_cast<int>(extension.size());
    requireEqual(ZNORBRESPONDER::getBaseName(path), baseLength < 0 ? name : before(name, baseLength),
                 "base name");

    const int component = backslash != none ? backslash : slash;
    requireEqual(ZNORBRESPONDER::removeLastComponent(path),
                 component == none ? path : before(path, component), "path without its last component");
}

void checkSeparators(const std::string& path) {
    std::string trimmed = path;
    while (!trimmed.empty() && (trimmed.back() == '/' || trimmed.back() == '\\')) {
        trimmed.pop_back();
    }
    requireEqual(ZNORBRESPONDER::removeTrailingSeparators(path), trimmed,
                 "path without separators at its end");

    std::string single;
    const std::string escaped = ZNORBRESPONDER::escapeBackslashes(path);
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        single += escaped[i];
        if (escaped[i] == '\\') {
            ++i;
            require(i < escaped.size() && escaped[i] == '\\', "every backslash is doubled");
        }
    }
    requireEqual(single, path, "the text with its backslashes halved again");
}

void checkReplacement(const std::string& text, const std::string& find, const std::string& replacement) {
    int place = none;
    for (int i = 0; place == none && i + static_cast<int>(find.size()) <= static_cast<int>(text.size());
         ++i) {
        place = text.compare(static_cast<std::size_t>(i), find.size(), find) == 0 ? i : none;
    }
    const std::string expected =
        place == none ? text
                      : before(text, place) + replacement + from(text, place + static_cast<int>(find.size()));
    std::string actual = text;
    ZNORBRESPONDER::replaceFirst(actual, find, replacement);
    requireEqual(actual, expected, "text after the replacement");
}

} // namespace

// The helpers that work on the text of a path. The input, line by line: a path, what to find in it, what to
// put in its place.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string path = input.line();
    const std::string find = input.line();
    checkNames(path);
    checkSeparators(path);
    checkReplacement(path, find, input.rest());
    return 0;
}
