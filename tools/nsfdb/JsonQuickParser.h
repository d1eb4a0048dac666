// A JSON parser for the common case of a large, well-formed file: it gives a handler the same
// events as nlohmann's sax_parse, several times faster, and stops (QuickParser::Stopped) at the
// first thing it leaves to that parser: any fault, or a number it does not convert itself. Every
// event it has given is one nlohmann's parser gives at the same point, so the full parser can
// take over from the start of the file by passing over events() events, and then reports a
// fault with its own message and position.
#ifndef NSFDB_JSONQUICKPARSER_H
#define NSFDB_JSONQUICKPARSER_H

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <clocale>
#include <cstdlib>
#include <string>
#include <vector>

namespace nsfdb {

class QuickParser {
public:
    struct Stopped {};

    using ReadError = void (*)();

    // Reads from file's current position; readError is called (and throws) when reading fails.
    QuickParser(std::FILE* file, ReadError readError) : file_(file), buffer_(1 << 16), readError_(readError) {}

    // Gives the handler the whole document's events: false when it stopped first (events() were
    // given).
    template <typename Handler>
    bool Parse(Handler& handler) {
        try {
            Document(handler);
            return true;
        } catch (const Stopped&) {
            return false;
        }
    }

    size_t events() const { return events_; }

private:
    template <typename Handler>
    void Document(Handler& handler) {
        if (Peek() == 0xEF) {  // a byte order mark, skipped without an event
            for (int byte : {0xEF, 0xBB, 0xBF}) {
                if (Peek() != byte) Stop();
                ++at_;
            }
        }
        Value(handler);
        SkipBlanks();
        if (Peek() != kEnd) Stop();
    }

    // Values nested in lists and objects are kept on an explicit stack, as deep as the input goes.
    template <typename Handler>
    void Value(Handler& handler) {
        std::vector<bool> inObject;  // one per open container
        for (;;) {
            SkipBlanks();
            int c = Peek();
            if (c == '{' || c == '[') {
                ++at_;
                bool object = c == '{';
                Give(object ? handler.start_object(size_t(-1)) : handler.start_array(size_t(-1)));
                SkipBlanks();
                if (Peek() == (object ? '}' : ']')) {
                    ++at_;
                    Give(object ? handler.end_object() : handler.end_array());
                } else {
                    inObject.push_back(object);
                    if (object) Key(handler);
                    continue;
                }
            } else {
                Scalar(handler, c);
            }
            // After a complete value: close what ends here, or go on to the next member.
            for (;;) {
                if (inObject.empty()) return;
                SkipBlanks();
                int next = Peek();
                ++at_;
                if (next == ',') {
                    if (inObject.back()) Key(handler);
                    break;
                }
                if (next != (inObject.back() ? '}' : ']')) Stop();
                Give(inObject.back() ? handler.end_object() : handler.end_array());
                inObject.pop_back();
            }
        }
    }

    template <typename Handler>
    void Key(Handler& handler) {
        SkipBlanks();
        if (Peek() != '"') Stop();
        ++at_;
        String();
        Give(handler.key(text_));
        SkipBlanks();
        if (Peek() != ':') Stop();
        ++at_;
    }

    template <typename Handler>
    void Scalar(Handler& handler, int c) {
        switch (c) {
            case '"':
                ++at_;
                String();
                Give(handler.string(text_));
                return;
            case 't': Literal("true"); Give(handler.boolean(true)); return;
            case 'f': Literal("false"); Give(handler.boolean(false)); return;
            case 'n': Literal("null"); Give(handler.null()); return;
            default: Number(handler, c);
        }
    }

    void Literal(const char* word) {
        for (const char* w = word; *w; ++w) {
            if (Peek() != static_cast<unsigned char>(*w)) Stop();
            ++at_;
        }
    }

    // A number as the full parser reads it: a sign only for the negative whole numbers; whole
    // numbers beyond 64 bits (which it reads as floating point) are left to it.
    template <typename Handler>
    void Number(Handler& handler, int c) {
        number_.clear();
        bool negative = c == '-';
        if (negative) Take(c);
        int first = Peek();
        if (first == '0') {
            Take(first);
        } else if (first >= '1' && first <= '9') {
            Digits();
        } else {
            Stop();
        }
        bool whole = true;
        if (Peek() == '.') {
            whole = false;
            Take('.');
            if (!IsDigit(Peek())) Stop();
            Digits();
        }
        if (Peek() == 'e' || Peek() == 'E') {
            whole = false;
            Take(Peek());
            if (Peek() == '+' || Peek() == '-') Take(Peek());
            if (!IsDigit(Peek())) Stop();
            Digits();
        }
        errno = 0;
        char* end = nullptr;
        if (!whole) {
            if (*std::localeconv()->decimal_point != '.') Stop();  // strtod would read the text otherwise
            double value = std::strtod(number_.c_str(), &end);
            if (!std::isfinite(value)) Stop();
            Give(handler.number_float(value, number_));
        } else if (negative) {
            long long value = std::strtoll(number_.c_str(), &end, 10);
            if (errno == ERANGE) Stop();
            Give(handler.number_integer(value));
        } else {
            unsigned long long value = std::strtoull(number_.c_str(), &end, 10);
            if (errno == ERANGE) Stop();
            Give(handler.number_unsigned(value));
        }
    }

    static bool IsDigit(int c) { return c >= '0' && c <= '9'; }

    void Digits() {
        while (IsDigit(Peek())) Take(Peek());
    }

    void Take(int c) {
        number_ += static_cast<char>(c);
        ++at_;
    }

    // The text of a string after its opening quote, into text_.
    void String() {
        text_.clear();
        for (;;) {
            const unsigned char* start = buffer_.data() + at_;
            const unsigned char* p = start;
            const unsigned char* end = buffer_.data() + size_;
            while (p < end && *p >= 0x20 && *p < 0x80 && *p != '"' && *p != '\\') ++p;
            text_.append(reinterpret_cast<const char*>(start), static_cast<size_t>(p - start));
            at_ += static_cast<size_t>(p - start);
            int c = Peek();
            if (c == '"') {
                ++at_;
                return;
            }
            if (c == '\\') {
                ++at_;
                Escape();
            } else if (c >= 0x80) {
                Utf8Sequence(c);
            } else if (c < 0x20) {
                Stop();  // a control character or the end of the input
            }  // else more plain text, after the next block was read
        }
    }

    void Escape() {
        int c = Peek();
        ++at_;
        switch (c) {
            case '"': text_ += '"'; return;
            case '\\': text_ += '\\'; return;
            case '/': text_ += '/'; return;
            case 'b': text_ += '\b'; return;
            case 'f': text_ += '\f'; return;
            case 'n': text_ += '\n'; return;
            case 'r': text_ += '\r'; return;
            case 't': text_ += '\t'; return;
            case 'u': break;
            default: Stop();
        }
        std::uint32_t code = Hex4();
        if (code >= 0xDC00 && code <= 0xDFFF) Stop();  // a low surrogate alone
        if (code >= 0xD800 && code <= 0xDBFF) {
            if (Peek() != '\\') Stop();
            ++at_;
            if (Peek() != 'u') Stop();
            ++at_;
            std::uint32_t low = Hex4();
            if (low < 0xDC00 || low > 0xDFFF) Stop();
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        AppendUtf8(code);
    }

    std::uint32_t Hex4() {
        std::uint32_t code = 0;
        for (int i = 0; i < 4; ++i) {
            int c = Peek();
            ++at_;
            int digit = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
            if (digit < 0) Stop();
            code = (code << 4) | static_cast<std::uint32_t>(digit);
        }
        return code;
    }

    void AppendUtf8(std::uint32_t code) {
        if (code < 0x80) {
            text_ += static_cast<char>(code);
        } else if (code < 0x800) {
            text_ += static_cast<char>(0xC0 | (code >> 6));
            text_ += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            text_ += static_cast<char>(0xE0 | (code >> 12));
            text_ += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            text_ += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            text_ += static_cast<char>(0xF0 | (code >> 18));
            text_ += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            text_ += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            text_ += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    // One well-formed UTF-8 sequence (the shortest form, no surrogates, at most U+10FFFF).
    void Utf8Sequence(int lead) {
        int low = 0x80, high = 0xBF, more;
        if (lead >= 0xC2 && lead <= 0xDF) {
            more = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            more = 2;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            more = 3;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            Stop();
        }
        text_ += static_cast<char>(lead);
        ++at_;
        for (int i = 0; i < more; ++i) {
            int c = Peek();
            if (c < (i == 0 ? low : 0x80) || c > (i == 0 ? high : 0xBF)) Stop();
            text_ += static_cast<char>(c);
            ++at_;
        }
    }

    void SkipBlanks() {
        for (;;) {
            int c = Peek();
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r') return;
            ++at_;
        }
    }

    static constexpr int kEnd = -1;

    // The next byte (kEnd at the end of the input), reading the next block when needed.
    int Peek() {
        if (at_ == size_ && !Refill()) return kEnd;
        return buffer_[at_];
    }

    bool Refill() {
        at_ = 0;
        size_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
        if (size_ == 0 && std::ferror(file_)) readError_();
        return size_ > 0;
    }

    // Counts an event the handler took; a handler that answers false ends the parse as the
    // full parser would, which is left to say what happens then.
    void Give(bool accepted) {
        ++events_;
        if (!accepted) Stop();
    }

    [[noreturn]] static void Stop() { throw Stopped(); }

    std::FILE* file_;
    std::vector<unsigned char> buffer_;
    size_t at_ = 0, size_ = 0;
    ReadError readError_;
    std::string text_, number_;
    size_t events_ = 0;
};

}  // namespace nsfdb

#endif
