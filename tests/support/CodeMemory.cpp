#include "tests/support/CodeMemory.h"

#include "tests/support/Processes.h"

#include <cstdlib>
#include <fstream>
#include <string>

namespace ZNORBTEST {

unsigned long residentCode(pid_t pid) {
    const std::string program = programOf(pid);
    std::ifstream maps("/proc/" + std::to_string(pid) + "/smaps");
    unsigned long sum = 0;
    bool isCode = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.find(" r-xp ") != std::string::npos) {
            isCode = line.ends_with(program);
        } else if (isCode && line.starts_with("Rss:")) {
            sum += std::strtoul(line.c_str() + 4, nullptr, 10);
            isCode = false;
        }
    }
    return sum;
}

} // namespace ZNORBTEST
