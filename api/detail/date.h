// Today's date as month/day/two-digit year ("11/22/26"), the form the file
// formats write as default titles and in the VRML header.
#pragma once

#include <ctime>
#include <string>

namespace tundrel {

inline std::string strdate() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char buf[16];
    std::strftime(buf, sizeof buf, "%m/%d/%y", &local);
    return buf;
}

}  // namespace tundrel
