#include "api/formats/safe_write.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "api/formats/formats.h"
#include "api/host.h"

namespace tundrel {

std::string fileReadReason(const std::string& file) {
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0) return std::strerror(errno);
    if (S_ISDIR(st.st_mode)) return std::strerror(EISDIR);
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    ::close(fd);
    return {};
}

namespace {

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += (s.empty() ? "" : "; ") + l;
    return s;
}

namespace fs = std::filesystem;

// "dir/name.ext" -> "dir/" and "name.ext".
std::pair<std::string, std::string> splitPath(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos) return {std::string(), file};
    return {file.substr(0, slash + 1), file.substr(slash + 1)};
}

// The permissions a new file would get, or those of the file it replaces.
mode_t targetMode(const std::string& file) {
    struct stat st {};
    if (::stat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return st.st_mode & 07777;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

std::string failure(const std::string& libraryText, const std::string& file, int error) {
    std::string where = file;
    if (error != 0) where += std::string(": ") + std::strerror(error);
    return libraryText.empty() ? "cannot write " + where : libraryText + " (" + where + ")";
}

// A folder beside the targets that the writers write into under the targets'
// own names ("dir/.name.tmp-XXXXXX/name.ext"), so that a format which writes
// more than its file (a multiblock's folder of pieces) is caught whole.
// Removed with whatever is left in it.
struct Staging {
    std::string folder;
    ~Staging() {
        if (folder.empty()) return;
        std::error_code ec;
        fs::remove_all(folder, ec);
    }
};

// Creates the staging folder for `file`; false with errno set.
bool createStaging(const std::string& file, Staging& staging) {
    auto [dir, base] = splitPath(file);
    std::string pattern = dir + "." + base + ".tmp-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (::mkdtemp(name.data()) == nullptr) return false;
    staging.folder = name.data();
    return true;
}

// Moves `from` onto `to`. A folder that exists at `to` is moved aside first
// and removed once the new one is in place.
bool moveInto(const fs::path& from, const fs::path& to, int& error) {
    std::error_code ec;
    if (fs::is_directory(to, ec) && !fs::is_symlink(to, ec)) {
        const fs::path old = from.parent_path() / (".old-" + to.filename().string());
        if (::rename(to.c_str(), old.c_str()) != 0 || ::rename(from.c_str(), to.c_str()) != 0) {
            error = errno;
            ::rename(old.c_str(), to.c_str());
            return false;
        }
        return true;  // the old folder goes with the staging folder
    }
    if (::rename(from.c_str(), to.c_str()) != 0) {
        error = errno;
        return false;
    }
    return true;
}

// Writes every file into the staging folder, then moves all of it in place.
SafeWriteResult writeAll(const std::vector<std::string>& files,
                         const std::function<bool(std::size_t, const std::string&)>& write) {
    SafeWriteResult r;
    if (files.empty()) return r;
    Staging staging;
    if (!createStaging(files.front(), staging)) return {false, failure({}, files.front(), errno), {}};
    const std::string dir = splitPath(files.front()).first;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string temporary = staging.folder + "/" + splitPath(files[i]).second;
        // The file itself first, so that a folder it cannot be made in reads
        // as the operating system says.
        const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, targetMode(files[i]));
        if (fd < 0) return {false, failure({}, files[i], errno), {}};
        ::fchmod(fd, targetMode(files[i]));
        ::close(fd);
        CollectingHost collecting(host());
        bool ok = false;
        int error = 0;
        {
            HostScope scope(collecting);
            errno = 0;
            ok = write(i, temporary);
            error = errno;
        }
        if (!ok) return {false, failure(joined(collecting.messages), files[i], error), {}};
    }
    // Everything the writers made, the targets' companions included.
    std::error_code ec;
    std::vector<fs::path> made;
    for (const fs::directory_entry& e : fs::directory_iterator(staging.folder, ec)) made.push_back(e.path());
    if (ec) return {false, failure({}, files.front(), ec.value()), {}};
    for (const fs::path& p : made) {
        const std::string target = dir + p.filename().string();
        int error = 0;
        if (!moveInto(p, target, error)) return {false, failure({}, target, error), r.files};
    }
    r.files = files;
    return r;
}

}  // namespace

SafeWriteResult writeFileSafely(const std::string& file, const std::function<bool(const std::string&)>& write) {
    return writeAll({file}, [&](std::size_t, const std::string& temporary) { return write(temporary); });
}

std::vector<std::string> exportFileNames(const std::string& file, bool split, int items) {
    if (!split) return {file};
    std::vector<std::string> names;
    const std::size_t dot = file.rfind('.');
    const std::size_t cut = dot == std::string::npos ? file.size() : dot;
    for (int i = 0; i < items; ++i) names.push_back(file.substr(0, cut) + "_" + std::to_string(i + 1) + file.substr(cut));
    return names;
}

SafeWriteResult exportDataSafely(const std::string& file, const GeometryWriteOptions& options, region& reg,
                                 region_fe& reg_fe) {
    const std::string ext = file_extension(file);
    const GeometryFormat* format = findGeometryFormat(ext);
    if (format == nullptr) {
        std::string known;
        for (const GeometryFormat& f : geometryFormats())
            for (std::string_view e : f.extensions) known += (known.empty() ? "" : ", ") + std::string(e);
        return {false, file + ": unknown file format (" + known + ")", {}};
    }
    int count = reg.patchCount();
    if (ext != "fld") count += reg_fe.patchCount();  // as export_data counts
    const std::vector<std::string> files = exportFileNames(file, options.split, count);
    return writeAll(files, [&](std::size_t i, const std::string& temporary) {
        const int first = options.split ? static_cast<int>(i) : 0;
        const int last = options.split ? static_cast<int>(i) : count - 1;
        if (options.binary && format->writeBinary != nullptr)
            return format->writeBinary(temporary, reg, reg_fe, first, last);
        return format->write(temporary, reg, reg_fe, first, last, options.precision, options.scientific);
    });
}

}  // namespace tundrel
