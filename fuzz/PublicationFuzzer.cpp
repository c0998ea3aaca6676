#include "fuzz/support/Files.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "responder/webconsole/WebConsoleRegistration.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

const std::string root = "/opt/zn/znwbx";
const std::string documents = root + "/data/htdocs";
const std::string pages = documents + "/ZNORB";
const std::string programs = pages + "/bin";
const std::string executables = "/opt/zn/znorb/bin";
const std::string sources = "/opt/zn/znorb/WBX";

enum class State { Absent, Present, Fifo, Unwritable };

State stateOf(unsigned byte) {
    constexpr std::array<State, 4> states = {State::Absent, State::Present, State::Fifo, State::Unwritable};
    return states[byte % 4];
}

/// One file that is published.
struct Publication {
    Publication(std::string from, std::string to) : source(std::move(from)), destination(std::move(to)) {}

    std::string source;
    std::string destination;
    std::string content;
    State sourceState = State::Absent;
    State destinationState = State::Absent;
    mode_t permissions = 0; ///< of what is in the destination's place before

    [[nodiscard]] bool isCopied() const {
        return (sourceState == State::Present || sourceState == State::Unwritable) &&
               (destinationState == State::Absent || destinationState == State::Present);
    }
};

/// What the console is like before.
struct Scene {
    std::array<bool, 4> hasDirectory = {}; ///< the root, webapp, data, data/htdocs
    State pagesState = State::Absent;
    State programsState = State::Absent;
    mode_t permissions = 0; ///< of those two, when they are there before
    Publication descriptor = {sources + "/znorb.xml", root + "/webapp/znorb.xml"};
    Publication page = {sources + "/chp.htm", pages + "/chp.htm"};
    Publication script = {sources + "/ipcelmclient.php", pages + "/ipcelmclient.php"};
    Publication requestor = {executables + "/znorbrequestor", programs + "/znorbrequestor"};
};

/// What the daemon works on, the directories that it makes, and the umask under which the rest happens.
struct System {
    const Scene& scene;
    Files& files;
    std::vector<std::string> made;
    mode_t mask = 0; ///< the daemon's own
};

System* s_system = nullptr;

/// A directory can be had unless it is absent and cannot be made; whatever else has its name counts as it.
bool isMade(State state) {
    return state != State::Unwritable;
}

void arrange(const Publication& publication, Files& files) {
    if (publication.sourceState == State::Fifo) {
        files.addFifo(publication.source);
    } else if (publication.sourceState != State::Absent) {
        files.add(publication.source, publication.content);
    }
    if (publication.destinationState == State::Present) {
        files.add(publication.destination, "what was there before, and longer than what comes now");
        (void)files.setPermissions(publication.destination, publication.permissions);
    } else if (publication.destinationState == State::Fifo) {
        files.addFifo(publication.destination);
    } else if (publication.destinationState == State::Unwritable) {
        files.refuse(publication.destination);
    }
}

/// What has to come of it: whether the console is installed, the directories that are made, the files and the
/// permissions.
class Model {
public:
    Model(const Scene& scene, std::map<std::string, std::string> contents)
        : m_scene(scene), m_contents(std::move(contents)) {
        for (const bool isThere : scene.hasDirectory) {
            m_isInstalled = m_isInstalled && isThere;
        }
        if (m_isInstalled) {
            publish();
        }
    }

    void check(bool isInstalled, const System& system) const {
        requireEqual(isInstalled, m_isInstalled, "whether the console is installed");
        requireEqual(system.made, m_made, "the directories");
        require(system.files.contents() == m_contents, "the files");
        for (const auto& [path, permissions] : m_permissions) {
            const std::optional<mode_t> mode = system.files.modeOf(path);
            require(!mode || (*mode & 07777U) == permissions, "the permissions of what was published");
        }
        requireEqual(system.files.openCount(), 0U, "files left open");
        requireEqual(system.mask, 0U, "the umask afterwards");
    }

private:
    void publish() {
        copy(m_scene.descriptor, 0644);
        m_made.push_back(pages);
        if (!isMade(m_scene.pagesState)) {
            return;
        }
        copy(m_scene.page, 0644);
        copy(m_scene.script, 0644);
        m_permissions[pages] = 0755;
        m_made.push_back(programs);
        if (!isMade(m_scene.programsState)) {
            return;
        }
        copy(m_scene.requestor, 0755);
        m_permissions[programs] = 0755;
    }

    /// The permissions are set whether or not there was something to copy.
    void copy(const Publication& publication, mode_t permissions) {
        if (publication.isCopied()) {
            m_contents[publication.destination] = publication.content;
        }
        m_permissions[publication.destination] = permissions;
    }

    const Scene& m_scene;
    bool m_isInstalled = true;
    std::vector<std::string> m_made;
    std::map<std::string, std::string> m_contents;
    std::map<std::string, mode_t> m_permissions; ///< of what there is then
};

mode_t permissionsOf(unsigned byte) {
    constexpr std::array<mode_t, 4> permissions = {0644, 0666, 0600, 0777};
    return permissions[byte % 4];
}

void takeStates(Input& input, Publication& publication) {
    const unsigned states = input.byte();
    publication.sourceState = stateOf(states);
    publication.destinationState = stateOf(states / 4);
    publication.permissions = permissionsOf(states / 16);
}

Scene takeScene(Input& input) {
    Scene scene;
    const unsigned directories = input.byte();
    for (unsigned i = 0; i < scene.hasDirectory.size(); ++i) {
        scene.hasDirectory[i] = (directories >> i & 1U) == 0;
    }
    const unsigned made = input.byte();
    scene.pagesState = stateOf(made);
    scene.programsState = stateOf(made / 4);
    scene.permissions = permissionsOf(made / 16);
    for (Publication* publication : {&scene.descriptor, &scene.page, &scene.script, &scene.requestor}) {
        takeStates(input, *publication);
        // No placeholder: what filling does is another target's.
        publication->content = input.line() + publication->source;
    }
    return scene;
}

bool hasPlaceholder(const Scene& scene) {
    return scene.script.content.find("%ZNORB_") != std::string::npos;
}

} // namespace

// Publishing into the web console, whatever of it there is. The input: a byte with the console's directories
// that are missing, one with the states of the product's own, and for each of the four files a byte with the
// states of source and destination, and a line of content.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Scene scene = takeScene(input);
    if (hasPlaceholder(scene)) {
        return 0;
    }
    Files files;
    files.setExecutable(executables + "/znorbresponder");
    const std::array<std::string, 4> directories = {root, root + "/webapp", root + "/data", documents};
    for (std::size_t i = 0; i < directories.size(); ++i) {
        if (scene.hasDirectory[i]) {
            files.addDirectory(directories[i]);
        }
    }
    for (const Publication* publication : {&scene.descriptor, &scene.page, &scene.script, &scene.requestor}) {
        arrange(*publication, files);
    }
    for (const auto& [path, state] :
         {std::pair(pages, scene.pagesState), std::pair(programs, scene.programsState)}) {
        if (state == State::Present) {
            files.addDirectory(path);
            (void)files.setPermissions(path, scene.permissions);
        }
    }
    const Model model(scene, files.contents());
    System system = {scene, files, {}};
    s_system = &system;
    files.setNewPermissions(0666);
    files.setWriteHook([](mode_t permissions) {
        require((permissions & 022U) == 0, "nothing that others may write to is published");
    });
    const bool isInstalled = ZNORBRESPONDER::registerWebConsole();
    s_system = nullptr;
    model.check(isInstalled, system);
    return 0;
}

extern "C" mode_t umask(mode_t mask) noexcept {
    if (s_system == nullptr) {
        return static_cast<mode_t>(syscall(SYS_umask, mask));
    }
    s_system->files.setNewPermissions(0666 & ~mask);
    return std::exchange(s_system->mask, mask);
}

extern "C" int chmod(const char* file, mode_t mode) noexcept {
    require((mode & 022U) == 0, "nothing is made writable by others");
    errno = ENOENT;
    return s_system->files.setPermissions(file, mode) ? 0 : -1;
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    if (s_system == nullptr) {
        return static_cast<int>(syscall(SYS_mkdir, path, mode));
    }
    s_system->made.emplace_back(path);
    const State state = path == pages ? s_system->scene.pagesState : s_system->scene.programsState;
    errno = state == State::Unwritable ? EACCES : EEXIST;
    if (state != State::Absent) {
        return -1;
    }
    require((mode & ~s_system->mask & 022U) == 0, "no directory is made writable by others");
    s_system->files.addDirectory(path);
    (void)s_system->files.setPermissions(path, mode & ~s_system->mask);
    return 0;
}
