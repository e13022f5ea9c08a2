#include "backup/json_check.h"

#include <locale>
#include <sstream>

namespace host {
namespace backup {

namespace {

constexpr int kMaxDepth = 512;

class Checker {
public:
    Checker(const char* text, size_t size) : begin_(text), p_(text), end_(text + size) {}

    bool Document(std::string* error) {
        if (end_ - p_ >= 3 && p_[0] == '\xEF' && p_[1] == '\xBB' && p_[2] == '\xBF')
            p_ += 3;
        bool ok = Value(0);
        if (ok) {
            SkipSpace();
            if (p_ != end_)
                ok = Fail("extra text after the value");
        }
        if (!ok && error != nullptr)
            *error = why_ + " at offset " + std::to_string(offset_);
        return ok;
    }

private:
    bool Fail(const char* why) {
        if (why_.empty()) {
            why_ = why;
            offset_ = static_cast<size_t>(p_ - begin_);
        }
        return false;
    }

    void SkipSpace() {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\n' || *p_ == '\r'))
            ++p_;
    }

    bool Literal(const char* word, size_t length) {
        if (static_cast<size_t>(end_ - p_) < length)
            return Fail("unknown word");
        for (size_t i = 0; i < length; ++i) {
            if (p_[i] != word[i])
                return Fail("unknown word");
        }
        p_ += length;
        return true;
    }

    bool Digits() {
        if (p_ == end_ || *p_ < '0' || *p_ > '9')
            return Fail("a digit expected");
        while (p_ != end_ && *p_ >= '0' && *p_ <= '9')
            ++p_;
        return true;
    }

    bool Number() {
        const char* start = p_;
        if (!NumberSyntax())
            return false;
        // Fractions, exponents and integers too long for 64 bits are read as doubles: one
        // a double cannot hold (2e440) is refused, as JsonCpp refuses it.
        bool fraction = false;
        for (const char* c = start; c != p_; ++c)
            fraction = fraction || *c == '.' || *c == 'e' || *c == 'E';
        if (fraction || p_ - start > 18) {
            std::istringstream in(std::string(start, p_));
            in.imbue(std::locale::classic());
            double value = 0;
            if (!(in >> value))
                return Fail("a number out of range");
        }
        return true;
    }

    bool NumberSyntax() {
        if (*p_ == '-')
            ++p_;
        if (p_ != end_ && *p_ == '0') {
            ++p_;
        } else if (!Digits()) {
            return false;
        }
        if (p_ != end_ && *p_ == '.') {
            ++p_;
            if (!Digits())
                return false;
        }
        if (p_ != end_ && (*p_ == 'e' || *p_ == 'E')) {
            ++p_;
            if (p_ != end_ && (*p_ == '+' || *p_ == '-'))
                ++p_;
            if (!Digits())
                return false;
        }
        return true;
    }

    bool Hex4() {
        if (end_ - p_ < 4)
            return Fail("a \\u escape needs four hex digits");
        unsigned value = 0;
        for (int i = 0; i < 4; ++i, ++p_) {
            const char c = *p_;
            unsigned digit;
            if (c >= '0' && c <= '9')
                digit = static_cast<unsigned>(c - '0');
            else if (c >= 'a' && c <= 'f')
                digit = static_cast<unsigned>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                digit = static_cast<unsigned>(c - 'A' + 10);
            else
                return Fail("a \\u escape needs four hex digits");
            value = value * 16 + digit;
        }
        last_unit_ = value;
        return true;
    }

    bool String() {
        ++p_;  // the opening quote
        for (;;) {
            if (p_ == end_)
                return Fail("unterminated string");
            const unsigned char c = static_cast<unsigned char>(*p_++);
            if (c == '"')
                return true;
            if (c < 0x20)
                return Fail("a control character in a string");
            if (c != '\\')
                continue;
            if (p_ == end_)
                return Fail("unterminated string");
            switch (*p_++) {
                case '"':
                case '\\':
                case '/':
                case 'b':
                case 'f':
                case 'n':
                case 'r':
                case 't':
                    break;
                case 'u':
                    if (!Hex4())
                        return false;
                    // The first half of a surrogate pair must be followed by another escape.
                    if (last_unit_ >= 0xD800 && last_unit_ <= 0xDBFF) {
                        if (end_ - p_ < 2 || p_[0] != '\\' || p_[1] != 'u')
                            return Fail("half a surrogate pair");
                        p_ += 2;
                        if (!Hex4())
                            return false;
                    }
                    break;
                default:
                    return Fail("an unknown escape in a string");
            }
        }
    }

    bool Value(int depth) {
        SkipSpace();
        if (p_ == end_)
            return Fail("a value expected");
        switch (*p_) {
            case '{':
                return Container(depth, '}');
            case '[':
                return Container(depth, ']');
            case '"':
                return String();
            case 't':
                return Literal("true", 4);
            case 'f':
                return Literal("false", 5);
            case 'n':
                return Literal("null", 4);
            default:
                if (*p_ == '-' || (*p_ >= '0' && *p_ <= '9'))
                    return Number();
                return Fail("a value expected");
        }
    }

    // An object ("}") or an array ("]"), p_ on its opening bracket.
    bool Container(int depth, char close) {
        if (depth + 1 > kMaxDepth)
            return Fail("nested too deep");
        ++p_;
        SkipSpace();
        if (p_ != end_ && *p_ == close) {
            ++p_;
            return true;
        }
        for (;;) {
            if (close == '}') {
                SkipSpace();
                if (p_ == end_ || *p_ != '"')
                    return Fail("a member name expected");
                if (!String())
                    return false;
                SkipSpace();
                if (p_ == end_ || *p_ != ':')
                    return Fail("':' expected");
                ++p_;
            }
            if (!Value(depth + 1))
                return false;
            SkipSpace();
            if (p_ == end_)
                return Fail("unterminated object or array");
            if (*p_ == close) {
                ++p_;
                return true;
            }
            if (*p_ != ',')
                return Fail("',' expected");
            ++p_;
        }
    }

    const char* const begin_;
    const char* p_;
    const char* const end_;
    unsigned last_unit_ = 0;
    std::string why_;
    size_t offset_ = 0;
};

}  // namespace

bool IsJson(const char* text, size_t size, std::string* error) {
    return Checker(text, size).Document(error);
}

}  // namespace backup
}  // namespace host
