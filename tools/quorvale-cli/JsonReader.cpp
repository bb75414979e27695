#include "JsonReader.h"

#include <cstdlib>
#include <cstring>

namespace cli {

namespace {

/// Deep nesting is refused rather than allowed to exhaust the stack.
constexpr int maxDepth = 200;

class Parser {
public:
    explicit Parser(const std::string& text) : text_(text) {}

    bool parse(JsonValue& out, std::string& error) {
        skipSpace();
        if (!value(out, 0)) {
            error = error_;
            return false;
        }
        skipSpace();
        if (at_ < text_.size()) {
            fail("unexpected text after the end of the script");
            error = error_;
            return false;
        }
        return true;
    }

private:
    bool fail(const std::string& what) {
        if (error_.empty()) {
            error_ = "line " + std::to_string(line_) + ", column " + std::to_string(column_) +
                     ": " + what;
        }
        return false;
    }

    int peek() const { return at_ < text_.size() ? static_cast<unsigned char>(text_[at_]) : -1; }

    void advance() {
        if (at_ >= text_.size()) {
            return;
        }
        if (text_[at_] == '\n') {
            ++line_;
            column_ = 1;
        } else if ((static_cast<unsigned char>(text_[at_]) & 0xC0) != 0x80) {
            ++column_; // count characters, not the continuation bytes of UTF-8
        }
        ++at_;
    }

    void skipSpace() {
        while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r') {
            advance();
        }
    }

    bool literal(const char* word) {
        const std::size_t n = std::strlen(word);
        if (text_.compare(at_, n, word) != 0) {
            return fail("unknown word; expected a value");
        }
        for (std::size_t i = 0; i < n; ++i) {
            advance();
        }
        return true;
    }

    bool value(JsonValue& out, int depth) {
        out.line = line_;
        out.column = column_;
        if (depth > maxDepth) {
            return fail("nested too deeply");
        }
        switch (peek()) {
        case '{':
            return object(out, depth);
        case '[':
            return array(out, depth);
        case '"':
            out.kind = JsonValue::string;
            return string(out.text);
        case 't':
            out.kind = JsonValue::boolean;
            out.flag = true;
            return literal("true");
        case 'f':
            out.kind = JsonValue::boolean;
            return literal("false");
        case 'n':
            out.kind = JsonValue::null;
            return literal("null");
        case -1:
            return fail("the script ends where a value was expected");
        default:
            if (peek() == '-' || (peek() >= '0' && peek() <= '9')) {
                return number(out);
            }
            return fail(std::string("unexpected character '") + static_cast<char>(peek()) +
                        "'; expected a value");
        }
    }

    bool digits() {
        if (!(peek() >= '0' && peek() <= '9')) {
            return fail("expected a digit");
        }
        while (peek() >= '0' && peek() <= '9') {
            advance();
        }
        return true;
    }

    bool number(JsonValue& out) {
        const std::size_t begin = at_;
        if (peek() == '-') {
            advance();
        }
        if (peek() == '0') {
            advance();
            if (peek() >= '0' && peek() <= '9') {
                return fail("a number may not start with 0");
            }
        } else if (!digits()) {
            return false;
        }
        if (peek() == '.') {
            advance();
            if (!digits()) {
                return false;
            }
        }
        if (peek() == 'e' || peek() == 'E') {
            advance();
            if (peek() == '+' || peek() == '-') {
                advance();
            }
            if (!digits()) {
                return false;
            }
        }
        out.kind = JsonValue::number;
        out.text = text_.substr(begin, at_ - begin);
        out.numberValue = std::strtod(out.text.c_str(), nullptr);
        return true;
    }

    static void appendUtf8(std::string& s, unsigned code) {
        if (code < 0x80) {
            s += static_cast<char>(code);
        } else if (code < 0x800) {
            s += static_cast<char>(0xC0 | (code >> 6));
            s += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            s += static_cast<char>(0xE0 | (code >> 12));
            s += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            s += static_cast<char>(0xF0 | (code >> 18));
            s += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            s += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    bool hex4(unsigned& code) {
        code = 0;
        for (int i = 0; i < 4; ++i) {
            const int c = peek();
            int v = -1;
            if (c >= '0' && c <= '9') {
                v = c - '0';
            } else if (c >= 'a' && c <= 'f') {
                v = c - 'a' + 10;
            } else if (c >= 'A' && c <= 'F') {
                v = c - 'A' + 10;
            }
            if (v < 0) {
                return fail("\\u takes four hexadecimal digits");
            }
            code = code * 16 + static_cast<unsigned>(v);
            advance();
        }
        return true;
    }

    bool string(std::string& out) {
        advance(); // the opening quote
        out.clear();
        for (;;) {
            const int c = peek();
            if (c == -1) {
                return fail("the script ends inside a string");
            }
            if (c == '"') {
                advance();
                return true;
            }
            if (c < 0x20) {
                return fail("a control character inside a string (end the string first)");
            }
            if (c != '\\') {
                out += static_cast<char>(c);
                advance();
                continue;
            }
            advance();
            const int e = peek();
            advance();
            switch (e) {
            case '"':
            case '\\':
            case '/':
                out += static_cast<char>(e);
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                unsigned code = 0;
                if (!hex4(code)) {
                    return false;
                }
                if (code >= 0xD800 && code < 0xDC00 && peek() == '\\') {
                    advance();
                    if (peek() != 'u') {
                        return fail("a high surrogate must be followed by \\u");
                    }
                    advance();
                    unsigned low = 0;
                    if (!hex4(low)) {
                        return false;
                    }
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                }
                appendUtf8(out, code);
                break;
            }
            default:
                return fail("unknown escape in a string");
            }
        }
    }

    bool array(JsonValue& out, int depth) {
        out.kind = JsonValue::array;
        return members(']', "a list", [&] {
            out.items.emplace_back();
            return value(out.items.back(), depth + 1);
        });
    }

    bool object(JsonValue& out, int depth) {
        out.kind = JsonValue::object;
        return members('}', "an object", [&] {
            if (peek() != '"') {
                return fail("expected a key in double quotes");
            }
            std::string key;
            if (!string(key)) {
                return false;
            }
            skipSpace();
            if (peek() != ':') {
                return fail("expected ':' after the key \"" + key + "\"");
            }
            advance();
            skipSpace();
            out.keys.push_back(key);
            out.items.emplace_back();
            return value(out.items.back(), depth + 1);
        });
    }

    /// The members of a list or an object, from its opening bracket to `close`: `member`
    /// reads one, and they are separated by commas.
    template <class ReadMember> bool members(char close, const char* what, ReadMember member) {
        advance();
        skipSpace();
        if (peek() == close) {
            advance();
            return true;
        }
        for (;;) {
            if (!member()) {
                return false;
            }
            skipSpace();
            if (peek() == ',') {
                advance();
                skipSpace();
                continue;
            }
            if (peek() == close) {
                advance();
                return true;
            }
            return fail(std::string("expected ',' or '") + close + "' in " + what);
        }
    }

    const std::string& text_;
    std::size_t at_ = 0;
    int line_ = 1;
    int column_ = 1;
    std::string error_;
};

} // namespace

const JsonValue* JsonValue::find(const std::string& key) const {
    for (std::size_t i = 0; i < keys.size() && i < items.size(); ++i) {
        if (keys[i] == key) {
            return &items[i];
        }
    }
    return nullptr;
}

std::vector<std::pair<std::string, const JsonValue*>> JsonValue::members() const {
    std::vector<std::pair<std::string, const JsonValue*>> out;
    for (std::size_t i = 0; i < keys.size() && i < items.size(); ++i) {
        out.emplace_back(keys[i], &items[i]);
    }
    return out;
}

const char* JsonValue::kindName() const {
    switch (kind) {
    case boolean:
        return "true or false";
    case number:
        return "a number";
    case string:
        return "a string";
    case array:
        return "a list";
    case object:
        return "an object";
    default:
        return "null";
    }
}

bool readJson(const std::string& text, JsonValue& out, std::string& error) {
    out = JsonValue();
    return Parser(text).parse(out, error);
}

} // namespace cli
