#include "api/detail/format_readers.h"
#include "fuzz/fuzz_util.h"

// A VTK multiblock: a piece named self.vts is the input itself (a multiblock
// inside a multiblock must fail), every other piece one small structured grid.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string piece =
        "<VTKFile type=\"StructuredGrid\"><StructuredGrid><Piece Extent=\"0 1 0 0 0 0\"><Points>"
        "<DataArray type=\"Float32\" NumberOfComponents=\"3\" format=\"ascii\">0 0 0 1 0 0</DataArray>"
        "</Points></Piece></StructuredGrid></VTKFile>";
    tundrel::ScriptedHost& host = fuzzutil::quietHost();
    const std::string_view input = fuzzutil::text(data, size);
    const tundrel::formats::VtkPieceLoader load = [&](const std::string& path, std::string& out) {
        if (path == "missing.vts") return false;
        out = path == "self.vts" ? std::string(input) : piece;
        return true;
    };
    region reg;
    region_fe fe;
    const bool ok = tundrel::formats::read_vtk_multiblock_text(input, load, reg, fe);
    fuzzutil::check(tundrel::validate(reg, fe).empty(), "the model's invariants");
    fuzzutil::check(ok ? host.messages.empty() : host.messages.size() == 1, "one message for a failed read");
    return 0;
}
