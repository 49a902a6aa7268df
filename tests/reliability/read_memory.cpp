// Memory of a read against the size of the file: the peak of the bytes
// allocated through operator new while the read runs, counted by this
// program's own operator new (a program of its own, so that the count sees
// no other test). Files are made of the cheapest records that still cost the
// reader memory; a read must grow in proportion to its file, whatever the
// file holds.
#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include <unistd.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

std::atomic<std::size_t> live{0};
std::atomic<std::size_t> peak{0};

// Sizes as the allocator reports them, so that each block is counted alike
// when it comes and when it goes, and the pointers stay those of malloc.
void* counted(std::size_t n) noexcept {
    void* p = std::malloc(n == 0 ? 1 : n);
    if (p == nullptr) return nullptr;
    const std::size_t size = ::malloc_usable_size(p);
    const std::size_t now = live.fetch_add(size) + size;
    std::size_t seen = peak.load();
    while (now > seen && !peak.compare_exchange_weak(seen, now)) {
    }
    return p;
}

void release(void* p) noexcept {
    if (p == nullptr) return;
    live.fetch_sub(::malloc_usable_size(p));
    std::free(p);
}

void* countedOrThrow(std::size_t n) {
    if (void* p = counted(n)) return p;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t n) { return countedOrThrow(n); }
void* operator new[](std::size_t n) { return countedOrThrow(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return counted(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return counted(n); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }

namespace {

// Reads `file` through import_data: the result, the messages and the bytes
// allocated at the peak above what was held before.
struct Measured {
    bool ok;
    std::vector<std::string> messages;
    std::size_t peakBytes;
    int patches;
};

Measured measureRead(const std::string& file) {
    tundrel::ScriptedHost host;
    tundrel::HostScope scope(host);
    region reg;
    region_fe fe;
    const std::size_t before = live.load();
    peak.store(before);
    const bool ok = import_data(file, false, reg, fe);
    return {ok, host.messages, peak.load() - before, reg.patchCount() + fe.patchCount()};
}

std::string repeated(const std::string& s, std::size_t n) {
    std::string r;
    r.reserve(s.size() * n);
    for (std::size_t k = 0; k < n; ++k) r += s;
    return r;
}

std::string names(std::size_t n) {
    std::string s;
    for (std::size_t k = 0; k < n; ++k) s += " v" + std::to_string(k);
    return s;
}

// Files of size about proportional to n that are expensive to read, and the
// format's result for such a file.
const struct {
    const char* name;
    const char* ext;
    std::string (*make)(std::size_t n);
    bool ok;
} kCostly[] = {
    {"aptEmptyPatches", "apt", [](std::size_t n) { return repeated("0 0\n", n); }, true},
    {"fldEmptyPatchesOfManyNames", "fld",
     [](std::size_t n) {
         return "w " + std::to_string(n) + " " + std::to_string(n) + names(n) + "\n" + repeated("0 0 W W W W\n", n) +
                "0 0 0\n";
     },
     false},
    {"datEmptyZonesOfManyVariables", "dat",
     [](std::size_t n) { return "VARIABLES = x y z" + names(n) + "\n" + repeated("ZONE I=0\n", n); }, false},
    {"datTriangles", "dat",
     [](std::size_t n) {
         return "VARIABLES = x y z\nZONE N=3, E=" + std::to_string(n) + ", ET=TRIANGLE, F=FEPOINT\n0 0 0 1 0 0 0 1 0\n" +
                repeated("1 2 3\n", n);
     },
     true},
    {"vrmlFaceSets", "wrl",
     [](std::size_t n) {
         return "#VRML V2.0 utf8\n" +
                repeated("Shape{geometry IndexedFaceSet{coord Coordinate{point[0 0 0 1 0 0 0 1 0]}coordIndex[0 1 2]}}\n",
                         n);
     },
     true},
    {"vrmlFaceSetsOverOneLongPointList", "wrl",
     [](std::size_t n) {
         return "#VRML V1.0 ascii\nCoordinate3 { point [" + repeated(" 0 0 0", n) + " ] }\n" +
                repeated("IndexedFaceSet { coordIndex [ 0 1 2 ] }\n", n);
     },
     true},
    {"vtkEmptyPieces", "vts",
     [](std::size_t n) {
         return "<VTKFile type=\"StructuredGrid\"><StructuredGrid>" +
                repeated("<Piece Extent=\"0 -1 0 0 0 0\"/>", n) + "</StructuredGrid></VTKFile>";
     },
     true},
    {"vtkTriangles", "vtp",
     [](std::size_t n) {
         return "<VTKFile type=\"PolyData\"><PolyData><Piece NumberOfPoints=\"3\" NumberOfPolys=\"" +
                std::to_string(n) + "\"><Points><DataArray type=\"Float32\" NumberOfComponents=\"3\" "
                "format=\"ascii\">0 0 0 1 0 0 0 1 0</DataArray></Points><Polys><DataArray type=\"Int32\" "
                "Name=\"connectivity\" format=\"ascii\">" + repeated("0 1 2 ", n) + "</DataArray><DataArray "
                "type=\"Int64\" Name=\"offsets\" format=\"ascii\">" + [n] {
                    std::string s;
                    for (std::size_t k = 1; k <= n; ++k) s += std::to_string(3 * k) + " ";
                    return s;
                }() + "</DataArray></Polys></Piece></PolyData></VTKFile>";
     },
     true},
};

// The most a read may hold per byte of its file: a few hundred bytes, which
// an empty structured patch (patch, three variables and their names in a few
// bytes of text) comes nearest to.
constexpr double kBytesPerFileByte = 512;

}  // namespace

// Four times the file, at most a little more than four times the memory,
// and never more than the bound per byte.
TEST(ReadMemory, GrowsInProportionToTheFile) {
    testutil::ScratchDir dir;
    for (const auto& c : kCostly) {
        SCOPED_TRACE(c.name);
        double rate[2];
        const std::size_t sizes[2] = {500, 2000};
        for (int k = 0; k < 2; ++k) {
            const std::string text = c.make(sizes[k]);
            testutil::writeFile(dir.file(std::string("m.") + c.ext), text);
            const Measured m = measureRead(dir.file(std::string("m.") + c.ext));
            EXPECT_EQ(m.ok, c.ok);
            EXPECT_EQ(m.messages.size(), c.ok ? 0u : 1u);
            rate[k] = static_cast<double>(m.peakBytes) / static_cast<double>(text.size());
        }
        RecordProperty(std::string("bytes_per_file_byte_") + c.name, std::to_string(rate[1]));
        EXPECT_LE(rate[1], 1.25 * rate[0] + 1.0);
        EXPECT_LE(rate[1], kBytesPerFileByte);
    }
}

// One line of 200 MB of '=' signs, read by every format (one file under four
// names): APT finds no patch header, the normal end; FLD takes the line as its
// title and then finds no counts; DAT finds no TITLE; VRML no header. No read
// holds more than twice the text.
TEST(ReadMemoryLongLine, TwoHundredMegabytesInOneLine) {
    testutil::ScratchDir dir;
    const std::size_t size = (200u << 20) + 1;
    testutil::writeFile(dir.file("long.apt"), std::string(size - 1, '=') + '\n');
    const std::pair<const char*, const char*> cases[] = {
        {"apt", nullptr},
        {"fld", "It's impossible to close FLD file"},
        {"dat", "Error in the Header of DAT file. Parameter TITLE is absent"},
        {"wrl", "It is impossible to open VRML or identify it's header"},
        {"vtm", "Error in VTK file: no XML element"},
    };
    for (const auto& [ext, message] : cases) {
        const std::string file = dir.file(std::string("long.") + ext);
        if (file != dir.file("long.apt")) {
            ASSERT_EQ(::link(dir.file("long.apt").c_str(), file.c_str()), 0);
        }
        const Measured m = measureRead(file);
        EXPECT_EQ(m.ok, message == nullptr) << ext;
        EXPECT_EQ(m.patches, 0) << ext;
        EXPECT_EQ(m.messages, message ? std::vector<std::string>{message} : std::vector<std::string>{}) << ext;
        EXPECT_LE(m.peakBytes, 2 * size + (1u << 20)) << ext;
    }
}
