// What the benchmarks read about their own process's memory.
#pragma once

#include <fstream>
#include <string>

namespace bench {

// A line of /proc/self/status in kB ("VmRSS:", "VmHWM:"), -1 when missing.
inline long statusKb(const std::string& key) {
    std::ifstream f("/proc/self/status");
    std::string line;
    while (std::getline(f, line))
        if (line.rfind(key, 0) == 0) return std::stol(line.substr(key.size() + 1));
    return -1;
}

}  // namespace bench
