// The text layer shared by every reader and writer: a whole-file loader, a
// scanner that reads numbers and words the way a C++ input stream does (but
// with std::from_chars, without locale or virtual calls), and a buffered
// writer that prints numbers byte for byte as an output stream with a given
// precision and fixed or scientific notation would.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "api/export.h"

namespace tundrel::text {

// Reads a whole regular file: the one file loader of every reader. False (and
// `out` empty) when it cannot be opened or read: a missing file, a directory,
// a named pipe or device (never waited on), a read error, no memory for it.
bool loadFile(const std::string& path, std::string& out);

// What separates tokens besides whitespace. The default is an input
// stream's view (whitespace only); Tecplot-style files also take commas
// between values and '#' comments that run to the end of the line.
struct Separators {
    bool commas = false;
    bool hashComments = false;
};

// Stream-like scanner over text in memory. A failed read sets a sticky fail
// state, as an input stream's failbit does; later reads fail too.
class Scanner {
public:
    explicit Scanner(std::string_view data, Separators separators = {}) noexcept
        : begin_(data.data()), p_(data.data()), end_(data.data() + data.size()), sep_(separators) {}

    bool fail() const noexcept { return failed_; }
    bool good() const noexcept { return !failed_; }
    void setFail() noexcept { failed_ = true; }
    void clearFail() noexcept { failed_ = false; }
    bool atEnd() const noexcept { return p_ >= end_; }
    std::size_t position() const noexcept { return static_cast<std::size_t>(p_ - begin_); }
    void seek(std::size_t pos) noexcept { p_ = begin_ + (pos > size() ? size() : pos); }
    std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
    std::string_view rest() const noexcept { return {p_, static_cast<std::size_t>(end_ - p_)}; }
    int peek() const noexcept { return p_ < end_ ? static_cast<unsigned char>(*p_) : -1; }
    void advance(std::size_t n = 1) noexcept { p_ = (static_cast<std::size_t>(end_ - p_) < n) ? end_ : p_ + n; }

    // Whether `numbers` numbers can still follow in what is left: at least
    // one character each and a separator between them. Readers check the
    // counts a file states against this before they allocate for them.
    bool canHold(std::uint64_t numbers) const noexcept {
        const std::uint64_t left = static_cast<std::uint64_t>(end_ - p_);
        return numbers == 0 || (numbers <= left && 2 * numbers - 1 <= left);
    }

    // Skips blanks, tabs, line ends (as std::isspace in the C locale), and
    // commas and comments when the separators say so.
    void skipSpace() noexcept;
    // Skips to just after the next line end (or to the end).
    void skipLine() noexcept;

    // Reads like `stream >> value`: leading whitespace skipped, an optional
    // sign, then the longest number; fails on anything else or on overflow.
    bool readInt(std::int32_t& value) noexcept;
    bool readInt64(std::int64_t& value) noexcept;
    bool readDouble(double& value) noexcept;
    // Reads like `stream >> word`: the next run of non-whitespace characters.
    bool readWord(std::string_view& word) noexcept;

    // Bulk reads for long lists of numbers. readTable reads `count` doubles
    // into a table of `width` columns, row by row, starting at number
    // `first` (number k goes to columns[k % width][k / width]); readInts reads
    // `count` integers. Both return how many they read and stop before the
    // first token that is not a number, without setting the fail state.
    std::size_t readTable(double* const* columns, std::size_t width, std::size_t first,
                          std::size_t count) noexcept;
    std::size_t readInts(std::int32_t* out, std::size_t count) noexcept;
    bool readWord(std::string& word);

    // Reads a name: the next run of characters that are neither separators
    // nor one of = ( ) [ ] ". Fails (sticky) when there is none.
    bool readName(std::string_view& name) noexcept;
    // Reads a double-quoted string; inside it \" stands for a quote. Fails
    // (sticky) when the next token does not start with a quote or the string
    // is not closed.
    bool readQuoted(std::string& text);
    // Skips separators; true and past it when the next character is `c`.
    bool accept(char c) noexcept;

private:
    const char* begin_;
    const char* p_;
    const char* end_;
    Separators sep_;
    bool failed_ = false;
};

// The text without a leading UTF-8 byte-order mark, which editors put before
// text they save as UTF-8 and which is no part of the content.
inline std::string_view withoutByteOrderMark(std::string_view text) noexcept {
    return text.substr(0, 3) == "\xEF\xBB\xBF" ? text.substr(3) : text;
}

// Compares ASCII text ignoring letter case (keywords of text formats).
bool equalsIgnoreCase(std::string_view a, std::string_view b) noexcept;

// Parses a whole token as a double / integer (no trailing characters). Used by
// readers that split their own tokens.
bool parseDouble(std::string_view token, double& value) noexcept;
bool parseInt(std::string_view token, std::int32_t& value) noexcept;

// Appends a double as `stream << value` does with the given precision (a
// negative precision counts as 6) in fixed or scientific notation.
void appendDouble(std::string& out, double value, int precision, bool scientific);
void appendInt(std::string& out, std::int64_t value);

// The same into a buffer with room for kDoubleRoom characters (precision up
// to kDirectPrecision); returns the end of what was written.
inline constexpr int kDirectPrecision = 64;
inline constexpr std::size_t kDoubleRoom = 400;
char* formatDouble(char* out, double value, int precision, bool scientific) noexcept;
char* formatInt(char* out, std::int64_t value) noexcept;

// A buffered output file. A failed open, like a failed write, only shows as
// good() == false, so writers report both at the end as the formats require.
class Writer {
public:
    explicit Writer(const std::string& path);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    bool opened() const noexcept { return fd_ >= 0; }
    bool good() const noexcept { return fd_ >= 0 && !failed_; }
    void setFormat(int precision, bool scientific) noexcept {
        precision_ = precision < 0 ? 6 : precision;
        scientific_ = scientific;
    }

    Writer& operator<<(double v) {
        if (precision_ > kDirectPrecision) return writeSlow(v);
        room(kDoubleRoom);
        pos_ = formatDouble(pos_, v, precision_, scientific_);
        return *this;
    }
    Writer& operator<<(int v) { return integer(v); }
    Writer& operator<<(long v) { return integer(v); }
    Writer& operator<<(long long v) { return integer(v); }
    Writer& operator<<(char c) {
        room(1);
        *pos_++ = c;
        return *this;
    }
    Writer& operator<<(std::string_view s) {
        if (s.size() > kSlack) return writeLong(s);
        room(s.size());
        std::memcpy(pos_, s.data(), s.size());
        pos_ += s.size();
        return *this;
    }
    Writer& operator<<(const char* s) { return *this << std::string_view(s); }
    Writer& operator<<(const std::string& s) { return *this << std::string_view(s); }
    Writer& endl() { return *this << '\n'; }

    // Flushes and closes; returns good() as it stood before closing.
    bool close();

private:
    Writer& integer(std::int64_t v) {
        room(24);
        pos_ = formatInt(pos_, v);
        return *this;
    }
    // Makes room for n more characters (n at most kSlack).
    void room(std::size_t n) {
        if (static_cast<std::size_t>(limit_ - pos_) < n) flush();
    }
    Writer& writeSlow(double v);
    Writer& writeLong(std::string_view s);
    void flush();
    void put(const char* data, std::size_t n);

    static constexpr std::size_t kChunk = 1 << 20;
    static constexpr std::size_t kSlack = 4096;  // room past the chunk for one item
    int fd_ = -1;
    char* buf_ = nullptr;
    char* pos_ = nullptr;
    char* limit_ = nullptr;
    int precision_ = 6;
    bool scientific_ = false;
    bool failed_ = false;
};

}  // namespace tundrel::text
