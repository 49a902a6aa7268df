#include "api/formats/text.h"

#include <charconv>
#include <limits>
#include <type_traits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tundrel::text {

bool loadFile(const std::string& path, std::string& out) {
    out.clear();
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    try {
        out.reserve(static_cast<std::size_t>(st.st_size));
    } catch (...) {
        ::close(fd);
        return false;
    }
    char chunk[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n == 0) break;
        if (n < 0) {
            ::close(fd);
            out.clear();
            return false;
        }
        out.append(chunk, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return true;
}

namespace {
inline bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Sign handling as an input stream does it: '-' is part of the number for
// from_chars, '+' is skipped here.
template <class Int>
bool scanInt(const char*& p, const char* end, Int& value) noexcept {
    const char* q = p;
    bool negative = false;
    if (q < end && (*q == '+' || *q == '-')) {
        negative = *q == '-';
        ++q;
    }
    if (q >= end || *q < '0' || *q > '9') return false;
    using U = std::make_unsigned_t<Int>;
    U magnitude = 0;
    auto [ptr, ec] = std::from_chars(q, end, magnitude);
    if (ec != std::errc()) return false;
    const U limit = negative ? static_cast<U>(std::numeric_limits<Int>::max()) + 1u : static_cast<U>(std::numeric_limits<Int>::max());
    if (magnitude > limit) return false;
    value = negative ? static_cast<Int>(0 - magnitude) : static_cast<Int>(magnitude);
    p = ptr;
    return true;
}

bool scanDouble(const char*& p, const char* end, double& value) noexcept {
    const char* q = p;
    bool plus = false;
    if (q < end && *q == '+') {
        plus = true;
        ++q;
    }
    const char* digits = q;
    if (digits < end && *digits == '-') {
        if (plus) return false;
        ++digits;
    }
    // Only decimal numbers, as a stream reads them: no inf, nan or hex.
    if (digits >= end || !((*digits >= '0' && *digits <= '9') || *digits == '.')) return false;
    auto [ptr, ec] = std::from_chars(q, end, value, std::chars_format::general);
    if (ec != std::errc()) return false;
    p = ptr;
    return true;
}
}  // namespace

void Scanner::skipSpace() noexcept {
    if (!sep_.commas && !sep_.hashComments) {
        while (p_ < end_ && isSpace(*p_)) ++p_;
        return;
    }
    while (p_ < end_) {
        const char c = *p_;
        if (isSpace(c) || (c == ',' && sep_.commas)) {
            ++p_;
        } else if (c == '#' && sep_.hashComments) {
            skipLine();
        } else {
            break;
        }
    }
}

void Scanner::skipLine() noexcept {
    const void* nl = p_ < end_ ? std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_)) : nullptr;
    p_ = nl != nullptr ? static_cast<const char*>(nl) + 1 : end_;
}

bool Scanner::readInt(std::int32_t& value) noexcept {
    if (failed_) return false;
    skipSpace();
    if (!scanInt(p_, end_, value)) failed_ = true;
    return !failed_;
}

bool Scanner::readInt64(std::int64_t& value) noexcept {
    if (failed_) return false;
    skipSpace();
    if (!scanInt(p_, end_, value)) failed_ = true;
    return !failed_;
}

bool Scanner::readDouble(double& value) noexcept {
    if (failed_) return false;
    skipSpace();
    if (!scanDouble(p_, end_, value)) failed_ = true;
    return !failed_;
}

bool Scanner::readWord(std::string_view& word) noexcept {
    if (failed_) return false;
    skipSpace();
    const char* s = p_;
    while (p_ < end_ && !isSpace(*p_)) ++p_;
    if (p_ == s) {
        failed_ = true;
        return false;
    }
    word = std::string_view(s, static_cast<std::size_t>(p_ - s));
    return true;
}

bool Scanner::readWord(std::string& word) {
    std::string_view w;
    if (!readWord(w)) return false;
    word.assign(w);
    return true;
}

namespace {
inline bool endsName(char c, bool commas) noexcept {
    switch (c) {
        case '=': case '(': case ')': case '[': case ']': case '"': return true;
        case ',': return commas;
        default: return isSpace(c);
    }
}
}  // namespace

bool Scanner::readName(std::string_view& name) noexcept {
    if (failed_) return false;
    skipSpace();
    const char* s = p_;
    while (p_ < end_ && !endsName(*p_, sep_.commas)) ++p_;
    if (p_ == s) {
        failed_ = true;
        return false;
    }
    name = std::string_view(s, static_cast<std::size_t>(p_ - s));
    return true;
}

bool Scanner::readQuoted(std::string& text) {
    if (failed_) return false;
    skipSpace();
    if (p_ >= end_ || *p_ != '"') {
        failed_ = true;
        return false;
    }
    text.clear();
    for (const char* q = p_ + 1; q < end_; ++q) {
        if (*q == '\\' && q + 1 < end_ && q[1] == '"') {
            text.push_back('"');
            ++q;
        } else if (*q == '"') {
            p_ = q + 1;
            return true;
        } else {
            text.push_back(*q);
        }
    }
    failed_ = true;
    return false;
}

bool Scanner::accept(char c) noexcept {
    if (failed_) return false;
    skipSpace();
    if (p_ < end_ && *p_ == c) {
        ++p_;
        return true;
    }
    return false;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t k = 0; k < a.size(); ++k) {
        char x = a[k], y = b[k];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

bool parseDouble(std::string_view token, double& value) noexcept {
    const char* p = token.data();
    const char* end = p + token.size();
    return scanDouble(p, end, value) && p == end;
}

bool parseInt(std::string_view token, std::int32_t& value) noexcept {
    const char* p = token.data();
    const char* end = p + token.size();
    return scanInt(p, end, value) && p == end;
}

void appendDouble(std::string& out, double value, int precision, bool scientific) {
    if (precision < 0) precision = 6;
    const std::chars_format fmt = scientific ? std::chars_format::scientific : std::chars_format::fixed;
    char small[128];
    auto r = std::to_chars(small, small + sizeof small, value, fmt, precision);
    if (r.ec == std::errc()) {
        out.append(small, r.ptr);
        return;
    }
    std::string big(static_cast<std::size_t>(precision) + 400, '\0');
    r = std::to_chars(big.data(), big.data() + big.size(), value, fmt, precision);
    out.append(big.data(), r.ptr);
}

void appendInt(std::string& out, std::int64_t value) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, r.ptr);
}

Writer::Writer(const std::string& path) {
    file_ = std::fopen(path.c_str(), "w");
    if (file_ != nullptr) buf_.reserve(kChunk + 4096);
}

Writer::~Writer() { close(); }

void Writer::flush() {
    if (file_ == nullptr) {
        failed_ = true;
    } else if (!buf_.empty() && std::fwrite(buf_.data(), 1, buf_.size(), file_) != buf_.size()) {
        failed_ = true;
    }
    buf_.clear();
}

bool Writer::close() {
    if (file_ == nullptr) {
        buf_.clear();
        return false;
    }
    flush();
    if (std::fclose(file_) != 0) failed_ = true;
    file_ = nullptr;
    return !failed_;
}

}  // namespace tundrel::text
