// Shared pieces of the fuzz targets: the input as a file on disk (the readers
// take file names, as users call them), a host that keeps the messages, and
// the invariants every successful or failed read must leave behind.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "api/TundrelApi.h"

namespace fuzzutil {

// Writes the input to a file of this process with the given extension.
inline std::string inputFile(const std::uint8_t* data, std::size_t size, const char* extension) {
    static const std::string dir = [] {
        const char* shm = "/dev/shm";
        return std::string(::access(shm, W_OK) == 0 ? shm : "/tmp");
    }();
    const std::string path = dir + "/tundrel_fuzz_" + std::to_string(::getpid()) + "." + extension;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) std::abort();
    if (size > 0 && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
    return path;
}

// Installed once: messages are kept (and dropped), dialogs cancelled.
inline tundrel::ScriptedHost& quietHost() {
    static tundrel::ScriptedHost host;
    static tundrel::HostScope scope(host);
    host.messages.clear();
    return host;
}

inline void check(bool ok) {
    if (!ok) std::abort();
}

// Every variable has its patch's node count; every face index is -1 or a
// node of its patch; the face list has four entries a face.
inline void checkInvariants(const region& reg, const region_fe& fe) {
    for (const auto& p : reg.patches) {
        check(p != nullptr);
        check(p->N == p->I * p->J * p->K);
        for (const auto& v : p->variables) {
            check(v != nullptr);
            check(v->count == p->N && v->values.size() == static_cast<std::size_t>(p->N));
        }
    }
    for (const auto& f : fe.patches) {
        check(f != nullptr);
        check(f->indexLength == 4 * f->faces);
        check(f->faceIndex.size() == static_cast<std::size_t>(f->indexLength));
        for (std::int32_t i : f->faceIndex) check(i == -1 || (i >= 0 && i < f->nodes));
        for (const auto& v : f->variables) {
            check(v != nullptr);
            check(v->count == f->nodes && v->values.size() == static_cast<std::size_t>(f->nodes));
        }
    }
}

// Reads the input through import_data as a user would and checks the result.
inline void importAndCheck(const std::uint8_t* data, std::size_t size, const char* extension) {
    quietHost();
    const std::string path = inputFile(data, size, extension);
    region reg;
    region_fe fe;
    import_data(path, false, reg, fe);
    checkInvariants(reg, fe);
}

}  // namespace fuzzutil
