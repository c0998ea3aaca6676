#include "tests/tracing/Execution.h"

#include <fcntl.h>
#include <sys/personality.h>
#include <unistd.h>

#include <vector>

namespace ZNORBTRACING {

void execute(const ZNORBTEST::Launch& launch, int input, int output) {
    std::vector<std::string> words = {launch.program};
    words.insert(words.end(), launch.arguments.begin(), launch.arguments.end());
    const std::vector<char*> argv = ZNORBTEST::argumentsOf(words);
    (void)dup2(input != -1 ? input : open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
    (void)personality(ADDR_NO_RANDOMIZE); // the same calls for memory in every life
    (void)execv(launch.program.c_str(), argv.data());
}

} // namespace ZNORBTRACING
