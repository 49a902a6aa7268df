// Writing a model without leaving a partial or destroyed file behind: every
// file is written first under its own name into a hidden folder beside its
// target (".name.ext.tmp-XXXXXX"), so the format is chosen as for the target
// and whatever else the writer makes (a multiblock's folder of pieces) is
// caught too; all of it is moved into place only when the writer succeeded.
// On a failure the folder is removed and every earlier target is left as it
// was.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "api/export.h"
#include "api/formats/formats.h"
#include "api/geo.h"
#include "api/ngeo.h"

namespace tundrel {

struct SafeWriteResult {
    bool ok = true;
    // On failure: the writer's own message (when it showed one), then the
    // file and the operating system's reason, e.g.
    // "It's impossible to close DAT file (out.dat: No space left on device)".
    std::string message;
    std::vector<std::string> files;  // the files written, in order

    explicit operator bool() const noexcept { return ok; }
};

// Why `file` cannot be read, as the operating system says it (a folder reads
// as "Is a directory"); empty when it can be opened for reading.
TUNDREL_API std::string fileReadReason(const std::string& file);

// Writes `file` by calling `write` with the name of a temporary file beside
// it, then renames the temporary onto `file`. Messages the library shows while
// `write` runs are collected into the result instead of being shown. A new
// file gets the permissions a plain create would give; a replaced file keeps
// its own.
TUNDREL_API SafeWriteResult writeFileSafely(const std::string& file,
                                            const std::function<bool(const std::string& temporary)>& write);

// What exportGeometry writes, with the same file names (name_N.ext with
// `split`), each through a temporary file. With `split` every file is written
// before any is renamed, so a failure leaves all of the earlier files. An
// unknown extension fails with a message naming the known ones.
TUNDREL_API SafeWriteResult exportDataSafely(const std::string& file, const GeometryWriteOptions& options,
                                             region& reg, region_fe& reg_fe);

// The file names export_data writes for `items` items: `file` alone, or with
// `split` name_1.ext .. name_N.ext.
TUNDREL_API std::vector<std::string> exportFileNames(const std::string& file, bool split, int items);

}  // namespace tundrel
