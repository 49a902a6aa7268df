#include "api/detail/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tundrel::text {

namespace {
// Opens a regular file for reading; -1 for anything else. O_NONBLOCK keeps
// the open of a named pipe without a writer from waiting; it changes nothing
// for regular files.
int openRegular(const std::string& path, struct stat& st) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return -1;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return -1;
    }
    return fd;
}
}  // namespace

bool loadFile(const std::string& path, std::string& out) {
    out.clear();
    struct stat st {};
    const int fd = openRegular(path, st);
    if (fd < 0) return false;
    // Read, not mapped: a mapped file that another program cuts short while it
    // is read ends the process with SIGBUS. Straight into the string, in large
    // reads; a file that grows meanwhile is read on to its end.
    std::size_t used = 0;
    try {
        out.resize(static_cast<std::size_t>(st.st_size) + 1);
        for (;;) {
            if (used == out.size()) out.resize(out.size() * 2);
            const std::size_t want = std::min<std::size_t>(out.size() - used, std::size_t{1} << 30);
            const ssize_t n = ::read(fd, out.data() + used, want);
            if (n == 0) break;
            if (n < 0) {
                if (errno == EINTR) continue;
                ::close(fd);
                out.clear();
                return false;
            }
            used += static_cast<std::size_t>(n);
        }
    } catch (...) {
        ::close(fd);
        out.clear();
        return false;
    }
    ::close(fd);
    out.resize(used);
    return true;
}

namespace {
inline bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Sign handling as an input stream does it: '-' is part of the number for
// from_chars, '+' is skipped here.
template <class Int>
[[gnu::always_inline]] inline bool scanInt(const char*& p, const char* end, Int& value) noexcept {
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

inline bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// The common case of a decimal number without sign: at most 19 significant
// digits and a value m * 10^e with m <= 2^53 and |e| <= 22. Both factors are
// exact doubles, so one multiplication or division gives the correctly
// rounded result, the same as from_chars. False (nothing consumed) for
// anything else, which from_chars then reads.
[[gnu::always_inline]] inline bool scanPlainDecimal(const char* p, const char* end, double& value, const char*& after) noexcept {
    std::uint64_t m = 0;
    int digits = 0, exponent = 0;
    bool any = false;
    while (p < end && *p == '0') {
        ++p;
        any = true;
    }
    for (; p < end && isDigit(*p); ++p, any = true) {
        if (++digits > 19) return false;
        m = m * 10 + static_cast<unsigned>(*p - '0');
    }
    if (p < end && *p == '.') {
        ++p;
        if (digits == 0)
            for (; p < end && *p == '0'; ++p, any = true) --exponent;
        for (; p < end && isDigit(*p); ++p, any = true) {
            if (++digits > 19) return false;
            m = m * 10 + static_cast<unsigned>(*p - '0');
            --exponent;
        }
    }
    if (!any) return false;
    if (p < end && (*p == 'e' || *p == 'E')) {
        const char* e = p + 1;
        bool negative = false;
        if (e < end && (*e == '+' || *e == '-')) negative = *e++ == '-';
        if (e < end && isDigit(*e)) {
            int x = 0;
            for (; e < end && isDigit(*e); ++e)
                if (x < 100000) x = x * 10 + (*e - '0');
            exponent += negative ? -x : x;
            p = e;
        }
    }
    if (m == 0) {
        value = 0.0;
    } else {
        if (m > (std::uint64_t{1} << 53) || exponent < -22 || exponent > 22) return false;
        const double v = static_cast<double>(m);
        value = exponent < 0 ? v / kPowersOfTen[-exponent] : v * kPowersOfTen[exponent];
    }
    after = p;
    return true;
}

[[gnu::always_inline]] inline bool scanDouble(const char*& p, const char* end, double& value) noexcept {
    const char* q = p;
    bool plus = false;
    if (q < end && *q == '+') {
        plus = true;
        ++q;
    }
    const char* digits = q;
    bool negative = false;
    if (digits < end && *digits == '-') {
        if (plus) return false;
        negative = true;
        ++digits;
    }
    // Only decimal numbers, as a stream reads them: no inf, nan or hex.
    if (digits >= end || !((*digits >= '0' && *digits <= '9') || *digits == '.')) return false;
    const char* after = nullptr;
    double v = 0;
    if (scanPlainDecimal(digits, end, v, after)) {
        value = negative ? -v : v;
        p = after;
        return true;
    }
    auto [ptr, ec] = std::from_chars(q, end, value, std::chars_format::general);
    if (ec != std::errc()) return false;
    p = ptr;
    return true;
}
}  // namespace

namespace {
// Skips whitespace and, as the separators say, commas and '#' comments.
// Inline here so the bulk readers run without calls.
inline const char* skipSeparators(const char* p, const char* end, Separators sep) noexcept {
    while (p < end) {
        const char c = *p;
        if (isSpace(c) || (c == ',' && sep.commas)) {
            ++p;
        } else if (c == '#' && sep.hashComments) {
            const void* nl = std::memchr(p, '\n', static_cast<std::size_t>(end - p));
            p = nl != nullptr ? static_cast<const char*>(nl) + 1 : end;
        } else {
            break;
        }
    }
    return p;
}
}  // namespace

void Scanner::skipSpace() noexcept { p_ = skipSeparators(p_, end_, sep_); }

void Scanner::skipLine() noexcept {
    const void* nl = p_ < end_ ? std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_)) : nullptr;
    p_ = nl != nullptr ? static_cast<const char*>(nl) + 1 : end_;
}

std::size_t Scanner::readTable(double* const* columns, std::size_t width, std::size_t first,
                               std::size_t count) noexcept {
    if (failed_ || width == 0) return 0;
    std::size_t row = first / width, column = first % width;
    for (std::size_t k = 0; k < count; ++k) {
        p_ = skipSeparators(p_, end_, sep_);
        if (!scanDouble(p_, end_, columns[column][row])) return k;
        if (++column == width) {
            column = 0;
            ++row;
        }
    }
    return count;
}

std::size_t Scanner::readInts(std::int32_t* out, std::size_t count) noexcept {
    if (failed_) return 0;
    for (std::size_t k = 0; k < count; ++k) {
        p_ = skipSeparators(p_, end_, sep_);
        if (!scanInt(p_, end_, out[k])) return k;
    }
    return count;
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

namespace {

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The number of decimal digits of n (1 for 0).
int decimalDigits(std::uint64_t n) noexcept {
    int d = 1;
    for (; n >= 10000; n /= 10000) d += 4;
    for (; n >= 10; n /= 10) ++d;
    return d;
}

// Writes n (< 10^20) as decimal digits ending at `end`; returns the start.
char* digitsBefore(char* end, std::uint64_t n) noexcept {
    while (n >= 100) {
        end -= 2;
        std::memcpy(end, kDigitPairs + 2 * (n % 100), 2);
        n /= 100;
    }
    if (n >= 10) {
        end -= 2;
        std::memcpy(end, kDigitPairs + 2 * n, 2);
    } else {
        *--end = static_cast<char>('0' + n);
    }
    return end;
}

// Fixed notation with up to 9 decimals for |value| < 10^15: the exact binary
// value times 10^precision, rounded half to even in integers, which is what
// printf and to_chars print. Null when the value is out of range.
char* formatFixedExact(char* out, double value, int precision) noexcept {
    if (precision > 9 || !(std::fabs(value) < 1e15)) return nullptr;
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const bool negative = (bits >> 63) != 0;
    const int biased = static_cast<int>((bits >> 52) & 0x7ff);
    std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
    int exponent;
    if (biased == 0) {
        exponent = -1074;  // subnormal
    } else {
        mantissa |= std::uint64_t{1} << 52;
        exponent = biased - 1075;
    }
    if (exponent >= 0) return nullptr;  // |value| >= 2^52: not reached below 10^15
    std::uint64_t scale = 1;
    for (int k = 0; k < precision; ++k) scale *= 10;
    __extension__ typedef unsigned __int128 U128;  // g++ and clang both have it
    // Whole part and binary fraction; the fraction times 10^precision is
    // rounded to an integer, which may carry into the whole part.
    const int shift = -exponent;
    std::uint64_t whole = 0, bitsBelow = mantissa;
    if (shift < 64) {
        whole = mantissa >> shift;
        bitsBelow = mantissa & ((std::uint64_t{1} << shift) - 1);
    }
    std::uint64_t fraction = 0;
    if (shift < 100) {  // else below 2^53 * 2^30 / 2^100: rounds to zero
        const U128 scaled = static_cast<U128>(bitsBelow) * scale;
        fraction = static_cast<std::uint64_t>(scaled >> shift);
        const U128 rest = scaled & ((U128{1} << shift) - 1);
        const U128 half = U128{1} << (shift - 1);
        const bool odd = ((whole * scale + fraction) & 1) != 0;
        if (rest > half || (rest == half && odd)) {
            if (++fraction == scale) {
                fraction = 0;
                ++whole;
            }
        }
    }
    if (negative) *out++ = '-';
    out += decimalDigits(whole);
    digitsBefore(out, whole);
    if (precision > 0) {
        *out++ = '.';
        char* const end = out + precision;
        char* f = digitsBefore(end, fraction);
        while (f > out) *--f = '0';
        out = end;
    }
    return out;
}

}  // namespace

char* formatDouble(char* out, double value, int precision, bool scientific) noexcept {
    if (precision < 0) precision = 6;
    if (!scientific) {
        if (char* end = formatFixedExact(out, value, precision)) return end;
    }
    const std::chars_format fmt = scientific ? std::chars_format::scientific : std::chars_format::fixed;
    return std::to_chars(out, out + kDoubleRoom, value, fmt, precision).ptr;
}

char* formatInt(char* out, std::int64_t value) noexcept {
    std::uint64_t magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        *out++ = '-';
        magnitude = 0 - magnitude;
    }
    out += decimalDigits(magnitude);
    digitsBefore(out, magnitude);
    return out;
}

void appendDouble(std::string& out, double value, int precision, bool scientific) {
    if (precision < 0) precision = 6;
    if (precision <= kDirectPrecision) {
        char small[kDoubleRoom];
        out.append(small, formatDouble(small, value, precision, scientific));
        return;
    }
    const std::chars_format fmt = scientific ? std::chars_format::scientific : std::chars_format::fixed;
    std::string big(static_cast<std::size_t>(precision) + kDoubleRoom, '\0');
    const auto r = std::to_chars(big.data(), big.data() + big.size(), value, fmt, precision);
    out.append(big.data(), r.ptr);
}

void appendInt(std::string& out, std::int64_t value) {
    char buf[24];
    out.append(buf, formatInt(buf, value));
}

Writer::Writer(const std::string& path)
    : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
      buf_(new char[kChunk + kSlack]),
      pos_(buf_),
      limit_(buf_ + kChunk + kSlack) {}

Writer::~Writer() { close(); }

Writer& Writer::writeLong(std::string_view s) {
    flush();
    put(s.data(), s.size());
    return *this;
}

Writer& Writer::writeSlow(double v) {
    std::string text;
    appendDouble(text, v, precision_, scientific_);
    return *this << std::string_view(text);
}

void Writer::put(const char* data, std::size_t n) {
    while (n > 0 && fd_ >= 0 && !failed_) {
        const ssize_t w = ::write(fd_, data, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            failed_ = true;
            return;
        }
        data += w;
        n -= static_cast<std::size_t>(w);
    }
}

void Writer::flush() {
    if (buf_ == nullptr) {  // written to after close(): kept as a failure
        buf_ = pos_ = new char[kChunk + kSlack];
        limit_ = buf_ + kChunk + kSlack;
        failed_ = true;
        return;
    }
    if (fd_ < 0) {
        // Nothing to write to: the text is dropped, the failure kept.
        failed_ = true;
        pos_ = buf_;
        return;
    }
    put(buf_, static_cast<std::size_t>(pos_ - buf_));
    pos_ = buf_;
}

bool Writer::close() {
    if (fd_ < 0) {
        delete[] buf_;
        buf_ = pos_ = limit_ = nullptr;
        return false;
    }
    flush();
    if (::close(fd_) != 0) failed_ = true;
    fd_ = -1;
    delete[] buf_;
    buf_ = pos_ = limit_ = nullptr;
    return !failed_;
}

}  // namespace tundrel::text
