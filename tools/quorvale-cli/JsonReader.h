#pragma once

#include <string>
#include <utility>
#include <vector>

namespace cli {

/// One value of a JSON text, with the line and column (from 1) where it starts, so that a
/// script's reader can say where a value it does not accept lies.
struct JsonValue {
    enum Kind { null, boolean, number, string, array, object };
    Kind kind = null;
    bool flag = false;
    double numberValue = 0;
    /// The number exactly as written (for integer keys) or the string's text, UTF-8.
    std::string text;
    /// The items of a list, or the values of an object's members.
    std::vector<JsonValue> items;
    /// The keys of an object's members, one for each of `items`, in the order written.
    std::vector<std::string> keys;
    int line = 0;
    int column = 0;

    /// The member of an object with this key; null if absent (or not an object).
    const JsonValue* find(const std::string& key) const;
    /// An object's members in order, as (key, value).
    std::vector<std::pair<std::string, const JsonValue*>> members() const;
    const char* kindName() const;
};

/// Reads a whole JSON text (RFC 8259: objects, arrays, strings with escapes, numbers,
/// true, false, null; nothing but white space after the value). On failure returns false
/// with `error` as "line L, column C: what was wrong".
bool readJson(const std::string& text, JsonValue& out, std::string& error);

} // namespace cli
