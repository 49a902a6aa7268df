#include "api/formats/safe_write.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "api/formats/formats.h"
#include "api/host.h"

namespace tundrel {

namespace {

// Collects what the library shows while a writer runs; dialogs and file
// choices (writers ask none) go to the host that was installed before.
class CollectingHost : public Host {
public:
    explicit CollectingHost(Host& outer) : outer_(outer) {}
    void showMessage(const std::string& text) override { messages.push_back(text); }
    bool askParameters(Dialog& dialog) override { return outer_.askParameters(dialog); }
    std::optional<std::string> chooseFile(const FileChooser& chooser) override { return outer_.chooseFile(chooser); }
    void setBusy(bool busy) override { outer_.setBusy(busy); }
    void progress(std::int64_t done, std::int64_t total) override { outer_.progress(done, total); }

    std::vector<std::string> messages;

private:
    Host& outer_;
};

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += (s.empty() ? "" : "; ") + l;
    return s;
}

// "dir/name.ext" -> "dir/.name.tmp-XXXXXX.ext", and the length of ".ext".
std::pair<std::string, int> temporaryPattern(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : file.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? file : file.substr(slash + 1);
    const std::size_t dot = base.rfind('.');
    const std::string stem = dot == std::string::npos ? base : base.substr(0, dot);
    const std::string ext = dot == std::string::npos ? std::string() : base.substr(dot);
    return {dir + "." + stem + ".tmp-XXXXXX" + ext, static_cast<int>(ext.size())};
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

// Temporaries made so far; removed unless released.
struct Temporaries {
    std::vector<std::string> names;
    ~Temporaries() {
        for (const std::string& n : names) ::unlink(n.c_str());
    }
};

// Creates the temporary for `file`: its name, or an empty string with errno set.
std::string createTemporary(const std::string& file) {
    auto [pattern, suffix] = temporaryPattern(file);
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemps(name.data(), suffix);
    if (fd < 0) return {};
    const int saved = ::fchmod(fd, targetMode(file)) == 0 ? 0 : errno;
    ::close(fd);
    if (saved != 0) {
        ::unlink(name.data());
        errno = saved;
        return {};
    }
    return name.data();
}

// Writes every file to its temporary, then renames them all.
SafeWriteResult writeAll(const std::vector<std::string>& files,
                         const std::function<bool(std::size_t, const std::string&)>& write) {
    SafeWriteResult r;
    Temporaries temporaries;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string temporary = createTemporary(files[i]);
        if (temporary.empty()) return {false, failure({}, files[i], errno), {}};
        temporaries.names.push_back(temporary);
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
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (::rename(temporaries.names[i].c_str(), files[i].c_str()) != 0) {
            const int error = errno;
            // Files renamed before stay written; the rest are not.
            temporaries.names.erase(temporaries.names.begin(), temporaries.names.begin() + static_cast<long>(i));
            return {false, failure({}, files[i], error), r.files};
        }
        r.files.push_back(files[i]);
    }
    temporaries.names.clear();
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

SafeWriteResult exportDataSafely(const std::string& file, int precision, bool split, bool scientific, region& reg,
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
    const std::vector<std::string> files = exportFileNames(file, split, count);
    return writeAll(files, [&](std::size_t i, const std::string& temporary) {
        const int first = split ? static_cast<int>(i) : 0;
        const int last = split ? static_cast<int>(i) : count - 1;
        return format->write(temporary, reg, reg_fe, first, last, precision, scientific);
    });
}

}  // namespace tundrel
