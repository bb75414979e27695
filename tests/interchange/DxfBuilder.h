#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

/// Builds a drawing as a list of groups and writes it in the text form or the binary
/// form. The value type of each group is chosen by the test (from the published table of
/// group codes), not looked up, so that the reader's own table is checked against it.
class DxfBuilder {
public:
    DxfBuilder& text(int code, const std::string& value);
    DxfBuilder& real(int code, double value);
    DxfBuilder& int16(int code, int value);
    DxfBuilder& int32(int code, long value);
    /// Groups code, code + 10 and code + 20.
    DxfBuilder& point(int code, double x, double y, double z);
    /// Appends the groups of another builder.
    DxfBuilder& append(const DxfBuilder& other);

    DxfBuilder& section(const std::string& name) { return text(0, "SECTION").text(2, name); }
    DxfBuilder& endsec() { return text(0, "ENDSEC"); }
    DxfBuilder& eof() { return text(0, "EOF"); }
    /// A POLYLINE's own groups: flags (70) and its two counts (71, 72).
    DxfBuilder& polyline(const std::string& layer, int flags, int m, int n);
    /// A VERTEX of a POLYLINE with its flags (group 70).
    DxfBuilder& vertex(const std::string& layer, double x, double y, double z, int flags);
    /// A polyface face record: a VERTEX with flag 128 and the corners (groups 71 on).
    DxfBuilder& faceRecord(const std::string& layer, const std::vector<int>& corners);
    /// A 3DFACE on a layer.
    DxfBuilder& face3d(const std::string& layer, const std::vector<std::vector<double>>& corners);

    /// The text-form line of the code of the next group to be added (groups take two
    /// lines each, the first group's code is line 1).
    long nextLine() const { return 2 * static_cast<long>(groups_.size()) + 1; }

    /// Two lines per group, "\r\n" line ends when `crlf`.
    std::string ascii(bool crlf = false) const;
    /// The sentinel, then each group: the code in one byte (255 and two bytes for codes
    /// from 255 on) or always in two bytes, and the value little-endian.
    std::string binary(bool twoByteCodes = false) const;

private:
    struct Group {
        int code;
        std::variant<std::string, double, std::int16_t, std::int32_t> value;
    };
    std::vector<Group> groups_;
};

/// The bytes of a string, for the reader's span interface.
inline std::vector<unsigned char> bytesOf(const std::string& s) {
    return std::vector<unsigned char>(s.begin(), s.end());
}
