#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

/// The type of a group's value, looked up from its code. The numbers are the datatype
/// codes of the reader: sizes, save for the plain integer (a one-byte flag for codes
/// 290-299 and an eight-byte integer for 160-169 in the binary form).
enum class DXFDatatype : std::uint8_t {
    None = 0, ///< a code outside the table
    Int16 = 2,
    Int32 = 4,
    Int = 6,
    Double = 8,
    Text = 16,
};

/// The datatype of a group code, from the code ranges of the published format;
/// DXFDatatype::None for a code that has none.
DXFDatatype dxfDatatype(int code);
/// "Int16", "Int32", "Int", "Double", "Text" or "None".
const wchar_t* dxfDatatypeName(DXFDatatype type);

class DXFStream;

/// One group of a drawing: its code and value. In the text form the value is kept as
/// text and parsed on first use; in the binary form numbers come parsed and the text is
/// empty. Texts point into the stream's data and live as long as it does.
class DXFItem {
public:
    std::int16_t code = 0;
    DXFDatatype datatype = DXFDatatype::None;
    /// The line of the group's code in the text form (1 for the first group); in the
    /// binary form the line that group would have in the text form (2k + 1 for the
    /// k-th group), so that both forms report the same places.
    long line = 0;
    /// The raw bytes of the value (without line end); binary chunks in the binary form
    /// are their raw bytes.
    std::string_view text;
    /// The stream the group came from, for the file name of errors.
    const DXFStream* source = nullptr;

    /// The value as a number. Throws ExportError "Error reading double item value" (or
    /// "Error reading integer item value" for integer types) if the text does not read,
    /// and "Bad DXF group: item <Double> needed" for a text group.
    double asDouble() const;
    /// The value as an integer, saturated to the range of long; throws as asDouble.
    long asInt() const;
    /// The value's text with white space trimmed at both ends.
    std::string_view trimmed() const;
    /// True if the value's text is `name` (ignoring white space at either end).
    bool is(std::string_view name) const { return trimmed() == name; }
    /// "Group @<line>: <code> <value>", for reports.
    std::wstring describe() const;

    /// Sets a number that needs no parsing (binary form).
    void setNumber(double v) {
        number_ = v;
        parsed_ = true;
    }
    /// Forgets any parsed number (the stream calls this for each new group).
    void clearNumber() { parsed_ = false; }

private:
    mutable double number_ = 0;
    mutable bool parsed_ = false;
};

/// A source of groups: the text or the binary form of a drawing held in memory.
/// Reading throws ExportError for damaged data, with the file name and the line.
class DXFStream {
public:
    explicit DXFStream(std::wstring fileName) : fileName_(std::move(fileName)) {}
    virtual ~DXFStream() = default;
    DXFStream(const DXFStream&) = delete;
    DXFStream& operator=(const DXFStream&) = delete;

    /// Reads the next group, code and value; false at the end of the data. A group put
    /// back with unread comes first.
    bool read(DXFItem& item);
    /// Reads the next group's code only; false at the end of the data. The caller must
    /// then call readValue or skipValue.
    bool readCode(DXFItem& item);
    /// Reads the value of the group whose code was just read.
    void readValue(DXFItem& item);
    /// Passes over the value of the group whose code was just read.
    void skipValue(const DXFItem& item);
    /// Puts one whole group back, to be read again next.
    void unread(const DXFItem& item);

    const std::wstring& fileName() const { return fileName_; }
    /// The line last read (in the binary form, the line the text form would have).
    virtual long line() const = 0;
    /// How far reading has come, and the whole, in bytes.
    virtual std::size_t position() const = 0;
    virtual std::size_t size() const = 0;

    /// Throws ExportError "<message> at line <line> in <file>".
    [[noreturn]] void fail(const std::wstring& message, long line) const;

protected:
    virtual bool nextCode(DXFItem& item) = 0;
    virtual void nextValue(DXFItem& item) = 0;
    virtual void passValue(const DXFItem& item) = 0;

private:
    std::wstring fileName_;
    DXFItem pending_;
    bool hasPending_ = false;
    bool pendingValueRead_ = false;
};

/// The text form: a group is two lines, the code in base 10 and the value.
class DXFAsciiStream : public DXFStream {
public:
    DXFAsciiStream(std::span<const unsigned char> data, std::wstring fileName);

    long line() const override { return line_; }
    std::size_t position() const override { return pos_; }
    std::size_t size() const override { return data_.size(); }

protected:
    bool nextCode(DXFItem& item) override;
    void nextValue(DXFItem& item) override;
    void passValue(const DXFItem& item) override;

private:
    /// The next line without its end, or false at the end of the data.
    bool nextLine(std::string_view& line);

    std::string_view data_;
    std::size_t pos_ = 0;
    long line_ = 0;
};

/// The binary form: after the sentinel, each code is one byte (255 escapes to a
/// two-byte code) or, with `twoByteCodes`, always two bytes, little-endian; the value
/// follows by its datatype: 2, 4 or 8 bytes little-endian, or a text ended by a zero
/// byte (binary chunks are a length byte and the bytes).
class DXFBinaryStream : public DXFStream {
public:
    /// "AutoCAD Binary DXF\r\n\x1a\0".
    static constexpr std::string_view sentinel{"AutoCAD Binary DXF\r\n\x1a\0", 22};

    /// `data` starts with the sentinel. Without an explicit choice the code width is
    /// guessed from the first group: a drawing's first code is 0, so two zero bytes
    /// mean two-byte codes.
    DXFBinaryStream(std::span<const unsigned char> data, std::wstring fileName);
    DXFBinaryStream(std::span<const unsigned char> data, std::wstring fileName, bool twoByteCodes);

    bool twoByteCodes() const { return twoByteCodes_; }
    long line() const override { return 2 * groups_; }
    std::size_t position() const override { return pos_; }
    std::size_t size() const override { return data_.size(); }

protected:
    bool nextCode(DXFItem& item) override;
    void nextValue(DXFItem& item) override;
    void passValue(const DXFItem& item) override;

private:
    /// The number of value bytes that follow a code, or 0 for a zero-ended text.
    std::size_t valueSize(const DXFItem& item) const;

    std::span<const unsigned char> data_;
    std::size_t pos_;
    bool twoByteCodes_;
    long groups_ = 0;
};

/// True if `data` starts with the binary sentinel.
bool isBinaryDXF(std::span<const unsigned char> data);
/// The stream for `data`: binary if it starts with the sentinel, text otherwise.
std::unique_ptr<DXFStream> makeDXFStream(std::span<const unsigned char> data,
                                         const std::wstring& fileName);
